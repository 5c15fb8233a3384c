/* The thread that identifies one medium: its commands in order, and its storage element's place
   on the list of elements in progress. */

#include "trayprobed/MediaIdThread.h"

#include "AllocationFaults.h"
#include "DeferredThreads.h"
#include "FakeCommands.h"
#include "Journal.h"
#include "Store.h"
#include "support/Matchers.h"
#include "support/WithoutMemory.h"
#include "trayprobed/ChangerFSCacheThread.h"

#include <cerrno>
#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

VErrLink* RunFSCache(UInt64 changerGUID, UInt16 storageElem, SInt32 descend) {
    return AnswerCommand(Journal::Add("walk %016llX/%u%s%s", changerGUID, storageElem,
                                      descend ? " down" : "",
                                      StateLock::IsHeld() ? " (locked)" : ""));
}

namespace {

constexpr const char* kSource = "trayprobed/MediaIdThread";

constexpr UInt16 kElem = 5;
constexpr const char* kWithdraw = "withdraw disc 9EDCBA9876543210/5";
constexpr const char* kMount = "mount 9EDCBA9876543210/5 within 300 s, partition \"\", client "
                               "\"Media Identification\", flags 1, family 1";
constexpr const char* kWalk = "walk 9EDCBA9876543210/5";
constexpr const char* kEject = "eject 9EDCBA9876543210/5 within 300 s, flags 1, family 1";

// The journal of an identification that sends all commands.
std::vector<std::string> AllCommands() {
    return {kWithdraw, kMount, kWalk, kEject, kWithdraw};
}

class MediaIdThread : public Store {
protected:
    MediaIdThread() {
        FakeCommands::Reset();
        Journal::Take();
        AddChanger(kChanger);
    }
    ~MediaIdThread() override {
        EXPECT_FALSE(StateLock::IsHeld());
    }

    // Starts the thread with the state lock held, as the notification callback does.
    static Chain Start(SInt32 buildDirCache = 0, UInt64 changerGUID = kChanger,
                       UInt16 storageElem = kElem) {
        EXPECT_EQ(LockMediaIdState(), nullptr);
        Chain chain = TakeChain(StartMediaId(changerGUID, storageElem, buildDirCache));
        UnlockMediaIdState();
        return chain;
    }
    static void Run(SInt32 buildDirCache = 0, UInt64 changerGUID = kChanger) {
        EXPECT_EQ(Start(buildDirCache, changerGUID), Chain());
        DeferredThreads::RunNext();
    }
    // Runs the next thread with one withdrawal failing: the element stays on the list.
    void RunNextWithFailedWithdrawal(int nth = 1) {
        FakeCommands::Fail("withdraw", nth);
        DeferredThreads::RunNext();
        log_.Take();
    }
    void RunWithFailedWithdrawal(int nth = 1) {
        EXPECT_EQ(Start(), Chain());
        RunNextWithFailedWithdrawal(nth);
        EXPECT_TRUE(IsInProgress(kChanger, kElem));
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

TEST_F(MediaIdThread, ThreadThatCannotBeCreatedLeavesNoElement) {
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

TEST_F(MediaIdThread, NegativeStatusIsTheErrorCode) {
    DeferredThreads::Fail("pthread_create", -3);
    EXPECT_EQ(Start().back().code, -3);
}

TEST_F(MediaIdThread, AttributesThatCannotBeDestroyedFailTheStartButTheThreadRuns) {
    DeferredThreads::Fail("pthread_attr_destroy", EINVAL);
    EXPECT_EQ(Start(), (Chain{{"fail pthread_attr_destroy", "StartMediaId", kSource, EINVAL}}));
    EXPECT_TRUE(IsInProgress(kChanger, kElem));
    DeferredThreads::RunNext();
    EXPECT_FALSE(IsInProgress(kChanger, kElem));
}

TEST_F(MediaIdThread, WithoutMemoryNothingStarts) {
    ASSERT_EQ(LockMediaIdState(), nullptr);
    EXPECT_EQ(ChainWithoutMemory([] { return StartMediaId(kChanger, kElem, 0); }),
              (Chain{{"fail alloc thread context", "StartMediaId", kSource}}));
    UnlockMediaIdState();
    EXPECT_EQ(DeferredThreads::Count(), 0U);
    EXPECT_EQ(InProgressCount(kChanger), 0U);
}

// The thread's end finds no element to remove.
TEST_F(MediaIdThread, ElementThatCannotBeListedIsStillIdentified) {
    EXPECT_EQ(RemoveChangerFromList(kChanger), nullptr);
    Chain expected = NotFoundThen("AddStorageElemToMediaIdInProgressList");
    expected.push_back(
        {"fail AddStorageElemToMediaIdInProgressList", "StartMediaId", kSource, kVErrCodeNotFound});
    EXPECT_EQ(Start(), expected);
    AddChanger(kChanger);
    EXPECT_EQ(DeferredThreads::Count(), 1U);
    DeferredThreads::RunNext();
    EXPECT_EQ(Journal::Take(), AllCommands());
    EXPECT_EQ(InProgressCount(kChanger), 0U);
}

// The starter holds the lock, so the thread cannot remove the element before it is added.
TEST_F(MediaIdThread, ThreadFasterThanItsStarterWaitsBeforeItRemovesTheElement) {
    DeferredThreads::RaceWithStarter();
    EXPECT_EQ(Start(), Chain());
    DeferredThreads::Join();
    EXPECT_EQ(Journal::Take(), AllCommands());
    EXPECT_EQ(InProgressCount(kChanger), 0U);
}

// ---- the work ----

TEST_F(MediaIdThread, MountsWalksAndEjectsBetweenTwoWithdrawals) {
    Run();
    EXPECT_EQ(Journal::Take(), AllCommands());
    EXPECT_FALSE(IsInProgress(kChanger, kElem));
}

TEST_F(MediaIdThread, WalkDescendsIfTheStartRequestedSo) {
    Run(1);
    EXPECT_EQ(Journal::Take().at(2), "walk 9EDCBA9876543210/5 down");
}

TEST_F(MediaIdThread, RemovesOnlyItsOwnElement) {
    EXPECT_EQ(AddStorageElemToMediaIdInProgressList(kChanger, 6), nullptr);
    Run();
    EXPECT_TRUE(IsInProgress(kChanger, 6));
    EXPECT_EQ(InProgressCount(kChanger), 1U);
}

struct FailedCommand {
    const char* name;
    const char* command;
    int nth;
    std::vector<std::string> sent;
    const char* message; // the thread's log line
    bool elementStays;
};

class MediaIdThreadFailure : public MediaIdThread,
                             public testing::WithParamInterface<FailedCommand> {};

TEST_P(MediaIdThreadFailure, IsLoggedAndTheOtherCommandsAreSent) {
    FakeCommands::Fail(GetParam().command, GetParam().nth);
    Run();
    EXPECT_EQ(Journal::Take(), GetParam().sent);
    EXPECT_THAT(
        log_.TakeWithoutLineNumbers(),
        ElementsAre(kCommandFailureLine, std::string("MediaIdThread:123, RunMediaIdThread: ") +
                                             GetParam().message + " (VErrCode = 1005)"));
    EXPECT_EQ(IsInProgress(kChanger, kElem), GetParam().elementStays);
}

// After a failed withdrawal the element is not identified again until the changer is removed.
INSTANTIATE_TEST_SUITE_P(
    Of, MediaIdThreadFailure,
    testing::Values(FailedCommand{"FirstWithdrawal",
                                  "withdraw",
                                  1,
                                  {kWithdraw},
                                  "fail ChangerServerRequestChangerIdentification",
                                  true},
                    FailedCommand{"Mount",
                                  "mount",
                                  1,
                                  {kWithdraw, kMount, kWithdraw},
                                  "Fail ChangerServerMountDisc(9EDCBA9876543210, 5)",
                                  false},
                    FailedCommand{"Walk", "walk", 1, AllCommands(),
                                  "fail RunFSCache(9EDCBA9876543210, 5)", false},
                    FailedCommand{
                        "Eject", "eject", 1, AllCommands(),
                        "fail ChangerServerEjectDisc for changer 9EDCBA9876543210/storage elem 5",
                        false},
                    FailedCommand{"LastWithdrawal", "withdraw", 2, AllCommands(),
                                  "fail ChangerServerRequestChangerIdentification", true}),
    [](const testing::TestParamInfo<FailedCommand>& each) { return each.param.name; });

TEST_F(MediaIdThread, EachFailureIsLogged) {
    FakeCommands::Fail("walk");
    FakeCommands::Fail("eject");
    FakeCommands::Fail("withdraw", 2);
    Run();
    EXPECT_EQ(log_.Take().size(), 6U);
    EXPECT_TRUE(IsInProgress(kChanger, kElem));
}

TEST_F(MediaIdThread, FailureIsLoggedBeforeTheNextCommandIsSent) {
    std::vector<std::size_t> lines; // logged before each command
    FakeCommands::OnCommand([&](std::string_view) { lines.push_back(log_.Take().size()); });
    FakeCommands::Fail("walk");
    FakeCommands::Fail("eject");
    Run();
    EXPECT_THAT(lines, ElementsAre(0, 0, 0, 2, 2));
    lines.clear();
    FakeCommands::Fail("mount");
    Run();
    EXPECT_THAT(lines, ElementsAre(0, 0, 2));
    EXPECT_THAT(log_.Take(), IsEmpty());
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
};

TEST_F(MediaIdServer, ElementLeftOnTheListIsRemovedForTheNextServerOnly) {
    for (const int withdrawal : {1, 2}) {
        Handle(kServer);
        RunWithFailedWithdrawal(withdrawal);
        EXPECT_TRUE(IsInProgressAfter(kServer));
        EXPECT_TRUE(IsInProgressAfter(kServer));
        EXPECT_FALSE(IsInProgressAfter(kNextServer));
        EXPECT_EQ(InProgressCount(kChanger), 0U);
    }
}

TEST_F(MediaIdServer, ElementsThatShareChangerOrSlotAreAllRemovedForTheNextServer) {
    AddChanger(kOtherChanger);
    for (const UInt64 changer : {kChanger, kOtherChanger}) {
        for (const UInt16 elem : std::initializer_list<UInt16>{kElem, 6}) {
            EXPECT_EQ(Start(0, changer, elem), Chain());
            RunNextWithFailedWithdrawal();
        }
        EXPECT_EQ(InProgressCount(changer), 2U);
    }
    Handle(kNextServer);
    EXPECT_EQ(InProgressCount(kChanger), 0U);
    EXPECT_EQ(InProgressCount(kOtherChanger), 0U);
}

TEST_F(MediaIdServer, SameProcessIdWithAnotherStartTimeIsAnotherServer) {
    const ChangerServerProcess others[] = {{4711, {1001, 250000}}, {4711, {1000, 260000}}};
    for (const ChangerServerProcess& other : others) {
        Handle(kServer);
        RunWithFailedWithdrawal();
        EXPECT_FALSE(IsInProgressAfter(other));
    }
}

TEST_F(MediaIdServer, StartTimeThatCannotBeReadLeavesTheElement) {
    RunWithFailedWithdrawal();
    EXPECT_TRUE(IsInProgressAfter({4711, {0, 0}}));
}

TEST_F(MediaIdServer, ElementOfARunningThreadStaysUntilTheThreadEnds) {
    EXPECT_EQ(Start(), Chain());
    EXPECT_TRUE(IsInProgressAfter(kNextServer));
    RunNextWithFailedWithdrawal();
    EXPECT_TRUE(IsInProgress(kChanger, kElem));
    EXPECT_FALSE(IsInProgressAfter(kNextServer));
}

TEST_F(MediaIdServer, OtherStateIsUnchangedAndNoCommandIsSent) {
    AddChanger(kOtherChanger);
    EXPECT_EQ(AddStorageElemToMediaIdInProgressList(kOtherChanger, kElem), nullptr);
    EXPECT_EQ(AddStorageElemToMediaIdInProgressList(kChanger, 6), nullptr);
    EXPECT_EQ(SetChangerFSCacheBuildInProgress(kChanger, 1), nullptr);
    EXPECT_EQ(SetChangerShouldAbortOperation(kChanger, 1), nullptr);
    RunWithFailedWithdrawal();
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
    RunWithFailedWithdrawal();
    AddChanger(kChanger); // the list is empty again
    Handle(kNextServer);
    RunWithFailedWithdrawal();
    EXPECT_TRUE(IsInProgressAfter(kNextServer));
    EXPECT_FALSE(IsInProgressAfter(kServer));
}

// Two threads for one element: the changer was removed and added while the first thread ran.
TEST_F(MediaIdServer, ElementOfTwoThreadsBelongsToTheThreadStartedLast) {
    EXPECT_EQ(Start(), Chain());
    AddChanger(kChanger);
    Handle(kNextServer);
    EXPECT_EQ(Start(), Chain());
    RunNextWithFailedWithdrawal(); // the element belongs to the other thread
    EXPECT_TRUE(IsInProgressAfter({9, {9, 9}}));
    Handle(kNextServer);
    RunNextWithFailedWithdrawal();
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
    RunNextWithFailedWithdrawal();
    EXPECT_FALSE(IsInProgressAfter(kNextServer));
}

TEST_F(MediaIdServer, ThreadThatCannotBeCreatedLeavesNothingForTheNextServer) {
    DeferredThreads::Fail("pthread_create", EAGAIN);
    EXPECT_EQ(Start().size(), 1U);
    EXPECT_EQ(AddStorageElemToMediaIdInProgressList(kChanger, kElem), nullptr);
    EXPECT_TRUE(IsInProgressAfter(kNextServer));
}

TEST_F(MediaIdServer, ElementOfARemovedChangerIsForgottenForTheNextServer) {
    RunWithFailedWithdrawal();
    EXPECT_EQ(RemoveChangerFromList(kChanger), nullptr);
    Handle(kNextServer);
    AddChanger(kChanger);
    EXPECT_EQ(AddStorageElemToMediaIdInProgressList(kChanger, kElem), nullptr);
    EXPECT_TRUE(IsInProgressAfter({4713, {3000, 0}}));
}

TEST_F(MediaIdServer, WithoutMemoryTheElementIsRemovedByTheNextCall) {
    RunWithFailedWithdrawal();
    {
        const AllocationFault fault(1);
        Handle(kNextServer);
    }
    log_.Take(); // the failed allocation may be one of a raise
    EXPECT_TRUE(IsInProgress(kChanger, kElem));
    EXPECT_FALSE(IsInProgressAfter(kNextServer));
}

// ---- the end ----

TEST_F(MediaIdThread, FailedLockLeavesTheElementOnTheList) {
    EXPECT_EQ(Start(), Chain());
    StateLock::FailLock(EINVAL);
    DeferredThreads::RunNext();
    EXPECT_THAT(
        log_.TakeWithoutLineNumbers(),
        ElementsAre("MediaIdState:123, LockMediaIdState: fail pthread_mutex_lock (err = 22)",
                    "MediaIdThread:123, RunMediaIdThread: fail LockMediaIdState (err = 22)"));
    EXPECT_TRUE(IsInProgress(kChanger, kElem));
}

TEST_F(MediaIdThread, ChangerRemovedDuringTheThreadStaysRemoved) {
    FakeCommands::OnCommand([](std::string_view command) {
        if (command == kEject)
            EXPECT_EQ(RemoveChangerFromList(kChanger), nullptr);
    });
    Run();
    EXPECT_EQ(Journal::Take(), AllCommands());
    EXPECT_FALSE(IsKnown(kChanger));
}

// The changer was removed and added, and the element started again.
TEST_F(MediaIdThread, EndOfTheOldThreadRemovesTheElementOfTheNewOne) {
    EXPECT_EQ(Start(), Chain());
    AddChanger(kChanger);
    EXPECT_EQ(Start(), Chain());
    EXPECT_EQ(DeferredThreads::Count(), 2U);
    DeferredThreads::RunNext();
    EXPECT_FALSE(IsInProgress(kChanger, kElem));
    DeferredThreads::RunNext();
    EXPECT_FALSE(IsInProgress(kChanger, kElem));
}

TEST_F(MediaIdThread, FailedRemovalIsLogged) {
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

TEST_F(MediaIdThread, ChangersNumberIsLoggedInSixteenDigits) {
    AddChanger(kSmallChanger);
    for (const char* command : {"mount", "walk", "eject"}) {
        FakeCommands::Fail(command);
        Run(0, kSmallChanger);
    }
    for (const std::size_t allocation : {1U, 2U}) {
        EXPECT_EQ(Start(0, kSmallChanger), Chain());
        const AllocationFault fault(allocation);
        DeferredThreads::RunNext();
    }
    const std::vector<std::string> lines = log_.TakeWithoutLineNumbers();
    const std::string number = kSmallChangerText;
    for (const std::string& message :
         {"Fail ChangerServerMountDisc(" + number + ", 5)", "fail RunFSCache(" + number + ", 5)",
          "fail ChangerServerEjectDisc for changer " + number + "/storage elem 5",
          "fail IsChangerInList for GUID " + number,
          "fail remove changer GUID " + number + "/storage elem 5"})
        EXPECT_THAT(lines, Contains(HasSubstr("RunMediaIdThread: " + message)));
}

} // namespace
