#include "PuppetVolume.h"
#include "VolumeTest.h"
#include "testbed/ProcessState.h"
#include "testbed/ReadWatch.h"

#include <sys/mount.h>
#include <sys/types.h>

#include <deque>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string>

namespace {

constexpr const char* kPlace = "/tmp/place";
constexpr const char* kInfoFile = "/.changer_info.plist";
constexpr int kMaxProbes = 32;
constexpr uid_t kAnotherUser = 4321;

bool IsUserKnown(uid_t user) {
    std::ifstream map("/proc/self/uid_map");
    uid_t inside = 0;
    uid_t outside = 0;
    uid_t count = 0;
    map >> inside >> outside >> count;
    return user - inside < count;
}

// Volumes whose servers do not answer when they are mounted.
class HungVolumeTest : public VolumeTest {
protected:
    // Other volumes, other changers' discs.
    void ExpectMainLoopResponsive() {
        AwaitMountsSeen();
        Tell("put changer=5000C500ABCD00A1 slot=0 identified=yes");
        AwaitServedRequest(0);
    }
};

class OlderHungVolumeTest : public SystemTest {};

// Two file systems of one changer, of which the one mounted first answers last.
class LateVolumeTest : public VolumeTest {
protected:
    ~LateVolumeTest() override {
        umount2("/tmp/younger", MNT_DETACH);
    }
    void SetUp() override {}

    void MountOlder() {
        older_.emplace(run_.OutputLog(), "/tmp/older", Folders{"a"}, PuppetVolume::Start::Asleep);
    }
    // Waits for so many readings of its info file.
    static void MountYounger(int reads) {
        MakeChangerFolder("/tmp/b", kDiscsOfYounger);
        Bind("/tmp/b", "/tmp/younger", reads);
    }
    void ContinueOlder() {
        testbed::AwaitThreadsInSystemCall(run_.Daemon().Pid(), testbed::SystemCall::Statfs, 1);
        older_->Continue();
        older_->AwaitRead(kInfoFile);
        older_->AwaitRead(kInfoFile);
        AwaitMountsSeen();
    }

    static constexpr int kDiscsOfYounger = 3; // the older has one

private:
    using Folders = std::vector<std::string>;
    std::optional<PuppetVolume> older_;
};

TEST_F(OlderHungVolumeTest, VolumeThatHungBeforeTheStartDoesNotDelayTheDaemon) {
    const SilentVolume silent("/tmp/silent");
    Begin();
    Tell("put changer=5000C500ABCD00A1 slot=0");
    AwaitIdentification(0);
}

TEST_F(LateVolumeTest, OlderVolumeThatAnswersLateDoesNotReplaceTheRegisteredYoungerOne) {
    VolumeTest::SetUp();
    MountOlder();
    MountYounger(2);
    ContinueOlder();
    ExpectBuildOf(kDiscsOfYounger);
}

TEST_F(LateVolumeTest, OlderVolumeThatAnswersLateDoesNotReplaceTheYoungerOneOfTheStart) {
    MountOlder();
    MountYounger(0);
    testbed::ReadWatch infoFile("/tmp/b/.changer_info.plist");
    VolumeTest::SetUp();
    infoFile.AwaitReads(2);
    ContinueOlder();
    ExpectBuildOf(kDiscsOfYounger);
}

TEST_F(LateVolumeTest, OlderVolumeIsNotRegisteredWhenTheYoungerOneIsUnmounted) {
    VolumeTest::SetUp();
    MountOlder();
    MountYounger(0);
    ContinueOlder();
    ASSERT_EQ(umount("/tmp/younger"), 0);
    AwaitMountsSeen();
    ExpectNothingToBuild();
}

TEST_F(HungVolumeTest, HungVolumeBlocksNothingAndIsRegisteredWhenItAnswers) {
    PuppetVolume volume(run_.OutputLog(), kPlace, {"a"}, PuppetVolume::Start::Asleep);
    ExpectMainLoopResponsive();
    ExpectNothingToBuild();
    volume.Continue();
    volume.AwaitRead(kInfoFile);
    volume.AwaitRead(kInfoFile);
    ExpectBuildOf(1);
}

TEST_F(HungVolumeTest, VolumeUnmountedBeforeItAnswersIsNotRegistered) {
    PuppetVolume volume(run_.OutputLog(), kPlace, {"a"}, PuppetVolume::Start::Asleep);
    AwaitMountsSeen();
    volume.Unmount();
    AwaitMountsSeen();
    volume.Continue();
    ExpectMainLoopResponsive();
    ExpectNothingToBuild();
}

TEST_F(HungVolumeTest, VolumeWhoseServerIsKilledBeforeItAnswersIsNotRegistered) {
    PuppetVolume volume(run_.OutputLog(), kPlace, {"a"}, PuppetVolume::Start::Asleep);
    AwaitMountsSeen();
    volume.Kill();
    ExpectMainLoopResponsive();
    ExpectNothingToBuild();
}

// Any user may mount one, but it is the system that answers for it.
TEST_F(HungVolumeTest, HungVolumesOfAnotherUserOccupyNoProbe) {
    if (!IsUserKnown(kAnotherUser))
        GTEST_SKIP() << "no other user is known in this namespace (run as root)";
    std::deque<SilentVolume> silent;
    for (int i = 0; i < 2 * kMaxProbes; ++i)
        silent.push_back(SilentVolume::OfUser(kAnotherUser, "/tmp/of-user" + std::to_string(i)));
    ExpectMainLoopResponsive();
    testbed::AwaitThreadsInSystemCall(run_.Daemon().Pid(), testbed::SystemCall::Statfs, 0);
}

// Once it has answered, the daemon's main thread reads its info file, and waits for it up to half a
// minute. What comes meanwhile is kept.
TEST_F(HungVolumeTest, OpeningTheInfoFileBlocksTheDaemonUntilTheVolumeContinues) {
    PuppetVolume volume(run_.OutputLog(), kPlace, {"a"}, PuppetVolume::Start::StopsAtInfo);
    volume.AwaitStop();
    Tell("put changer=5000C500ABCD00A1 slot=0 identified=yes");
    Tell("identify changer=5000C500ABCD00A1 slot=0");
    volume.Continue();
    AwaitIdentification(0);
    volume.AwaitRead(kInfoFile);
    volume.AwaitRead(kInfoFile);
    ExpectBuildOf(1);
}

TEST_F(HungVolumeTest, OpeningTheInfoFileBlocksTheDaemonUntilTheVolumeIsKilled) {
    PuppetVolume volume(run_.OutputLog(), kPlace, {"a"}, PuppetVolume::Start::StopsAtInfo);
    volume.AwaitStop();
    volume.Kill();
    ExpectMainLoopResponsive();
    ExpectNothingToBuild();
}

// Then it is no changer's volume.
TEST_F(HungVolumeTest, SlowOpeningTheInfoFileBlocksTheDaemonForAtMostHalfAMinute) {
    PuppetVolume volume(run_.OutputLog(), kPlace, {"a"}, PuppetVolume::Start::StopsAtInfo);
    volume.AwaitStop();
    ExpectMainLoopResponsive();
    volume.Continue();
    ExpectNothingToBuild();
}

// The second reading is bounded like the first, though the state lock is held meanwhile. The
// volume has told that it is a changer's, but not whose in the end, which is logged: it is none.
TEST_F(HungVolumeTest, SlowSecondOpeningOfTheInfoFileBlocksTheDaemonForAtMostHalfAMinute) {
    PuppetVolume volume(run_.OutputLog(), kPlace, {"a"}, PuppetVolume::Start::StopsAtSecondInfo);
    volume.AwaitRead(kInfoFile);
    volume.AwaitStop();
    ExpectMainLoopResponsive();
    AwaitLog({Link("DirectoryInfo", "ReadFSInfoFile", "fail CFReadStreamOpen"),
              Link("DirectoryInfo", "ReadFSRootInfoFile", "fail ReadFSInfoFile"),
              Link("DirectoryInfo", "GetChangerFileSystemRootInfo", "fail ReadFSRootInfoFile"),
              Link("ChangerFSCacheManager", "DiskArbDiskAppearedCallback",
                   "fail GetChangerFileSystemRootInfo for \"/tmp/place\"")});
    volume.Continue();
    ExpectNothingToBuild();
}

// Beyond so many dead ones, a volume that would answer has to wait, too; all else goes on.
TEST_F(HungVolumeTest, OtherVolumesWaitOnlyWhileAllProbesAreOccupied) {
    std::deque<SilentVolume> silent;
    for (int i = 1; i < kMaxProbes; ++i)
        silent.emplace_back("/tmp/silent" + std::to_string(i));
    ExpectMainLoopResponsive();
    silent.emplace_back("/tmp/silent");
    testbed::AwaitThreadsInSystemCall(run_.Daemon().Pid(), testbed::SystemCall::Statfs, kMaxProbes);

    MakeChangerFolder("/tmp/a", 1);
    std::filesystem::create_directory(kPlace);
    ASSERT_EQ(mount("/tmp/a", kPlace, nullptr, MS_BIND, nullptr), 0);
    testbed::ReadWatch infoFile("/tmp/a/.changer_info.plist");
    ExpectNothingToBuild();
    silent.pop_front();
    infoFile.AwaitReads(2);
    ExpectBuildOf(1);
}

} // namespace
