// The demo as a program: its messages and exit status where it cannot run.

#include "ProgramRun.h"
#include "testbed/Descriptor.h"
#include "testbed/Failure.h"
#include "testbed/Sandbox.h"

#include <fcntl.h>
#include <sys/mount.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

using testbed::Require;

namespace fs = std::filesystem;

namespace {

constexpr const char* kFuse = "/dev/fuse";

void WriteTo(const char* file) {
    const testbed::Descriptor output(open(file, O_WRONLY | O_CLOEXEC));
    Require(dup2(output.Get(), STDOUT_FILENO) >= 0, "cannot redirect standard output");
}

void WriteToErrors() {
    Require(dup2(STDERR_FILENO, STDOUT_FILENO) >= 0, "cannot redirect standard output");
}

void Bind(const fs::path& from, const fs::path& to) {
    Require(mount(from.c_str(), to.c_str(), nullptr, MS_BIND | MS_REC, nullptr) == 0,
            "cannot bind " + from.string());
}

ProgramEnd RunDemo(const std::function<void()>& prepare) {
    return RunProgram({"trayprobed-demo"}, prepare);
}

TEST(DemoTest, HelpIsWrittenToStandardOutput) {
    EXPECT_THAT(RunProgram({"trayprobed-demo", "--help"}, WriteToErrors),
                HasEnded(0, "usage: trayprobed-demo"));
}

TEST(DemoTest, HelpThatCannotBeWrittenGivesExitStatusOne) {
    EXPECT_THAT(RunProgram({"trayprobed-demo", "--help"}, [] { WriteTo("/dev/full"); }),
                HasEnded(1, "No space left on device"));
}

TEST(DemoTest, UnknownArgumentGivesUsageAndExitStatusTwo) {
    EXPECT_THAT(RunProgram({"trayprobed-demo", "--halp"}, [] { WriteTo("/dev/null"); }),
                HasEnded(2, "usage: trayprobed-demo"));
}

TEST(DemoTest, OutputThatCannotBeWrittenGivesExitStatusOne) {
    EXPECT_THAT(RunDemo([] { WriteTo("/dev/full"); }), HasEnded(1, "No space left on device"));
}

void HideDevicesButKeepPrograms() {
    const fs::path programs = fs::path(testbed::ProgramPath("")).parent_path();
    const testbed::Descriptor kept(open(programs.c_str(), O_PATH | O_CLOEXEC));
    Require(mount("tmpfs", "/dev", "tmpfs", 0, nullptr) == 0, "cannot hide /dev");
    fs::create_directory(programs);
    Bind("/proc/self/fd/" + std::to_string(kept.Get()), programs);
}

TEST(DemoTest, MissingFuseDeviceIsReported) {
    EXPECT_THAT(RunDemo(HideDevicesButKeepPrograms),
                HasEnded(testbed::kNoSandbox, "there is no /dev/fuse"));
}

TEST(DemoTest, FileInPlaceOfTheFuseDeviceIsReported) {
    const ProgramEnd end = RunDemo([] {
        const fs::path file = "/tmp/file";
        const testbed::Descriptor created(open(file.c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0666));
        Bind(file, kFuse);
    });
    EXPECT_THAT(end, HasEnded(testbed::kNoSandbox, "/dev/fuse is no FUSE device"));
}

TEST(DemoTest, OtherDeviceInPlaceOfTheFuseDeviceIsReported) {
    EXPECT_THAT(RunDemo([] { Bind("/dev/null", kFuse); }),
                HasEnded(testbed::kNoSandbox, "/dev/fuse is no FUSE device"));
}

TEST(DemoTest, FuseDeviceWithoutPermissionIsReported) {
    const ProgramEnd end = RunDemo([] {
        Bind(kFuse, kFuse);
        const unsigned long flags = MS_REMOUNT | MS_BIND | MS_NODEV;
        Require(mount(nullptr, kFuse, nullptr, flags, nullptr) == 0, "cannot forbid devices");
    });
    EXPECT_THAT(
        end, HasEnded(testbed::kNoSandbox, "not permitted to open /dev/fuse: Permission denied"));
}

void ReplaceServerBy(const std::string& script) {
    const fs::path file = "/tmp/server";
    std::ofstream(file) << "#!/bin/sh\n" << script << std::flush;
    fs::permissions(file, fs::perms::owner_all);
    Bind(file, testbed::ProgramPath("carouseld-sim"));
    WriteToErrors();
}

TEST(DemoTest, ServerThatExitsAtItsStartIsReportedWithItsError) {
    EXPECT_THAT(RunDemo([] { ReplaceServerBy("echo 'no start' >&2\nexit 3\n"); }),
                HasEnded(1, "the server exited with 3: no start"));
}

TEST(DemoTest, ServerThatExitsAtItsFirstCommandIsReportedWithItsError) {
    EXPECT_THAT(RunDemo([] { ReplaceServerBy("read command\necho 'no answer' >&2\nexit 4\n"); }),
                HasEnded(1, "the server exited with 4: no answer"));
}

} // namespace
