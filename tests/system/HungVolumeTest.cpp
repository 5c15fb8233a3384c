#include "PuppetVolume.h"
#include "VolumeTest.h"
#include "testbed/ProcessState.h"
#include "testbed/ReadWatch.h"

#include <sys/mount.h>
#include <sys/types.h>

#include <deque>
#include <fstream>
#include <optional>
#include <string>
#include <vector>

namespace {

constexpr const char* kPlace = "/tmp/place";
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

// A volume with one disc, whose server does not answer when it is mounted.
class HungVolumeTest : public VolumeTest {
protected:
    PuppetVolume& Mount(PuppetVolume::Start start) {
        return volume_.emplace(run_.OutputLog(), kPlace, std::vector<std::string>{"a"}, start);
    }
    // Mounts a volume that stops in the opening of its info file.
    PuppetVolume& MountAndAwaitStop(PuppetVolume::Start start) {
        Mount(start).AwaitStop();
        return *volume_;
    }
    void ExpectMainLoopResponsive() {
        AwaitMountsSeen();
        PutDisc(0, "identified=yes");
        AwaitServedRequest(0);
    }

    std::optional<PuppetVolume> volume_;
};

using OlderHungVolumeTest = SystemTest;

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
    static void MountYounger(int reads) {
        MakeChangerFolder("/tmp/b", kDiscsOfYounger);
        Bind("/tmp/b", "/tmp/younger", reads);
    }
    void ContinueOlder() {
        testbed::AwaitThreadsInSystemCall(run_.Daemon().Pid(), testbed::SystemCall::Statfs, 1);
        older_->Continue();
        older_->AwaitInfoReads();
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
    IdentifyNewDisc(0);
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
    PuppetVolume& volume = Mount(PuppetVolume::Start::Asleep);
    ExpectMainLoopResponsive();
    ExpectNothingToBuild();
    volume.Continue();
    volume.AwaitInfoReads();
    ExpectBuildOf(1);
}

TEST_F(HungVolumeTest, VolumeUnmountedBeforeItAnswersIsNotRegistered) {
    PuppetVolume& volume = Mount(PuppetVolume::Start::Asleep);
    AwaitMountsSeen();
    volume.Unmount();
    AwaitMountsSeen();
    volume.Continue();
    ExpectMainLoopResponsive();
    ExpectNothingToBuild();
}

TEST_F(HungVolumeTest, VolumeWhoseServerIsKilledBeforeItAnswersIsNotRegistered) {
    PuppetVolume& volume = Mount(PuppetVolume::Start::Asleep);
    AwaitMountsSeen();
    volume.Kill();
    ExpectMainLoopResponsive();
    ExpectNothingToBuild();
}

// Any user may mount such a volume. The kernel answers the daemon's probe of it at once.
TEST_F(HungVolumeTest, HungVolumesOfAnotherUserOccupyNoProbe) {
    if (!IsUserKnown(kAnotherUser))
        GTEST_SKIP() << "no other user is known in this namespace (run as root)";
    std::deque<SilentVolume> silent;
    for (int i = 0; i < 2 * kMaxProbes; ++i)
        silent.push_back(SilentVolume::OfUser(kAnotherUser, "/tmp/of-user" + std::to_string(i)));
    ExpectMainLoopResponsive();
    testbed::AwaitThreadsInSystemCall(run_.Daemon().Pid(), testbed::SystemCall::Statfs, 0);
}

// The daemon's main thread reads the info file of a volume whose probe has succeeded, and waits for
// it for up to 30 seconds. Notifications during the wait are handled after it.
TEST_F(HungVolumeTest, OpeningTheInfoFileBlocksTheDaemonUntilTheVolumeContinues) {
    PuppetVolume& volume = MountAndAwaitStop(PuppetVolume::Start::StopsAtInfo);
    PutDisc(0, "identified=yes");
    Do("identify changer=5000C500ABCD00A1 slot=0");
    volume.Continue();
    AwaitIdentification(0);
    volume.AwaitInfoReads();
    ExpectBuildOf(1);
}

TEST_F(HungVolumeTest, OpeningTheInfoFileBlocksTheDaemonUntilTheVolumeIsKilled) {
    PuppetVolume& volume = MountAndAwaitStop(PuppetVolume::Start::StopsAtInfo);
    volume.Kill();
    ExpectMainLoopResponsive();
    ExpectNothingToBuild();
}

// After the time-out the volume counts as no changer's.
TEST_F(HungVolumeTest, SlowOpeningTheInfoFileBlocksTheDaemonForAtMostHalfAMinute) {
    PuppetVolume& volume = MountAndAwaitStop(PuppetVolume::Start::StopsAtInfo);
    ExpectMainLoopResponsive();
    volume.Continue();
    ExpectNothingToBuild();
}

// The second reading has the same time-out, and the state lock is held during it. Its failure is
// logged, as the first reading has found a changer's volume.
TEST_F(HungVolumeTest, SlowSecondOpeningOfTheInfoFileBlocksTheDaemonForAtMostHalfAMinute) {
    PuppetVolume& volume = MountAndAwaitStop(PuppetVolume::Start::StopsAtSecondInfo);
    volume.AwaitInfoReads(1);
    ExpectMainLoopResponsive();
    AwaitLog({Link("DirectoryInfo", "ReadFSInfoFile", "fail CFReadStreamOpen"),
              Link("DirectoryInfo", "ReadFSRootInfoFile", "fail ReadFSInfoFile"),
              Link("DirectoryInfo", "GetChangerFileSystemRootInfo", "fail ReadFSRootInfoFile"),
              Link("ChangerFSCacheManager", "DiskArbDiskAppearedCallback",
                   "fail GetChangerFileSystemRootInfo for \"/tmp/place\"")});
    volume.Continue();
    ExpectNothingToBuild();
}

TEST_F(HungVolumeTest, OtherVolumesWaitOnlyWhileAllProbesAreOccupied) {
    std::deque<SilentVolume> silent;
    for (int i = 1; i < kMaxProbes; ++i)
        silent.emplace_back("/tmp/silent" + std::to_string(i));
    ExpectMainLoopResponsive();
    silent.emplace_back("/tmp/silent");
    testbed::AwaitThreadsInSystemCall(run_.Daemon().Pid(), testbed::SystemCall::Statfs, kMaxProbes);

    MakeChangerFolder("/tmp/a", 1);
    Bind("/tmp/a", kPlace, 0);
    testbed::ReadWatch infoFile("/tmp/a/.changer_info.plist");
    ExpectNothingToBuild();
    silent.pop_front();
    infoFile.AwaitReads(2);
    ExpectBuildOf(1);
}

} // namespace
