/* Listing one disc: its media roots in the changer's root, and the wait until they appear. */

#include "AllocationFaults.h"
#include "FakeTime.h"
#include "MountedChanger.h"
#include "support/Matchers.h"

#include <cerrno>
#include <cstddef>
#include <set>
#include <string>
#include <vector>

namespace {

constexpr UInt16 kElem = 5;

class SingleDisc : public MountedChanger {
protected:
    SingleDisc() : time_(1700000000, 1) {}

    // Runs one round. True if anything was cached.
    bool Update(SInt32 descend = 1) const {
        return ReadFlag(RunAFSCacheUpdate, kChanger, kElem, descend, tree_.Root().c_str());
    }
    // Mounts a file system with an identified disc that has one media root.
    void MountDisc() {
        Mount();
        SaveMedium(1, true);
        MakeMediaRoot("s1");
    }
    static Chain Run(SInt32 descend = 1) {
        return TakeChain(RunFSCache(kChanger, kElem, descend));
    }
    // Saves the server's list with this medium.
    void SaveMedium(int identifyTime, bool hasFileSystem) {
        const auto medium =
            Dictionary({{"Media Identify Time", identifyTime},
                        {"Media Partition Info",
                         Array({Dictionary({{"Partition Has File System", hasFileSystem}})})}});
        const auto list = Array({Dictionary(
            {{"GUID", static_cast<SInt64>(kChanger)},
             {"Changer Media Info", Array({false, false, false, false, false, medium})}})});
        SaveInfoList(list);
    }

    FakeTime time_; // each call of time() takes a second
};

// ---- one round ----

TEST_F(SingleDisc, EveryPartitionOfTheDiscIsListedInOneRound) {
    MakeMediaRoot("s1");
    MakeMediaRoot("s2");
    MakeMediaRoot("other", 6);
    tree_.MakeDirectory("s1/a");
    tree_.MakeDirectory("plain/a");
    tree_.Write("file", "");
    EXPECT_TRUE(Update());
    EXPECT_THAT(Journal::Take(),
                UnorderedElementsAre("list ./", "list ./s1", "list ./s1/a", "list ./s2"));
}

TEST_F(SingleDisc, WithoutDescendTheMediaRootItselfIsListed) {
    MakeMediaRoot("s1");
    tree_.MakeDirectory("s1/a");
    EXPECT_TRUE(Update(0));
    EXPECT_THAT(Journal::Take(), ElementsAre("list ./", "list ./s1"));
}

TEST_F(SingleDisc, AnEmptyMediaRootIsASuccess) {
    MakeMediaRoot("s1");
    EXPECT_TRUE(Update());
    Journal::Take();
}

TEST_F(SingleDisc, WithoutItsMediaRootNothingIsCached) {
    MakeMediaRoot("other", 6);
    MakeMediaRoot("folder/s1");
    EXPECT_FALSE(Update());
    EXPECT_THAT(Journal::Take(), ElementsAre("list ./"));
}

TEST_F(SingleDisc, ARootThatCannotBeListedIsNotLogged) {
    MakeMediaRoot("s1");
    FileSystemSeams::FailListing("./", EIO);
    EXPECT_FALSE(Update());
    EXPECT_THAT(Journal::Take(), ElementsAre("list ./"));
}

TEST_F(SingleDisc, ASlashAtTheEndOfTheMountPathIsNotDoubled) {
    MakeMediaRoot("s1");
    SInt32 cached = 0;
    EXPECT_EQ(RunAFSCacheUpdate(kChanger, kElem, 1, tree_.Path("").c_str(), &cached), nullptr);
    EXPECT_THAT(Journal::Take(), ElementsAre("list ./", "list ./s1"));
}

// The entry's type is not examined, only its info file.
TEST_F(SingleDisc, EntriesOfTheRootMayBeLinksOrTheRootItself) {
    tree_.MakeMediaRoot("folder/s1", 7, kElem);
    tree_.Link("folder/s1", "link");
    EXPECT_TRUE(Update());
    EXPECT_THAT(Journal::Take(), ElementsAre("list ./", "list ./link"));
    MakeMediaRoot("");
    EXPECT_TRUE(Update(0));
    EXPECT_THAT(Journal::Take(), UnorderedElementsAre("list ./", "list ./link", "list ./."));
}

TEST_F(SingleDisc, AMediaRootThatCannotBeListedIsLoggedAndCountsAsCached) {
    MakeMediaRoot("s1");
    FileSystemSeams::FailListing("./s1", EACCES);
    EXPECT_TRUE(Update());
    EXPECT_THAT(log_.TakeWithoutLineNumbers(),
                ElementsAre("ChangerFSCacheThread:123, CacheFSDirectory: fail scandir on " +
                            LoggedPath("/s1") + " (err = 13)"));
    Journal::Take();
}

TEST_F(SingleDisc, AnAbortEndsTheRoundAsASuccess) {
    for (const char* root : {"s1", "s2", "s3"}) {
        MakeMediaRoot(root);
        tree_.MakeDirectory(std::string(root) + "/a");
    }
    SetAbort(1);
    EXPECT_FALSE(Update());
    EXPECT_THAT(Journal::Take(), SizeIs(3)); // the root, one disc, one directory
}

// The listing of the first partition remains.
TEST_F(SingleDisc, AnAbortInTheSecondMediaRootLeavesTheDiscCached) {
    for (const char* root : {"s1", "s2", "s3"}) {
        MakeMediaRoot(root);
        tree_.MakeDirectory(std::string(root) + "/a");
    }
    Mount();
    SaveMedium(1, true);
    const auto abortInTheSecond = [round = 0](const std::string& path) mutable {
        if (path.ends_with("/a") && ++round == 2)
            SetAbort(1);
    };
    FileSystemSeams::OnListing(abortInTheSecond);
    EXPECT_TRUE(Update());
    EXPECT_THAT(Journal::Take(), SizeIs(5)); // the changer's root, two discs, their directories
    SetAbort(0);
    FileSystemSeams::OnListing(abortInTheSecond);
    EXPECT_EQ(Run(), Chain());
    EXPECT_THAT(Journal::Take(), SizeIs(5)); // no second round
}

// The error text names the test for a changer root.
TEST_F(SingleDisc, AMediaTestThatFailsEndsTheRound) {
    Mount();
    SaveMedium(1, true);
    tree_.MakeDirectory("folder");
    FileSystemSeams::FailMediaTest("./folder");
    const Chain chain = Run();
    ASSERT_THAT(chain, SizeIs(3));
    EXPECT_EQ(chain[1], (RaisedLink{"fail IsDirectoryRootOfChangerFileSystem", "RunAFSCacheUpdate",
                                    kWalkSource}));
    EXPECT_EQ(chain[2], (RaisedLink{"fail RunAFSCacheUpdate", "RunFSCache", kWalkSource}));
    EXPECT_THAT(Journal::Take(), ElementsAre("list ./"));
}

TEST_F(SingleDisc, AFailedWalkNamesItsMediaRoot) {
    Mount();
    SaveMedium(0, false);
    MakeMediaRoot("s1");
    tree_.MakeDirectory("s1/a");
    StateLock::FailLock(EINVAL);
    EXPECT_EQ(Run(), (Chain{{"fail pthread_mutex_lock", "LockMediaIdState",
                             "trayprobed/MediaIdState", EINVAL},
                            {"fail LockMediaIdState", "CacheFSDirectory", kWalkSource, EINVAL},
                            {"fail CacheFSMediaRoot for " + LoggedPath("/s1"), "RunAFSCacheUpdate",
                             kWalkSource, EINVAL},
                            {"fail RunAFSCacheUpdate", "RunFSCache", kWalkSource, EINVAL}}));
    EXPECT_THAT(Journal::Take(), SizeIs(3));
}

// ---- the wait ----

TEST_F(SingleDisc, WithoutAMountedFileSystemNothingIsListed) {
    MakeMediaRoot("s1");
    EXPECT_EQ(Run(), Chain()); // the missing info list is not read
    EXPECT_THAT(Journal::Take(), IsEmpty());
}

TEST_F(SingleDisc, APathThatDoesNotFitFails) {
    Mount("/" + std::string(1023, 'd'));
    EXPECT_EQ(Run().back(), (RaisedLink{"fail GetChangerFSMountPath", "RunFSCache", kWalkSource}));
}

TEST_F(SingleDisc, WithoutAnInfoListFails) {
    Mount();
    EXPECT_EQ(Run(), (Chain{{"info list array is still NULL", "MediaHasMountablePartitions",
                             "trayprobed/MediaIdState"},
                            {"fail MediaHasMountablePartitions", "RunFSCache", kWalkSource}}));
    EXPECT_THAT(Journal::Take(), IsEmpty());
}

TEST_F(SingleDisc, EndsWithTheFirstRoundThatCachedAnything) {
    Mount();
    SaveMedium(0, false);
    FileSystemSeams::OnListing([&, round = 0](const std::string&) mutable {
        if (++round == 3)
            MakeMediaRoot("s1");
    });
    EXPECT_EQ(Run(), Chain());
    EXPECT_THAT(Journal::Take(), ElementsAre("list ./", "list ./", "list ./", "list ./s1"));
}

TEST_F(SingleDisc, AnIdentifiedDiscWithoutFileSystemTakesOneRound) {
    Mount();
    SaveMedium(1, false);
    EXPECT_EQ(Run(), Chain());
    EXPECT_THAT(Journal::Take(), ElementsAre("list ./"));
}

TEST_F(SingleDisc, TenSecondsAreTheLongestWait) {
    Mount();
    SaveMedium(1, true);
    EXPECT_EQ(Run(), Chain());
    const std::vector<std::string> journal = Journal::Take();
    EXPECT_THAT(journal, SizeIs(10)); // one listing per second
    EXPECT_THAT(journal, Each("list ./"));
}

TEST_F(SingleDisc, AClockSetBackMakesTheWaitNoLongerThanTwice) {
    Mount();
    SaveMedium(1, true);
    FileSystemSeams::OnListing([&, round = 0](const std::string&) mutable {
        if (++round == 9)
            time_.Set(-3600);
    });
    EXPECT_EQ(Run(), Chain());
    EXPECT_THAT(Journal::Take(), SizeIs(19));
}

TEST_F(SingleDisc, TheWaitEndsWhenTheDiscIsIdentifiedWithoutFileSystem) {
    Mount();
    SaveMedium(0, false);
    FileSystemSeams::OnListing([&, round = 0](const std::string&) mutable {
        if (++round == 2)
            SaveMedium(1, false);
    });
    EXPECT_EQ(Run(), Chain());
    EXPECT_THAT(Journal::Take(), SizeIs(3));
}

// Intended: the aborted disc is listed again until the time-out.
TEST_F(SingleDisc, AnAbortedDiscIsASuccessOnlyAfterTheWait) {
    MountDisc();
    tree_.MakeDirectory("s1/a");
    SetAbort(1);
    EXPECT_EQ(Run(), Chain());
    EXPECT_THAT(Journal::Take(), SizeIs(30));
}

TEST_F(SingleDisc, TheStateLockIsNeverHeldWhileListing) {
    MountDisc();
    tree_.MakeDirectory("s1/a/b");
    EXPECT_EQ(Run(), Chain());
    EXPECT_THAT(Journal::Take(), testing::Not(Contains(testing::HasSubstr("(locked)"))));
}

// ---- memory ----

TEST_F(SingleDisc, WithoutMemoryEachStepIsLoggedByItsName) {
    MountDisc();
    std::set<std::string> messages;
    VErrLink* err = nullptr;
    SweepAllocationFaults([&](std::size_t) { err = RunFSCache(kChanger, kElem, 0); },
                          [&](std::size_t, bool) {
                              for (const RaisedLink& link : TakeChain(err))
                                  messages.insert(link.function + ": " + link.message);
                              log_.Take();
                              Journal::Take();
                          });
    EXPECT_THAT(messages,
                testing::IsSupersetOf({"RunFSCache: fail IsChangerFSGUIDInList",
                                       "RunFSCache: fail GetChangerFSMountPath",
                                       "RunAFSCacheUpdate: fail GetChangerFileSystemMediaRootInfo",
                                       "RunFSCache: fail RunAFSCacheUpdate"}));
}

} // namespace
