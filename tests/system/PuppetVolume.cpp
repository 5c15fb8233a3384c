#include "PuppetVolume.h"

#include "testbed/Failure.h"
#include "testbed/Sandbox.h"

#include <fcntl.h>
#include <sys/mount.h>
#include <sys/wait.h>

#include <csignal>
#include <filesystem>

namespace {

// Returns the place again.
const std::string& MakeMountPoint(const std::string& place) {
    std::filesystem::create_directories(place);
    return place;
}

} // namespace

const char* PuppetVolume::OptionFor(Start start) {
    switch (start) {
    case Start::Asleep:
        return "--asleep";
    case Start::StopsAtInfo:
        return "--stops-at-info=1";
    default:
        return "--stops-at-info=2";
    }
}

testbed::Command PuppetVolume::CommandFor(const std::string& place,
                                          const std::vector<std::string>& folders, Start start) {
    testbed::Command command{
        testbed::ProgramPath("puppet-volume"), {"puppet-volume"}, testbed::MinimalEnvironment()};
    if (start != Start::Awake)
        command.arguments.emplace_back(OptionFor(start));
    command.arguments.insert(command.arguments.end(),
                             {MakeMountPoint(place), "5764824129707245729"});
    command.arguments.insert(command.arguments.end(), folders.begin(), folders.end());
    return command;
}

PuppetVolume::PuppetVolume(testbed::OutputLog& outputLog, const std::string& place,
                           const std::vector<std::string>& folders, Start start)
    : outputLog_(outputLog), place_(place),
      process_(CommandFor(place, folders, start), outputLog, testbed::Stream::Server,
               testbed::Stream::ServerOutput) {
    outputLog_.Await(testbed::Stream::Server, "volume mounted");
    if (start == Start::Asleep)
        AwaitStop();
}

PuppetVolume::~PuppetVolume() {
    umount2(place_.c_str(), MNT_DETACH);
}

void PuppetVolume::AwaitRead(const std::string& path) {
    outputLog_.Await(testbed::Stream::Server, "volume read " + path);
}

void PuppetVolume::Kill() {
    process_.Signal(SIGKILL);
    process_.AwaitEnd();
}

void PuppetVolume::Unmount() {
    testbed::Require(umount2(place_.c_str(), MNT_DETACH) == 0, "cannot unmount " + place_);
}

SilentVolume::SilentVolume(const std::string& place, const std::string& options)
    : device_(open("/dev/fuse", O_RDWR | O_CLOEXEC)) {
    const std::string all = "fd=" + std::to_string(device_.Get()) + ",rootmode=40000," + options;
    testbed::Require(
        mount("silent", MakeMountPoint(place).c_str(), "fuse.silent", 0, all.c_str()) == 0,
        "cannot mount " + place);
}

SilentVolume SilentVolume::OfUser(uid_t owner, const std::string& place) {
    const std::string id = std::to_string(owner);
    return SilentVolume(place, "user_id=" + id + ",group_id=" + id);
}
