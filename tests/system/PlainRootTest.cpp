// A root that is no mount point, as after chroot(2): mount(2) cannot change its propagation.

#include "ProgramRun.h"
#include "testbed/Failure.h"
#include "testbed/ProcessState.h"
#include "testbed/Sandbox.h"

#include <sys/mount.h>
#include <unistd.h>

#include <filesystem>

using testbed::Require;

namespace fs = std::filesystem;

namespace {

constexpr const char* kRoot = "/tmp/root";

void Bind(const fs::path& folder) {
    const fs::path place = kRoot + folder.string();
    fs::create_directories(place);
    Require(mount(folder.c_str(), place.c_str(), nullptr, MS_BIND | MS_REC, nullptr) == 0,
            "cannot bind " + folder.string());
}

// The new root has the content of this root, without that of `hidden`, and an empty /tmp.
void ChangeToPlainRootWithout(const fs::path& hidden) {
    fs::create_directories(kRoot + std::string("/tmp"));
    for (const fs::directory_entry& entry : fs::directory_iterator("/")) {
        const fs::path place = kRoot + entry.path().string();
        if (entry.is_symlink())
            fs::copy_symlink(entry.path(), place);
        else if (entry.is_directory() && entry.path() != "/tmp" && entry.path() != hidden)
            Bind(entry.path());
    }
    if (!hidden.empty())
        fs::create_directory(kRoot + hidden.string());
    Require(chroot(kRoot) == 0 && chdir("/") == 0, "cannot change the root");
    Require(dup2(STDERR_FILENO, STDOUT_FILENO) >= 0, "cannot redirect standard output");
}

TEST(PlainRootTest, DaemonRunsInASandboxOnAPlainRootDirectory) {
    const std::string one = "IdentificationTest.DiscIsWithdrawnMountedEjectedAndWithdrawnAgain";
    EXPECT_THAT(
        RunProgram({"system-tests", "--gtest_filter=" + one}, [] { ChangeToPlainRootWithout(""); }),
        HasEnded(0, "[  PASSED  ] 1 test."));
}

TEST(PlainRootTest, MissingProcFileSystemIsReported) {
    if (testbed::kHasSanitizer)
        GTEST_SKIP() << "a sanitizer needs /proc";
    EXPECT_THAT(RunProgram({"system-tests"}, [] { ChangeToPlainRootWithout("/proc"); }),
                HasEnded(testbed::kNoSandbox, "is the proc file system mounted"));
}

} // namespace
