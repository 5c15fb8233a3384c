#include "PuppetVolume.h"
#include "VolumeTest.h"

#include "stage/ProcessState.h"
#include "stage/ReadWatch.h"

#include <deque>
#include <fstream>
#include <sys/mount.h>

namespace {

constexpr const char* kPlace = "/tmp/place";
constexpr const char* kInfoFile = "/.changer_info.plist";
constexpr int kMostProbes = 32;
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
    void ExpectMainLoopGoesOn() {
        AwaitMountsSeen();
        Tell("put changer=5000C500ABCD00A1 slot=0 identified=yes");
        AwaitServedRequest(0);
    }
};

class OlderHungVolumeTest : public SystemTest {};

TEST_F(OlderHungVolumeTest, HoldsUpNoStart) {
    const SilentVolume silent("/tmp/silent");
    Begin();
    Tell("put changer=5000C500ABCD00A1 slot=0");
    AwaitIdentification(0);
}

TEST_F(HungVolumeTest, HoldsUpNobodyAndAppearsOnceItAnswers) {
    PuppetVolume volume(scene_.TheRecord(), kPlace, {"a"}, PuppetVolume::Start::Asleep);
    ExpectMainLoopGoesOn();
    ExpectNothingToBuild();
    volume.Continue();
    volume.AwaitRead(kInfoFile);
    volume.AwaitRead(kInfoFile);
    ExpectBuildOf(1);
}

TEST_F(HungVolumeTest, NeverAppearsIfItIsGoneWhenItAnswers) {
    PuppetVolume volume(scene_.TheRecord(), kPlace, {"a"}, PuppetVolume::Start::Asleep);
    AwaitMountsSeen();
    volume.Unmount();
    AwaitMountsSeen();
    volume.Continue();
    ExpectMainLoopGoesOn();
    ExpectNothingToBuild();
}

TEST_F(HungVolumeTest, NeverAppearsIfItsServerIsKilledBeforeItAnswers) {
    PuppetVolume volume(scene_.TheRecord(), kPlace, {"a"}, PuppetVolume::Start::Asleep);
    AwaitMountsSeen();
    volume.Kill();
    ExpectMainLoopGoesOn();
    ExpectNothingToBuild();
}

// Any user may mount one, but it is the system that answers for it.
TEST_F(HungVolumeTest, OfAnotherUserHoldsUpNothingAtAll) {
    if (!IsUserKnown(kAnotherUser)) {
        GTEST_SKIP() << "no other user is known in this namespace (run as root)";
    }
    std::deque<SilentVolume> silent;
    for (int i = 0; i < 2 * kMostProbes; ++i) {
        silent.push_back(SilentVolume::OfUser(kAnotherUser, "/tmp/of-user" + std::to_string(i)));
    }
    ExpectMainLoopGoesOn();
    stage::AwaitThreadsInSystemCall(scene_.TheDaemon().Pid(), stage::SystemCall::Statfs, 0);
}

// Once it has answered, the daemon's main thread reads its info file, and waits for it up to half a
// minute. What comes meanwhile is kept.
TEST_F(HungVolumeTest, ThatStopsInItsInfoFileHoldsUpTheDaemonUntilItGoesOn) {
    PuppetVolume volume(scene_.TheRecord(), kPlace, {"a"}, PuppetVolume::Start::StopsAtInfo);
    volume.AwaitStop();
    Tell("put changer=5000C500ABCD00A1 slot=0 identified=yes");
    Tell("identify changer=5000C500ABCD00A1 slot=0");
    volume.Continue();
    AwaitIdentification(0);
    volume.AwaitRead(kInfoFile);
    volume.AwaitRead(kInfoFile);
    ExpectBuildOf(1);
}

TEST_F(HungVolumeTest, ThatStopsInItsInfoFileHoldsUpTheDaemonUntilItIsKilled) {
    PuppetVolume volume(scene_.TheRecord(), kPlace, {"a"}, PuppetVolume::Start::StopsAtInfo);
    volume.AwaitStop();
    volume.Kill();
    ExpectMainLoopGoesOn();
    ExpectNothingToBuild();
}

// Then it is no changer's volume.
TEST_F(HungVolumeTest, SlowThatStopsInItsInfoFileHoldsUpTheDaemonForHalfAMinuteAtMost) {
    PuppetVolume volume(scene_.TheRecord(), kPlace, {"a"}, PuppetVolume::Start::StopsAtInfo);
    volume.AwaitStop();
    ExpectMainLoopGoesOn();
    volume.Continue();
    ExpectNothingToBuild();
}

// The second reading is bounded like the first, though the state lock is held meanwhile. The
// volume has told that it is a changer's, but not whose in the end, which is logged: it is none.
TEST_F(HungVolumeTest, SlowThatStopsInItsSecondReadingHoldsUpTheDaemonForHalfAMinuteAtMost) {
    PuppetVolume volume(scene_.TheRecord(), kPlace, {"a"}, PuppetVolume::Start::StopsAtSecondInfo);
    volume.AwaitRead(kInfoFile);
    volume.AwaitStop();
    ExpectMainLoopGoesOn();
    AwaitLog({Link("DirectoryInfo", "ReadFSInfoFile", "fail CFReadStreamOpen"),
              Link("DirectoryInfo", "ReadFSRootInfoFile", "fail ReadFSInfoFile"),
              Link("DirectoryInfo", "GetChangerFileSystemRootInfo", "fail ReadFSRootInfoFile"),
              Link("ChangerFSCacheManager", "DiskArbDiskAppearedCallback",
                   "fail GetChangerFileSystemRootInfo for \"/tmp/place\"")});
    volume.Continue();
    ExpectNothingToBuild();
}

// Beyond so many dead ones, a volume that would answer has to wait, too; all else goes on.
TEST_F(HungVolumeTest, HoldsUpOtherVolumesOnlyWhereThereAreAsManyAsProbes) {
    std::deque<SilentVolume> silent;
    for (int i = 1; i < kMostProbes; ++i) {
        silent.emplace_back("/tmp/silent" + std::to_string(i));
    }
    ExpectMainLoopGoesOn();
    silent.emplace_back("/tmp/silent");
    stage::AwaitThreadsInSystemCall(scene_.TheDaemon().Pid(), stage::SystemCall::Statfs,
                                    kMostProbes);

    MakeChangerFolder("/tmp/a", 1);
    std::filesystem::create_directory(kPlace);
    ASSERT_EQ(mount("/tmp/a", kPlace, nullptr, MS_BIND, nullptr), 0);
    stage::ReadWatch infoFile("/tmp/a/.changer_info.plist");
    ExpectNothingToBuild();
    silent.pop_front();
    infoFile.AwaitReads(2);
    ExpectBuildOf(1);
}

} // namespace
