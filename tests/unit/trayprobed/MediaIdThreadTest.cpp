/* The thread that identifies one medium: its commands in order, and its storage element's place
   on the list of elements in progress. */

#include "trayprobed/MediaIdThread.h"

#include "AllocationFaults.h"
#include "DeferredThreads.h"
#include "FakeCommands.h"
#include "Journal.h"
#include "Store.h"
#include "support/Matchers.h"
#include "trayprobed/ChangerFSCacheThread.h"

#include <cerrno>
#include <cstddef>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace {

bool g_walkFails = false;

} // namespace

VErrLink* RunFSCache(UInt64 changerGUID, UInt16 storageElem, SInt32 descend) {
    Journal::Add("walk %016llX/%u%s%s", changerGUID, storageElem, descend ? " down" : "",
                 StateLock::IsHeld() ? " (locked)" : "");
    VErrLink* err = nullptr;
    if (g_walkFails)
        VErrRaise(VErrThrowWithErrCode(&err, 13, "fail walk"), "test/Walk", __func__, __LINE__);
    return err;
}

// Called by the daily timer only, which DailyTimerTest covers.
VErrLink* StartChangerFSCache(UInt64) {
    ADD_FAILURE() << "no timer fires here";
    return nullptr;
}

namespace {

constexpr const char* kSource = "trayprobed/MediaIdThread";

constexpr UInt16 kElem = 5;
constexpr const char* kWithdraw = "withdraw disc 9EDCBA9876543210/5";
constexpr const char* kMount = "mount 9EDCBA9876543210/5 within 300 s, partition \"\", client "
                               "\"Media Identification\", flags 1, family 1";
constexpr const char* kWalk = "walk 9EDCBA9876543210/5";
constexpr const char* kEject = "eject 9EDCBA9876543210/5 within 300 s, flags 1, family 1";

class MediaIdThread : public Store {
protected:
    MediaIdThread() {
        FakeCommands::Reset();
        Journal::Take();
        g_walkFails = false;
        AddChanger(kChanger);
    }

    // Starts the thread with the state lock held, as the notification callback does.
    static Chain Start(SInt32 buildDirCache = 0, UInt64 changerGUID = kChanger,
                       UInt16 storageElem = kElem) {
        EXPECT_EQ(LockMediaIdState(), nullptr);
        Chain chain = TakeChain(StartMediaId(changerGUID, storageElem, buildDirCache));
        UnlockMediaIdState();
        return chain;
    }
    static void Run() {
        EXPECT_EQ(Start(), Chain());
        DeferredThreads::RunNext();
    }

    DeferredThreads threads_;
};

// ---- the start ----

TEST_F(MediaIdThread, StartingAddsTheElementToTheList) {
    EXPECT_EQ(Start(), Chain());
    EXPECT_EQ(DeferredThreads::Count(), 1U);
    EXPECT_TRUE(IsInProgress(kChanger, kElem));
    EXPECT_THAT(Journal::Take(), IsEmpty());
    DeferredThreads::RunNext();
}

TEST_F(MediaIdThread, AThreadThatCannotBeMadeLeavesNoElement) {
    const char* const functions[] = {"pthread_attr_init", "pthread_attr_setdetachstate",
                                     "pthread_create"};
    for (const char* function : functions) {
        DeferredThreads::Fail(function, EAGAIN);
        EXPECT_EQ(Start(),
                  (Chain{{std::string("fail ") + function, "StartMediaId", kSource, EAGAIN}}));
        EXPECT_EQ(DeferredThreads::Count(), 0U);
        EXPECT_EQ(InProgressCount(kChanger), 0U);
    }
}

TEST_F(MediaIdThread, AStatusIsSignExtended) {
    DeferredThreads::Fail("pthread_create", -3);
    EXPECT_EQ(Start().back().code, -3);
}

TEST_F(MediaIdThread, AttributesThatCannotBeDestroyedAreAFailureOfAStartedThread) {
    DeferredThreads::Fail("pthread_attr_destroy", EINVAL);
    EXPECT_EQ(Start(), (Chain{{"fail pthread_attr_destroy", "StartMediaId", kSource, EINVAL}}));
    EXPECT_TRUE(IsInProgress(kChanger, kElem));
    DeferredThreads::RunNext();
    EXPECT_FALSE(IsInProgress(kChanger, kElem));
}

TEST_F(MediaIdThread, WithoutMemoryNothingStarts) {
    ASSERT_EQ(LockMediaIdState(), nullptr);
    VErrLink* err = nullptr;
    {
        const AllocationFault fault(1);
        err = StartMediaId(kChanger, kElem, 0);
    }
    UnlockMediaIdState();
    EXPECT_EQ(TakeChain(err), (Chain{{"fail alloc thread context", "StartMediaId", kSource}}));
    EXPECT_EQ(DeferredThreads::Count(), 0U);
    EXPECT_EQ(InProgressCount(kChanger), 0U);
}

// The thread's end finds no element to remove.
TEST_F(MediaIdThread, AnElementThatCannotBeListedIsStillIdentified) {
    EXPECT_EQ(RemoveChangerFromList(kChanger), nullptr);
    EXPECT_EQ(Start(),
              (Chain{{"fail find changer in list", "GetChangerDictForGUID",
                      "trayprobed/MediaIdState", kVErrCodeNotFound},
                     {"fail GetChangerDictForGUID", "AddStorageElemToMediaIdInProgressList",
                      "trayprobed/MediaIdState", kVErrCodeNotFound},
                     {"fail AddStorageElemToMediaIdInProgressList", "StartMediaId", kSource,
                      kVErrCodeNotFound}}));
    AddChanger(kChanger);
    EXPECT_EQ(DeferredThreads::Count(), 1U);
    DeferredThreads::RunNext();
    EXPECT_THAT(Journal::Take(), ElementsAre(kWithdraw, kMount, kWalk, kEject, kWithdraw));
    EXPECT_EQ(InProgressCount(kChanger), 0U);
}

// The starter holds the lock, so the thread cannot remove the element before it is added.
TEST_F(MediaIdThread, AThreadFasterThanItsStarterWaitsBeforeItRemovesTheElement) {
    DeferredThreads::RaceWithStarter();
    EXPECT_EQ(Start(), Chain());
    DeferredThreads::Join();
    EXPECT_THAT(Journal::Take(), ElementsAre(kWithdraw, kMount, kWalk, kEject, kWithdraw));
    EXPECT_EQ(InProgressCount(kChanger), 0U);
}

// ---- the work ----

TEST_F(MediaIdThread, MountsWalksAndEjectsBetweenTwoWithdrawals) {
    Run();
    EXPECT_THAT(Journal::Take(), ElementsAre(kWithdraw, kMount, kWalk, kEject, kWithdraw));
    EXPECT_FALSE(IsInProgress(kChanger, kElem));
    EXPECT_FALSE(StateLock::IsHeld());
}

TEST_F(MediaIdThread, TheWalkGetsThePreferenceOfTheStart) {
    EXPECT_EQ(Start(1), Chain());
    DeferredThreads::RunNext();
    EXPECT_EQ(Journal::Take().at(2), "walk 9EDCBA9876543210/5 down");
}

TEST_F(MediaIdThread, RemovesOnlyItsOwnElement) {
    EXPECT_EQ(AddStorageElemToMediaIdInProgressList(kChanger, 6), nullptr);
    Run();
    EXPECT_TRUE(IsInProgress(kChanger, 6));
    EXPECT_EQ(InProgressCount(kChanger), 1U);
}

TEST_F(MediaIdThread, AfterAFailedMountNeitherWalksNorEjects) {
    FakeCommands::Fail("mount");
    Run();
    EXPECT_THAT(Journal::Take(), ElementsAre(kWithdraw, kMount, kWithdraw));
    EXPECT_THAT(log_.TakeWithoutLineNumbers(),
                ElementsAre(kCommandFailureLine,
                            "MediaIdThread:123, RunMediaIdThread: Fail "
                            "ChangerServerMountDisc(9EDCBA9876543210, 5) (VErrCode = 1005)"));
    EXPECT_FALSE(IsInProgress(kChanger, kElem));
}

TEST_F(MediaIdThread, AfterAFailedWalkStillEjects) {
    g_walkFails = true;
    Run();
    EXPECT_THAT(Journal::Take(), ElementsAre(kWithdraw, kMount, kWalk, kEject, kWithdraw));
    EXPECT_THAT(log_.TakeWithoutLineNumbers(),
                ElementsAre("Walk:123, RunFSCache: fail walk (err = 13)",
                            "MediaIdThread:123, RunMediaIdThread: fail "
                            "RunFSCache(9EDCBA9876543210, 5) (err = 13)"));
    EXPECT_FALSE(IsInProgress(kChanger, kElem));
}

TEST_F(MediaIdThread, AfterAFailedEjectStillRemovesTheElement) {
    FakeCommands::Fail("eject");
    Run();
    EXPECT_THAT(Journal::Take(), ElementsAre(kWithdraw, kMount, kWalk, kEject, kWithdraw));
    EXPECT_THAT(
        log_.TakeWithoutLineNumbers(),
        ElementsAre(kCommandFailureLine,
                    "MediaIdThread:123, RunMediaIdThread: fail ChangerServerEjectDisc for changer "
                    "9EDCBA9876543210/storage elem 5 (VErrCode = 1005)"));
    EXPECT_FALSE(IsInProgress(kChanger, kElem));
}

TEST_F(MediaIdThread, EachFailureIsLogged) {
    g_walkFails = true;
    FakeCommands::Fail("eject");
    FakeCommands::Fail("withdraw", 2);
    Run();
    EXPECT_EQ(log_.Take().size(), 6U);
    EXPECT_TRUE(IsInProgress(kChanger, kElem));
}

TEST_F(MediaIdThread, AFailureIsLoggedBeforeTheNextCommandIsSent) {
    for (const char* failing : {"mount", "eject"}) {
        FakeCommands::Fail(failing);
        g_walkFails = failing == std::string("eject");
        std::vector<std::size_t> lines; // logged since the previous command, per command
        FakeCommands::OnCommand([&](std::string_view) { lines.push_back(log_.Take().size()); });
        Run();
        FakeCommands::OnCommand(nullptr);
        // At the withdrawal, the mount, the eject after a mount, and the withdrawal.
        const std::vector<std::size_t> expected =
            g_walkFails ? std::vector<std::size_t>{0, 0, 2, 2} : std::vector<std::size_t>{0, 0, 2};
        EXPECT_EQ(lines, expected) << failing;
        EXPECT_THAT(log_.Take(), IsEmpty());
        Journal::Take();
    }
}

constexpr const char* kWithdrawalFailureLine =
    "MediaIdThread:123, RunMediaIdThread: fail ChangerServerRequestChangerIdentification "
    "(VErrCode = 1005)";

// The element is not identified again until the changer is removed and added.
TEST_F(MediaIdThread, AfterAFailedFirstWithdrawalNothingIsMountedAndTheElementStays) {
    FakeCommands::Fail("withdraw");
    Run();
    EXPECT_THAT(Journal::Take(), ElementsAre(kWithdraw));
    EXPECT_THAT(log_.TakeWithoutLineNumbers(),
                ElementsAre(kCommandFailureLine, kWithdrawalFailureLine));
    EXPECT_TRUE(IsInProgress(kChanger, kElem));
    EXPECT_FALSE(StateLock::IsHeld());
}

TEST_F(MediaIdThread, AfterAFailedLastWithdrawalTheElementStays) {
    FakeCommands::Fail("withdraw", 2);
    Run();
    EXPECT_THAT(Journal::Take(), ElementsAre(kWithdraw, kMount, kWalk, kEject, kWithdraw));
    EXPECT_THAT(log_.TakeWithoutLineNumbers(),
                ElementsAre(kCommandFailureLine, kWithdrawalFailureLine));
    EXPECT_TRUE(IsInProgress(kChanger, kElem));
    EXPECT_FALSE(StateLock::IsHeld());
}

// ---- another server ----

constexpr ChangerServerProcess kServer = {4711, {1000, 250000}};
constexpr ChangerServerProcess kNextServer = {4712, {2000, 0}};

class MediaIdServer : public MediaIdThread {
protected:
    MediaIdServer() {
        Handle(kServer);
    }
    ~MediaIdServer() override {
        EXPECT_EQ(RemoveChangerFromList(kChanger), nullptr);
        Handle(kServer); // forgets remaining elements
        EXPECT_THAT(log_.Take(), IsEmpty());
    }

    static void Handle(const ChangerServerProcess& server) {
        EXPECT_EQ(LockMediaIdState(), nullptr);
        HandleMediaIdServer(&server);
        UnlockMediaIdState();
    }
    // Handles a notification of that server. True if the element is then still on the list.
    bool IsInProgressAfter(const ChangerServerProcess& server) const {
        Handle(server);
        return IsInProgress(kChanger, kElem);
    }
    // Leaves an element on the list by a failed withdrawal.
    void Strand(int withdrawal = 1) {
        FakeCommands::Fail("withdraw", withdrawal);
        Run();
        log_.Take();
        EXPECT_TRUE(IsInProgress(kChanger, kElem));
    }
};

TEST_F(MediaIdServer, ElementLeftOnTheListStaysWhileItsServerRuns) {
    for (const int withdrawal : {1, 2}) {
        AddChanger(kChanger);
        Strand(withdrawal);
        Handle(kServer);
        EXPECT_TRUE(IsInProgressAfter(kServer));
    }
}

TEST_F(MediaIdServer, ElementLeftOnTheListIsRemovedForTheNextServer) {
    for (const int withdrawal : {1, 2}) {
        Handle(kServer);
        Strand(withdrawal);
        Handle(kNextServer);
        EXPECT_EQ(InProgressCount(kChanger), 0U);
    }
}

TEST_F(MediaIdServer, ElementsThatShareChangerOrSlotAreAllRemovedForTheNextServer) {
    AddChanger(kOtherChanger);
    for (const UInt64 changer : {kChanger, kOtherChanger}) {
        for (const UInt16 elem : std::initializer_list<UInt16>{kElem, 6}) {
            FakeCommands::Fail("withdraw");
            EXPECT_EQ(Start(0, changer, elem), Chain());
            DeferredThreads::RunNext();
        }
        EXPECT_EQ(InProgressCount(changer), 2U);
    }
    log_.Take();
    Handle(kNextServer);
    EXPECT_EQ(InProgressCount(kChanger), 0U);
    EXPECT_EQ(InProgressCount(kOtherChanger), 0U);
}

TEST_F(MediaIdServer, SameProcessIdWithAnotherStartTimeIsTheNextServer) {
    const ChangerServerProcess others[] = {{4711, {1001, 250000}}, {4711, {1000, 260000}}};
    for (const ChangerServerProcess& other : others) {
        Handle(kServer);
        Strand();
        EXPECT_FALSE(IsInProgressAfter(other));
    }
}

TEST_F(MediaIdServer, StartTimeThatCannotBeReadLeavesTheElement) {
    Strand();
    EXPECT_TRUE(IsInProgressAfter({4711, {0, 0}}));
}

TEST_F(MediaIdServer, ElementOfARunningThreadStaysUntilTheThreadHasEnded) {
    EXPECT_EQ(Start(), Chain());
    FakeCommands::Fail("withdraw");
    EXPECT_TRUE(IsInProgressAfter(kNextServer));
    DeferredThreads::RunNext();
    log_.Take();
    EXPECT_TRUE(IsInProgress(kChanger, kElem));
    EXPECT_FALSE(IsInProgressAfter(kNextServer));
}

TEST_F(MediaIdServer, OtherStateIsUnchangedAndNoCommandIsSent) {
    AddChanger(kOtherChanger);
    EXPECT_EQ(AddStorageElemToMediaIdInProgressList(kOtherChanger, kElem), nullptr);
    EXPECT_EQ(AddStorageElemToMediaIdInProgressList(kChanger, 6), nullptr);
    EXPECT_EQ(SetChangerFSCacheBuildInProgress(kChanger, 1), nullptr);
    EXPECT_EQ(SetChangerShouldAbortOperation(kChanger, 1), nullptr);
    Strand();
    Journal::Take();
    Handle(kNextServer);
    EXPECT_THAT(Journal::Take(), IsEmpty());
    EXPECT_TRUE(IsInProgress(kOtherChanger, kElem));
    EXPECT_TRUE(IsInProgress(kChanger, 6));
    EXPECT_EQ(InProgressCount(kChanger), 1U);
    EXPECT_TRUE(IsBuilding(kChanger));
    EXPECT_TRUE(ShouldAbort(kChanger));
}

TEST_F(MediaIdServer, ElementStartedAgainBelongsToTheServerOfItsLastStart) {
    Strand();
    AddChanger(kChanger); // the list is empty again
    Handle(kNextServer);
    Strand();
    EXPECT_TRUE(IsInProgressAfter(kNextServer));
    EXPECT_FALSE(IsInProgressAfter(kServer));
}

// Two threads for one element: the changer was removed and added while the first thread ran.
TEST_F(MediaIdServer, ElementOfTwoThreadsBelongsToTheThreadStartedLast) {
    EXPECT_EQ(Start(), Chain());
    AddChanger(kChanger);
    Handle(kNextServer);
    EXPECT_EQ(Start(), Chain());
    FakeCommands::Fail("withdraw");
    DeferredThreads::RunNext(); // the element belongs to the other thread
    EXPECT_TRUE(IsInProgressAfter({9, {9, 9}}));
    Handle(kNextServer);
    FakeCommands::Fail("withdraw");
    DeferredThreads::RunNext();
    log_.Take();
    EXPECT_TRUE(IsInProgressAfter(kNextServer));
    EXPECT_FALSE(IsInProgressAfter(kServer));
}

TEST_F(MediaIdServer, ElementOfTwoThreadsStaysUntilBothHaveEnded) {
    EXPECT_EQ(Start(), Chain());
    AddChanger(kChanger);
    FakeCommands::Fail("withdraw");
    EXPECT_EQ(Start(), Chain());
    DeferredThreads::RunLast();
    log_.Take();
    EXPECT_TRUE(IsInProgressAfter(kNextServer));
    FakeCommands::Fail("withdraw");
    DeferredThreads::RunNext();
    log_.Take();
    EXPECT_FALSE(IsInProgressAfter(kNextServer));
}

TEST_F(MediaIdServer, ThreadThatCannotBeMadeLeavesNothingForTheNextServer) {
    DeferredThreads::Fail("pthread_create", EAGAIN);
    EXPECT_EQ(Start().size(), 1U);
    EXPECT_EQ(AddStorageElemToMediaIdInProgressList(kChanger, kElem), nullptr);
    EXPECT_TRUE(IsInProgressAfter(kNextServer));
}

TEST_F(MediaIdServer, ElementOfARemovedChangerIsForgottenForTheNextServer) {
    Strand();
    EXPECT_EQ(RemoveChangerFromList(kChanger), nullptr);
    Handle(kNextServer);
    AddChanger(kChanger);
    EXPECT_EQ(AddStorageElemToMediaIdInProgressList(kChanger, kElem), nullptr);
    EXPECT_TRUE(IsInProgressAfter({4713, {3000, 0}}));
}

TEST_F(MediaIdServer, WithoutMemoryTheElementIsRemovedByTheNextCall) {
    Strand();
    {
        const AllocationFault fault(1);
        Handle(kNextServer);
    }
    log_.Take(); // the failed allocation may be one of a raise
    EXPECT_TRUE(IsInProgress(kChanger, kElem));
    EXPECT_FALSE(IsInProgressAfter(kNextServer));
}

// ---- the end ----

TEST_F(MediaIdThread, AFailedLockLeavesTheElementOnTheList) {
    EXPECT_EQ(Start(), Chain());
    StateLock::FailLock(EINVAL);
    DeferredThreads::RunNext();
    EXPECT_THAT(
        log_.TakeWithoutLineNumbers(),
        ElementsAre("MediaIdState:123, LockMediaIdState: fail pthread_mutex_lock (err = 22)",
                    "MediaIdThread:123, RunMediaIdThread: fail LockMediaIdState (err = 22)"));
    EXPECT_TRUE(IsInProgress(kChanger, kElem));
}

TEST_F(MediaIdThread, AChangerRemovedDuringTheThreadStaysRemoved) {
    FakeCommands::OnCommand([](std::string_view command) {
        if (command == kEject)
            EXPECT_EQ(RemoveChangerFromList(kChanger), nullptr);
    });
    Run();
    EXPECT_THAT(Journal::Take(), ElementsAre(kWithdraw, kMount, kWalk, kEject, kWithdraw));
    EXPECT_FALSE(IsKnown(kChanger));
}

// The old thread's end removes the element that the new thread's start added.
TEST_F(MediaIdThread, AChangerAddedAnewLosesTheEntryOfItsNewWorker) {
    EXPECT_EQ(Start(), Chain());
    AddChanger(kChanger);
    EXPECT_EQ(Start(), Chain());
    EXPECT_EQ(DeferredThreads::Count(), 2U);
    DeferredThreads::RunNext();
    EXPECT_FALSE(IsInProgress(kChanger, kElem));
    DeferredThreads::RunNext();
    EXPECT_FALSE(IsInProgress(kChanger, kElem));
}

TEST_F(MediaIdThread, AFailedRemovalIsLogged) {
    EXPECT_EQ(Start(), Chain());
    ASSERT_EQ(SetChangerDictForGUID(kChanger, Dictionary()), nullptr);
    DeferredThreads::RunNext();
    EXPECT_THAT(
        log_.TakeWithoutLineNumbers(),
        ElementsAre("MediaIdState:123, RemoveStorageElemFromMediaIdInProgressList: fail get in "
                    "progress arr",
                    "MediaIdThread:123, RunMediaIdThread: fail remove changer GUID "
                    "9EDCBA9876543210/storage elem 5"));
    EXPECT_FALSE(StateLock::IsHeld());
}

TEST_F(MediaIdThread, AChangersNumberIsLoggedInSixteenDigits) {
    const std::string number = kSmallChangerText;
    AddChanger(kSmallChanger);
    std::set<std::string> messages;
    const auto run = [&](const char* failing, bool walkFails, std::size_t nthAllocation) {
        EXPECT_EQ(StartMediaId(kSmallChanger, kElem, 0), nullptr);
        FakeCommands::Fail(failing);
        g_walkFails = walkFails;
        {
            const AllocationFault fault(nthAllocation);
            DeferredThreads::RunNext();
        }
        for (const std::string& line : log_.TakeWithoutLineNumbers()) {
            const std::string begin = "MediaIdThread:123, RunMediaIdThread: ";
            if (line.starts_with(begin))
                messages.insert(line.substr(begin.size(), line.rfind(" (") - begin.size()));
        }
    };
    run("mount", false, 1000);
    run("eject", true, 1000);
    run("no command", false, 1);
    run("no command", false, 2);
    EXPECT_THAT(
        messages,
        testing::IsSupersetOf(
            {"Fail ChangerServerMountDisc(" + number + ", 5)", "fail RunFSCache(" + number + ", 5)",
             "fail ChangerServerEjectDisc for changer " + number + "/storage elem 5",
             "fail IsChangerInList for GUID " + number,
             "fail remove changer GUID " + number + "/storage elem 5"}));
    Journal::Take();
}

} // namespace
