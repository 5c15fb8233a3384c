#include "PuppetVolume.h"

#include "testbed/Failure.h"
#include "testbed/Sandbox.h"

#include <fcntl.h>
#include <sys/mount.h>
#include <sys/wait.h>

#include <csignal>
#include <filesystem>

namespace {

// Returns its argument.
const std::string& MakeMountPoint(const std::string& place) {
    std::filesystem::create_directories(place);
    return place;
}

testbed::Command CommandFor(const std::string& place, const std::vector<std::string>& folders,
                            PuppetVolume::Start start) {
    constexpr const char* kOptions[] = {"--awake", "--asleep", "--stops-at-info=1",
                                        "--stops-at-info=2"};
    testbed::Command command{testbed::ProgramPath("puppet-volume"),
                             {"puppet-volume", kOptions[static_cast<int>(start)],
                              MakeMountPoint(place), "5764824129707245729"},
                             testbed::MinimalEnvironment()};
    command.arguments.insert(command.arguments.end(), folders.begin(), folders.end());
    return command;
}

} // namespace

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

void PuppetVolume::AwaitInfoReads(int count) {
    for (int reads = 0; reads < count; ++reads)
        outputLog_.Await(testbed::Stream::Server, "volume read /.changer_info.plist");
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
