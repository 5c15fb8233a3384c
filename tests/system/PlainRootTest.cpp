// A root that is a plain directory, as after chroot: mount(2) does not change it like a mount
// point.

#include "ProgramRun.h"
#include "testbed/Failure.h"
#include "testbed/ProcessState.h"
#include "testbed/Sandbox.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/mount.h>
#include <unistd.h>

#include <filesystem>

using testbed::Require;
using testing::HasSubstr;

namespace fs = std::filesystem;

namespace {

constexpr const char* kRoot = "/tmp/root";

bool IsFolder(const fs::directory_entry& entry) {
    return entry.is_directory() && !entry.is_symlink();
}

void Bind(const fs::path& folder) {
    const fs::path place = kRoot + folder.string();
    fs::create_directories(place);
    Require(mount(folder.c_str(), place.c_str(), nullptr, MS_BIND | MS_REC, nullptr) == 0,
            "cannot bind " + folder.string());
}

// With the content of this root, but for `left`, and a /tmp of its own.
void ChangeToPlainRootWithout(const fs::path& left) {
    fs::create_directories(kRoot + std::string("/tmp"));
    for (const fs::directory_entry& entry : fs::directory_iterator("/")) {
        const fs::path place = kRoot + entry.path().string();
        if (entry.is_symlink())
            fs::copy_symlink(entry.path(), place);
        else if (IsFolder(entry) && entry.path() != "/tmp" && entry.path() != left)
            Bind(entry.path());
    }
    if (!left.empty())
        fs::create_directory(kRoot + left.string());
    Require(chroot(kRoot) == 0 && chdir("/") == 0, "cannot change the root");
    Require(dup2(STDERR_FILENO, STDOUT_FILENO) >= 0, "cannot redirect standard output");
}

TEST(PlainRootTest, DaemonRunsInASandboxOnAPlainRootDirectory) {
    const std::string one = "IdentificationTest.DiscIsWithdrawnMountedEjectedAndWithdrawnAgain";
    const ProgramEnd end =
        RunProgram({"system-tests", "--gtest_filter=" + one}, [] { ChangeToPlainRootWithout(""); });
    EXPECT_EQ(end.exitStatus, 0);
    EXPECT_THAT(end.errors, HasSubstr("[  PASSED  ] 1 test.")) << end.errors;
}

TEST(PlainRootTest, MissingProcFileSystemIsReported) {
    if (testbed::kHasSanitizer)
        GTEST_SKIP() << "a sanitizer itself takes /proc";
    const ProgramEnd end = RunProgram({"system-tests"}, [] { ChangeToPlainRootWithout("/proc"); });
    EXPECT_EQ(end.exitStatus, testbed::kNoSandbox);
    EXPECT_THAT(end.errors, HasSubstr("is the proc file system mounted"));
}

} // namespace
