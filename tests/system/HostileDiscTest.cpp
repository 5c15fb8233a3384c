#include "PuppetVolume.h"
#include "VolumeTest.h"
#include "testbed/Failure.h"
#include "testbed/ProcessState.h"
#include "testbed/ReadWatch.h"
#include "tests/unit/support/Matchers.h"

#include <fcntl.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <deque>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string>
#include <vector>

namespace fs = std::filesystem;

namespace {

constexpr const char* kPlace = "/tmp/place";
constexpr std::size_t kLongestPath = 1023; // of a directory that the daemon lists
constexpr std::size_t kMebibyte = 1024 * 1024;

// Builds of a disc whose file system blocks, fails or has unusual content.
class HostileDiscTest : public VolumeTest {
protected:
    static std::string FailedListing(const std::string& folder, int error) {
        return Link("ChangerFSCacheThread", "CacheFSDirectory",
                    "fail scandir on \"" + folder + "\" (err = " + std::to_string(error) + ")");
    }
    void ExpectMainLoopResponsive() {
        Do("add-changer changer=5000C500ABCD00B2 slots=1 drives=1");
        Do("put changer=5000C500ABCD00B2 slot=0");
        AwaitIdentification(0);
        AwaitMountsSeen();
    }
};

// ---- file systems that block or fail ----

class HostileVolumeTest : public HostileDiscTest {
protected:
    PuppetVolume& MountAndAwaitRegistration(const std::vector<std::string>& folders) {
        volume_.emplace(run_.OutputLog(), kPlace, folders);
        volume_->AwaitInfoReads();
        return *volume_;
    }
    PuppetVolume& BeginBuildThatStopsIn(const std::vector<std::string>& folders) {
        PuppetVolume& volume = MountAndAwaitRegistration(folders);
        RequestBuild();
        volume.AwaitStop();
        return volume;
    }

    std::optional<PuppetVolume> volume_;
};

TEST_F(HostileVolumeTest, SlowListingDelaysOnlyItsOwnBuild) {
    PuppetVolume& volume = BeginBuildThatStopsIn({"stop"});
    ExpectMainLoopResponsive();
    volume.Continue();
    AwaitEndOfBuild();
    EXPECT_THAT(RequestsSoFar(), Contains("status 1/1"));
}

TEST_F(HostileVolumeTest, FileSystemServerKilledDuringAListingIsLoggedAndTheBuildEnds) {
    PuppetVolume& volume = BeginBuildThatStopsIn({"a", "stop", "b"});
    ExpectMainLoopResponsive();
    volume.Kill();
    AwaitEndOfBuild();
    AwaitLog({FailedListing("/tmp/place/disc/stop", ECONNABORTED)});
    volume.Unmount();
    AwaitMountsSeen();
    ExpectNothingToBuild();
}

TEST_F(HostileVolumeTest, VolumeUnmountedDuringAListingEndsTheBuildWithoutLog) {
    PuppetVolume& volume = BeginBuildThatStopsIn({"a", "stop", "b"});
    volume.Unmount();
    volume.Continue();
    AwaitEndOfBuild();
    AwaitMountsSeen();
    ExpectNothingToBuild();
}

// The file system refuses the listings: the daemon's user may read everything.
TEST_F(HostileVolumeTest, FoldersThatCannotBeListedAreLoggedAndSkipped) {
    MountAndAwaitRegistration({"forbidden %n%s\n\xff", "broken", "a"});
    ExpectBuildOf(1);
    AwaitLog({FailedListing("/tmp/place/disc/forbidden %n%s\n\xff", EACCES),
              FailedListing("/tmp/place/disc/broken", EIO)});
}

TEST_F(HostileVolumeTest, AbortEndsTheBuildOfAnEndlessDirectoryTree) {
    MountAndAwaitRegistration({"maze"});
    RequestBuild();
    Server().Await("status", {{"current", "0"}, {"maximum", "1"}});
    ExpectMainLoopResponsive();
    Do("abort changer=5000C500ABCD00A1 client=trayprobed");
    AwaitEndOfBuild();
}

// ---- unusual content ----

// The folder is complete before it is bound to its place.
class UnusualContentTest : public HostileDiscTest {
protected:
    void SetUp() override {
        HostileDiscTest::SetUp();
        MakeChangerFolder("/tmp/a", 1);
    }
    void BindAndExpectBuild() {
        Bind("/tmp/a", kPlace, 2);
        ExpectBuildOf(1);
    }
};

TEST_F(UnusualContentTest, DirectoriesWithAnyBytesInTheirNamesAreListed) {
    std::deque<testbed::ReadWatch> watches;
    for (const std::string& name :
         std::vector<std::string>{"%n%s%999999d", "line\nbreak", "\xff\xfe", "...",
                                  std::string(255, 'x'), "\\\"'`$(false)"}) {
        const std::string leaf = "/tmp/a/disc0/" + name + "/leaf";
        fs::create_directories(leaf);
        watches.emplace_back(leaf);
    }
    BindAndExpectBuild();
    for (testbed::ReadWatch& watch : watches)
        watch.AwaitReads(1);
}

// None of them is opened. A socket cannot be opened at all, so it has no watch.
TEST_F(UnusualContentTest, LinksPipesAndSocketsOnADiscAreSkipped) {
    fs::create_directories("/tmp/outside/leaf");
    testbed::ReadWatch leaf("/tmp/outside/leaf");
    fs::create_directory_symlink("/tmp/outside", "/tmp/a/disc0/outside");
    fs::create_directory_symlink("..", "/tmp/a/disc0/loop");
    fs::create_symlink("nowhere", "/tmp/a/disc0/dangling");
    fs::create_symlink("self", "/tmp/a/disc0/self");
    ASSERT_EQ(mkfifo("/tmp/a/disc0/pipe", 0666), 0);
    testbed::ReadWatch pipe("/tmp/a/disc0/pipe");
    ASSERT_EQ(mknod("/tmp/a/disc0/socket", S_IFSOCK | 0666, 0), 0);
    fs::create_directory("/tmp/a/disc0/z");
    testbed::ReadWatch last("/tmp/a/disc0/z");
    BindAndExpectBuild();
    EXPECT_EQ(last.CountReadsSoFar(), 1);
    EXPECT_EQ(leaf.CountReadsSoFar(), 0);
    EXPECT_EQ(pipe.CountReadsSoFar(), 0);
}

TEST_F(UnusualContentTest, InfoFileIsReadOnlyIfItIsASmallRegularFile) {
    for (const char* folder : {"pipe", "directory", "link", "self", "socket", "terabyte"})
        fs::create_directory(fs::path("/tmp/a") / folder);
    fs::create_directory("/tmp/a/directory/.media_info.plist");
    fs::create_symlink("/dev/zero", "/tmp/a/link/.media_info.plist");
    fs::create_symlink(".media_info.plist", "/tmp/a/self/.media_info.plist");
    std::ofstream("/tmp/a/terabyte/.media_info.plist");
    fs::resize_file("/tmp/a/terabyte/.media_info.plist", 1ULL << 40);
    ASSERT_EQ(mkfifo("/tmp/a/pipe/.media_info.plist", 0666), 0);
    ASSERT_EQ(mknod("/tmp/a/socket/.media_info.plist", S_IFSOCK | 0666, 0), 0);
    testbed::ReadWatch pipe("/tmp/a/pipe/.media_info.plist");
    testbed::ReadWatch terabyte("/tmp/a/terabyte/.media_info.plist");
    BindAndExpectBuild();
    EXPECT_EQ(pipe.CountReadsSoFar(), 0);
    EXPECT_EQ(terabyte.CountReadsSoFar(), 2); // the count and the walk
}

// Some devices act when they are opened.
class DeviceTest : public UnusualContentTest, public testing::WithParamInterface<mode_t> {
protected:
    static bool CanMake(const char* path) {
        const bool isCharacters = GetParam() == S_IFCHR;
        const dev_t device = isCharacters ? makedev(1, 5) : makedev(7, 0); // zero, loop0
        const bool isMade = mknod(path, GetParam() | 0666, device) == 0;
        testbed::Require(isMade || errno == EPERM, "cannot make a device");
        return isMade;
    }
    // The private /tmp is mounted without devices; a disc may be mounted with them.
    static void PermitDevices(const char* place) {
        testbed::Require(mount(nullptr, place, nullptr, MS_REMOUNT | MS_BIND, nullptr) == 0,
                         "cannot permit devices");
    }
    static bool CanOpen(const std::string& path) {
        return static_cast<bool>(
            testbed::Descriptor(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC)));
    }
};

INSTANTIATE_TEST_SUITE_P(Kinds, DeviceTest, testing::Values(S_IFCHR, S_IFBLK),
                         [](const auto& kind) {
                             return kind.param == S_IFCHR ? "Characters" : "Blocks";
                         });

TEST_P(DeviceTest, DeviceIsOpenedNeitherOnADiscNorAsInfoFile) {
    for (const char* folder : {"/tmp/a/info", "/tmp/a/link", "/tmp/a/z"})
        fs::create_directory(folder);
    for (const char* path : {"/tmp/a/disc0/device", "/tmp/a/info/.media_info.plist"})
        if (!CanMake(path))
            GTEST_SKIP() << "no device can be made in this namespace (run as root)";
    fs::create_symlink("../disc0/device", "/tmp/a/link/.media_info.plist");
    Bind("/tmp/a", kPlace, 2);
    PermitDevices(kPlace);
    testbed::ReadWatch onDisc("/tmp/a/disc0/device");
    testbed::ReadWatch infoFile("/tmp/a/info/.media_info.plist");
    testbed::ReadWatch last("/tmp/a/z");
    for (const char* path : {"/disc0/device", "/info/.media_info.plist"})
        if (!CanOpen(std::string(kPlace) + path))
            GTEST_SKIP() << "such a device cannot be opened here: " << std::strerror(errno);
    ExpectBuildOf(1);
    EXPECT_EQ(onDisc.CountReadsSoFar(), 1); // by this test itself
    EXPECT_EQ(infoFile.CountReadsSoFar(), 1);
    EXPECT_EQ(last.CountReadsSoFar(), 2); // the count and the walk
}

TEST_F(UnusualContentTest, InfoFileOfASparseTerabyteIsIgnored) {
    fs::create_directory("/tmp/b");
    std::ofstream("/tmp/b/.changer_info.plist");
    fs::resize_file("/tmp/b/.changer_info.plist", 1ULL << 40);
    Bind("/tmp/b", "/tmp/place-b", 1);
    BindAndExpectBuild();
}

// In the deepest folder the path of an info file is truncated to that of the folder, which is
// opened in its place, and then listed. The path of the next folder would be truncated to its
// parent's.
TEST_F(UnusualContentTest, FoldersAreListedUpToTheMaximumPathLength) {
    std::string folder = "/tmp/a/disc0";
    std::string path = "/tmp/place/disc0";
    for (; path.size() + 2 <= kLongestPath; path += "/d")
        fs::create_directory(folder += "/d");
    fs::create_directories(folder + "/d/d");
    testbed::ReadWatch deepest(folder);
    testbed::ReadWatch tooDeep(folder + "/d");
    BindAndExpectBuild();
    EXPECT_EQ(deepest.CountReadsSoFar(), 2);
    EXPECT_EQ(tooDeep.CountReadsSoFar(), 0);
}

TEST_F(UnusualContentTest, FolderMountedBelowItselfIsNotListedAgain) {
    fs::create_directory("/tmp/a/disc0/again");
    fs::create_directory("/tmp/a/leaf");
    Bind("/tmp/a", kPlace, 2);
    ASSERT_EQ(mount(kPlace, "/tmp/place/disc0/again", nullptr, MS_BIND, nullptr), 0);
    testbed::ReadWatch leaf("/tmp/a/leaf");
    ExpectBuildOf(1);
    EXPECT_EQ(leaf.CountReadsSoFar(), 2); // the count and the walk
}

// ---- a folder with very many names ----

class ManyNamesTest : public UnusualContentTest {
protected:
    static void MakeNames(const std::string& folder, int count) {
        fs::create_directory(folder);
        const testbed::Descriptor inside(open(folder.c_str(), O_PATH | O_CLOEXEC));
        std::ofstream("/tmp/a/file");
        for (int i = 0; i < count; ++i) {
            testbed::Require(
                linkat(AT_FDCWD, "/tmp/a/file", inside.Get(), std::to_string(i).c_str(), 0) == 0,
                "link");
        }
    }
};

// The reference is the memory after a small build, which allocates what every build keeps.
TEST_F(ManyNamesTest, MemoryOfALargeListingIsReleasedAfterTheBuild) {
    BindAndExpectBuild();
    const std::size_t before = testbed::ReadAnonymousMemory(run_.Daemon().Pid());
    MakeNames("/tmp/a/disc0/many", testbed::kHasSanitizer ? 100'000 : 1'000'000);
    testbed::ReadWatch many("/tmp/a/disc0/many");
    ExpectBuildOf(1);
    many.AwaitReads(1);
    if (!testbed::kHasSanitizer)
        EXPECT_LE(testbed::ReadAnonymousMemory(run_.Daemon().Pid()), before + kMebibyte);
}

} // namespace
