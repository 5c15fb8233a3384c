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
    // Three media roots of the disc, each with one directory.
    void MakeThreeMediaRoots() const {
        for (const char* root : {"s1", "s2", "s3"}) {
            MakeMediaRoot(root);
            tree_.MakeDirectory(std::string(root) + "/a");
        }
    }
    // Saves the server's list with this medium.
    void SaveMedium(int identifyTime, bool hasFileSystem) {
        const auto medium =
            Dictionary({{"Media Identify Time", identifyTime},
                        {"Media Partition Info",
                         Array({Dictionary({{"Partition Has File System", hasFileSystem}})})}});
        SaveInfoList(Array({Dictionary(
            {{"GUID", kChanger},
             {"Changer Media Info", Array({false, false, false, false, false, medium})}})}));
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

TEST_F(SingleDisc, EmptyMediaRootCountsAsCached) {
    MakeMediaRoot("s1");
    EXPECT_TRUE(Update());
}

TEST_F(SingleDisc, WithoutItsMediaRootNothingIsCached) {
    MakeMediaRoot("other", 6);
    MakeMediaRoot("folder/s1");
    EXPECT_FALSE(Update());
    EXPECT_THAT(Journal::Take(), ElementsAre("list ./"));
}

TEST_F(SingleDisc, ChangerRootThatCannotBeListedIsNotLogged) {
    MakeMediaRoot("s1");
    seams_.listingErrors["./"] = EIO;
    EXPECT_FALSE(Update());
    EXPECT_THAT(Journal::Take(), ElementsAre("list ./"));
}

TEST_F(SingleDisc, SlashAtTheEndOfTheMountPathIsNotDoubled) {
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

TEST_F(SingleDisc, MediaRootThatCannotBeListedIsLoggedAndCountsAsCached) {
    MakeMediaRoot("s1");
    seams_.listingErrors["./s1"] = EACCES;
    EXPECT_TRUE(Update());
    EXPECT_THAT(log_.TakeWithoutLineNumbers(), ElementsAre(ListingFailure("/s1", EACCES)));
}

TEST_F(SingleDisc, AbortEndsTheRoundWithoutAnError) {
    MakeThreeMediaRoots();
    SetAbort(1);
    EXPECT_FALSE(Update());
    EXPECT_THAT(Journal::Take(), SizeIs(3)); // the root, one disc, one directory
}

// The listing of the first partition remains.
TEST_F(SingleDisc, DiscAbortedInItsSecondMediaRootCountsAsCached) {
    MakeThreeMediaRoots();
    Mount();
    SaveMedium(1, true);
    // The changer's root, two discs, and their directories.
    AtListing(5, [] { SetAbort(1); });
    EXPECT_TRUE(Update());
    EXPECT_THAT(Journal::Take(), SizeIs(5));
    SetAbort(0);
    AtListing(5, [] { SetAbort(1); });
    EXPECT_EQ(Run(), Chain());
    EXPECT_THAT(Journal::Take(), SizeIs(5)); // no second round
}

// The error text names the test for a changer root.
TEST_F(SingleDisc, FailedMediaTestEndsTheRound) {
    Mount();
    SaveMedium(1, true);
    tree_.MakeDirectory("folder");
    seams_.failingMediaTest = "./folder";
    const Chain chain = Run();
    ASSERT_THAT(chain, SizeIs(3));
    EXPECT_EQ(chain[1], (RaisedLink{"fail IsDirectoryRootOfChangerFileSystem", "RunAFSCacheUpdate",
                                    kWalkSource}));
    EXPECT_EQ(chain[2], (RaisedLink{"fail RunAFSCacheUpdate", "RunFSCache", kWalkSource}));
    EXPECT_THAT(Journal::Take(), ElementsAre("list ./"));
}

TEST_F(SingleDisc, ErrorOfAFailedWalkNamesItsMediaRoot) {
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

TEST_F(SingleDisc, MountPathThatDoesNotFitIsAnError) {
    Mount("/" + std::string(1023, 'd'));
    EXPECT_EQ(Run().back(), (RaisedLink{"fail GetChangerFSMountPath", "RunFSCache", kWalkSource}));
}

TEST_F(SingleDisc, MissingInfoListIsAnError) {
    Mount();
    EXPECT_EQ(Run(), (Chain{{"info list array is still NULL", "MediaHasMountablePartitions",
                             "trayprobed/MediaIdState"},
                            {"fail MediaHasMountablePartitions", "RunFSCache", kWalkSource}}));
    EXPECT_THAT(Journal::Take(), IsEmpty());
}

TEST_F(SingleDisc, WaitEndsWithTheFirstRoundThatCachedAnything) {
    Mount();
    SaveMedium(0, false);
    AtListing(3, [&] { MakeMediaRoot("s1"); });
    EXPECT_EQ(Run(), Chain());
    EXPECT_THAT(Journal::Take(), ElementsAre("list ./", "list ./", "list ./", "list ./s1"));
}

TEST_F(SingleDisc, IdentifiedDiscWithoutFileSystemTakesOneRound) {
    Mount();
    SaveMedium(1, false);
    EXPECT_EQ(Run(), Chain());
    EXPECT_THAT(Journal::Take(), ElementsAre("list ./"));
}

TEST_F(SingleDisc, WaitEndsAfterTenSeconds) {
    Mount();
    SaveMedium(1, true);
    EXPECT_EQ(Run(), Chain());
    const std::vector<std::string> journal = Journal::Take();
    EXPECT_THAT(journal, SizeIs(10)); // one listing per second
    EXPECT_THAT(journal, Each("list ./"));
}

TEST_F(SingleDisc, ClockSetBackAtMostDoublesTheWait) {
    Mount();
    SaveMedium(1, true);
    AtListing(9, [] { FakeTime::Set(-3600); });
    EXPECT_EQ(Run(), Chain());
    EXPECT_THAT(Journal::Take(), SizeIs(19));
}

TEST_F(SingleDisc, WaitEndsWhenTheDiscIsIdentifiedWithoutFileSystem) {
    Mount();
    SaveMedium(0, false);
    AtListing(2, [&] { SaveMedium(1, false); });
    EXPECT_EQ(Run(), Chain());
    EXPECT_THAT(Journal::Take(), SizeIs(3));
}

// By design.
TEST_F(SingleDisc, AbortedDiscIsListedAgainUntilTheTimeOut) {
    MountDisc();
    tree_.MakeDirectory("s1/a");
    SetAbort(1);
    EXPECT_EQ(Run(), Chain());
    EXPECT_THAT(Journal::Take(), SizeIs(30));
}

TEST_F(SingleDisc, StateLockIsNotHeldWhileListing) {
    MountDisc();
    tree_.MakeDirectory("s1/a/b");
    EXPECT_EQ(Run(), Chain());
    EXPECT_THAT(Journal::Take(), Not(Contains(HasSubstr("(locked)"))));
}

// ---- memory ----

TEST_F(SingleDisc, WithoutMemoryTheErrorNamesTheFailedStep) {
    MountDisc();
    std::set<std::string> messages;
    VErrLink* err = nullptr;
    SweepAllocationFaults([&](std::size_t) { err = RunFSCache(kChanger, kElem, 0); },
                          [&](std::size_t, bool) {
                              for (const RaisedLink& link : TakeChain(err))
                                  messages.insert(link.function + ": " + link.message);
                              log_.Take();
                          });
    EXPECT_THAT(messages,
                testing::IsSupersetOf({"RunFSCache: fail IsChangerFSGUIDInList",
                                       "RunFSCache: fail GetChangerFSMountPath",
                                       "RunAFSCacheUpdate: fail GetChangerFileSystemMediaRootInfo",
                                       "RunFSCache: fail RunAFSCacheUpdate"}));
}

} // namespace
