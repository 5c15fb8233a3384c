/* The full build of one changer: its start, its steps, and the closing command, which is sent
   whatever fails. */

#include "AllocationFaults.h"
#include "MountedChanger.h"
#include "support/Matchers.h"
#include "support/WithoutMemory.h"

#include <cerrno>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

namespace {

constexpr const char* kWithdraw = "withdraw changer 9EDCBA9876543210";
constexpr const char* kClosing = "withdraw changer 9EDCBA9876543210 (locked)";

RaisedLink Raised(const std::string& message, VErrCode code) {
    return {message, "StartChangerFSCache", kWalkSource, code};
}

class BuildThread : public MountedChanger {
protected:
    static Chain Start() {
        return TakeChain(StartChangerFSCache(kChanger));
    }
    // Runs a build whose thread clears the flag. Returns the journal.
    static std::vector<std::string> Build() {
        EXPECT_EQ(Start(), Chain());
        return RunThread();
    }
    static std::vector<std::string> RunThread() {
        EXPECT_EQ(DeferredThreads::Count(), 1U);
        DeferredThreads::RunNext();
        EXPECT_FALSE(StateLock::IsHeld());
        EXPECT_FALSE(ReadFlag(GetChangerFSCacheBuildInProgress, kChanger));
        return Journal::Take();
    }
    // The messages that the build's thread logged.
    std::vector<std::string> ThreadMessages() {
        const std::string start = "ChangerFSCacheThread:123, RunChangerFSCacheThread: ";
        std::vector<std::string> messages;
        for (const std::string& line : log_.TakeWithoutLineNumbers())
            if (line.starts_with(start))
                messages.push_back(line.substr(start.size()));
        return messages;
    }
    static void FireTimer() {
        ChangerFSCache(nullptr, const_cast<void*>(Value(kChanger).Get()));
    }
};

// ---- the start ----

TEST_F(BuildThread, StartDuringABuildStartsNoOther) {
    EXPECT_EQ(Start(), Chain());
    EXPECT_TRUE(IsBuilding(kChanger));
    Build();
    Build();
}

TEST_F(BuildThread, TwoChangersAreBuiltConcurrently) {
    AddChanger(kOtherChanger);
    EXPECT_EQ(Start(), Chain());
    EXPECT_EQ(StartChangerFSCache(kOtherChanger), nullptr);
    EXPECT_EQ(DeferredThreads::Count(), 2U);
    DeferredThreads::RunNext();
    EXPECT_FALSE(IsBuilding(kChanger));
    EXPECT_TRUE(IsBuilding(kOtherChanger));
    DeferredThreads::RunNext();
}

TEST_F(BuildThread, StartOfAnUnknownChangerFails) {
    EXPECT_EQ(RemoveChangerFromList(kChanger), nullptr);
    EXPECT_EQ(Start().back(), Raised("fail GetChangerFSCacheBuildInProgress", kVErrCodeNotFound));
    EXPECT_EQ(DeferredThreads::Count(), 0U);
}

TEST_F(BuildThread, ThreadThatCannotBeCreatedLeavesTheFlagFalse) {
    const char* const functions[] = {"pthread_attr_init", "pthread_attr_setdetachstate",
                                     "pthread_create"};
    for (const char* function : functions) {
        DeferredThreads::Fail(function, EAGAIN);
        EXPECT_EQ(Start(), (Chain{Raised(std::string("fail ") + function, EAGAIN)}));
        EXPECT_EQ(DeferredThreads::Count(), 0U);
        EXPECT_FALSE(IsBuilding(kChanger));
    }
}

TEST_F(BuildThread, AttributesThatCannotBeDestroyedFailTheStartButTheBuildRuns) {
    DeferredThreads::Fail("pthread_attr_destroy", EINVAL);
    EXPECT_EQ(Start(), (Chain{Raised("fail pthread_attr_destroy", EINVAL)}));
    EXPECT_TRUE(IsBuilding(kChanger));
    DeferredThreads::RunNext();
}

TEST_F(BuildThread, FlagThatCannotBeSetEndsTheThreadWithoutACommand) {
    DeferredThreads::OnCreation([] { EXPECT_EQ(RemoveChangerFromList(kChanger), nullptr); });
    EXPECT_EQ(Start().back(), Raised("fail SetChangerFSCacheBuildInProgress", kVErrCodeNotFound));
    EXPECT_EQ(DeferredThreads::Count(), 1U);
    DeferredThreads::RunNext();
    EXPECT_THAT(Journal::Take(), IsEmpty()); // no closing command without the flag
    EXPECT_THAT(ThreadMessages(),
                ElementsAre("fail SetChangerFSCacheBuildInProgress (VErrCode = 20)"));
}

TEST_F(BuildThread, StartWithoutMemoryLeavesTheFlagFalse) {
    const auto expectNoFlag = [&](const Chain&, bool) {
        if (DeferredThreads::Count() != 0)
            DeferredThreads::RunNext();
        EXPECT_FALSE(IsBuilding(kChanger));
    };
    EXPECT_THAT(SweepErrors([] { return StartChangerFSCache(kChanger); }, expectNoFlag),
                ElementsAre("fail GetChangerFSCacheBuildInProgress",
                            "fail SetChangerFSCacheBuildInProgress", "fail alloc thread context"));
}

// A build with nothing to do may be done before its starter has set the flag.
TEST_F(BuildThread, BuildFasterThanItsStarterLeavesTheFlagFalse) {
    DeferredThreads::RaceWithStarter();
    EXPECT_EQ(Start(), Chain()); // as the timer does, without the state lock
    DeferredThreads::Join();
    EXPECT_FALSE(IsBuilding(kChanger));
}

TEST_F(BuildThread, ThreadWaitsForItsStarterEvenIfTheFlagCannotBeSet) {
    DeferredThreads::RaceWithStarter();
    DeferredThreads::OnCreation([] { EXPECT_EQ(RemoveChangerFromList(kChanger), nullptr); });
    EXPECT_THAT(Start(), SizeIs(3));
    DeferredThreads::Join();
    EXPECT_THAT(ThreadMessages(), SizeIs(1));
}

TEST_F(BuildThread, ThreadWaitsForAStarterThatHoldsTheStateLock) {
    DeferredThreads::RaceWithStarter();
    ASSERT_EQ(LockMediaIdState(), nullptr);
    EXPECT_EQ(Start(), Chain());
    EXPECT_TRUE(IsBuilding(kChanger));
    UnlockMediaIdState();
    DeferredThreads::Join();
    EXPECT_FALSE(IsBuilding(kChanger));
}

// ---- the steps ----

TEST_F(BuildThread, WithoutAMountedFileSystemOnlyTheClosingCommandIsSent) {
    EXPECT_THAT(Build(), ElementsAre(kClosing));
}

TEST_F(BuildThread, CountsThenWalksBetweenTwoWithdrawals) {
    MakeMediaRoot("disc");
    tree_.MakeDirectory("disc/a");
    Mount();
    EXPECT_THAT(Build(), ElementsAre(kWithdraw, Show(0, 0), "list .", Show(0, 1), "list .",
                                     "list ./disc", "list ./disc/a", Show(1, 1), kClear, kClosing));
}

TEST_F(BuildThread, FlagIsTrueUntilTheStatusIsCleared) {
    Mount();
    FakeCommands::OnCommand([](std::string_view command) {
        SInt32 inProgress = 2;
        EXPECT_EQ(GetChangerFSCacheBuildInProgress(kChanger, &inProgress), nullptr);
        EXPECT_EQ(inProgress, command == kClosing ? 0 : 1) << command;
    });
    Build();
}

TEST_F(BuildThread, AbortEndsTheBuildWithoutALogLine) {
    MakeMediaRoot("one");
    MakeMediaRoot("two");
    Mount();
    FakeCommands::OnCommand([](std::string_view command) {
        if (command == Show(0, 2))
            SetAbort(1);
    });
    const std::vector<std::string> journal = Build();
    ASSERT_THAT(journal, SizeIs(8));
    EXPECT_EQ(journal[6], kClear);
    EXPECT_EQ(journal[7], kClosing);
}

TEST_F(BuildThread, AfterAFailedOpeningWithdrawalOnlyTheClosingCommandIsSent) {
    Mount();
    FakeCommands::Fail("withdraw");
    EXPECT_THAT(Build(), ElementsAre(kWithdraw, kClosing));
    EXPECT_THAT(log_.TakeWithoutLineNumbers(),
                ElementsAre(kCommandFailureLine,
                            "ChangerFSCacheThread:123, RunChangerFSCacheThread: fail "
                            "ChangerServerRequestChangerIdentification (VErrCode = 1005)"));
}

TEST_F(BuildThread, AfterAFailedProgressStartOnlyTheClosingCommandIsSent) {
    Mount();
    FakeCommands::Fail("show");
    EXPECT_THAT(Build(), ElementsAre(kWithdraw, Show(0, 0), kClosing));
    EXPECT_THAT(ThreadMessages(),
                ElementsAre("fail StartStatusReportingForFullFSCache (VErrCode = 1005)"));
}

TEST_F(BuildThread, FailedReportEndsTheWalkAndTheStatusIsCleared) {
    MakeMediaRoot("one");
    MakeMediaRoot("two");
    Mount();
    FakeCommands::Fail("show", 3);
    const std::vector<std::string> journal = Build();
    ASSERT_THAT(journal, SizeIs(9));
    EXPECT_EQ(journal[6], Show(1, 2));
    EXPECT_EQ(journal[7], kClear);
    EXPECT_EQ(journal[8], kClosing);
    const std::vector<std::string> lines = log_.TakeWithoutLineNumbers();
    ASSERT_THAT(lines, SizeIs(5));
    EXPECT_THAT(lines.back(), EndsWith("Thread: fail CacheFSDirectory (VErrCode = 1005)"));
}

TEST_F(BuildThread, WithAMountPathThatDoesNotFitOnlyTheClosingCommandIsSent) {
    Mount("/" + std::string(1023, 'd'));
    EXPECT_THAT(Build(), ElementsAre(kClosing));
    EXPECT_THAT(ThreadMessages(), ElementsAre("fail GetChangerFSMountPath"));
}

TEST_F(BuildThread, WithAMountPathThatDoesNotFitTheStateIsLockedOnce) {
    Mount("/" + std::string(1023, 'd'));
    EXPECT_EQ(Start(), Chain());
    StateLock::FailLock(EINVAL, 2);
    EXPECT_THAT(RunThread(), ElementsAre(kClosing));
    EXPECT_THAT(ThreadMessages(), ElementsAre("fail GetChangerFSMountPath"));
    EXPECT_EQ(TakeChain(LockMediaIdState()).size(), 1U); // a recursive lock fails
}

// The lookup in the registry allocates.
TEST_F(BuildThread, WithoutMemoryForTheRegistryOnlyTheClosingCommandIsSent) {
    AddChanger(kSmallChanger);
    EXPECT_EQ(StartChangerFSCache(kSmallChanger), nullptr);
    {
        const AllocationFault fault(1);
        DeferredThreads::RunNext();
    }
    const std::string number = kSmallChangerText;
    EXPECT_THAT(Journal::Take(), ElementsAre("withdraw changer " + number + " (locked)"));
    EXPECT_THAT(ThreadMessages(), ElementsAre("fail IsChangerFSGUIDInList for " + number));
    EXPECT_FALSE(IsBuilding(kSmallChanger));
}

// ---- the end ----

// The progress report is never freed.
TEST_F(BuildThread, FailedClearIsLoggedAndTheClosingCommandSent) {
    Mount();
    FakeCommands::Fail("clear");
    EXPECT_THAT(Build(), ElementsAre(kWithdraw, Show(0, 0), "list .", Show(0, 0), "list .", kClear,
                                     kClosing));
    EXPECT_THAT(log_.Take(), SizeIs(3));
    FSCacheStatusReport* report = FakeCommands::TakeUnclearedReport();
    ASSERT_NE(report, nullptr);
    EXPECT_EQ(report->changerGUID, kChanger);
    EXPECT_STREQ(report->message, "Building changer directory cache");
    free(report);
}

TEST_F(BuildThread, AfterAFailedFirstLockOnlyTheClosingCommandIsSent) {
    Mount();
    EXPECT_EQ(Start(), Chain());
    StateLock::FailLock(EINVAL);
    EXPECT_THAT(RunThread(), ElementsAre(kClosing));
    EXPECT_THAT(ThreadMessages(), ElementsAre("fail LockMediaIdState (err = 22)"));
}

// The only failure after which the changer is not built again until it is removed.
TEST_F(BuildThread, FailedLastLockLeavesTheFlagTrue) {
    Mount();
    EXPECT_EQ(Start(), Chain());
    StateLock::FailLock(EINVAL, 2);
    DeferredThreads::RunNext();
    EXPECT_EQ(Journal::Take().back(), kClear);
    EXPECT_THAT(ThreadMessages(), ElementsAre("fail LockMediaIdState (err = 22)"));
    EXPECT_TRUE(IsBuilding(kChanger));
}

TEST_F(BuildThread, FailedClosingCommandIsLogged) {
    FakeCommands::Fail(kClosing);
    EXPECT_THAT(Build(), ElementsAre(kClosing));
    EXPECT_THAT(ThreadMessages(),
                ElementsAre("fail ChangerServerRequestChangerIdentification (VErrCode = 1005)"));
}

TEST_F(BuildThread, ErrorOfTheClosingCommandIsLoggedBeforeThatOfTheBuild) {
    Mount();
    FakeCommands::Fail("show");
    FakeCommands::Fail(kClosing);
    Build();
    EXPECT_THAT(ThreadMessages(),
                ElementsAre("fail ChangerServerRequestChangerIdentification (VErrCode = 1005)",
                            "fail StartStatusReportingForFullFSCache (VErrCode = 1005)"));
}

// The old build's end clears the new build's flag. Known and harmless.
TEST_F(BuildThread, ChangerRemovedAndAddedIsBuiltTwice) {
    EXPECT_EQ(Start(), Chain());
    AddChanger(kChanger);
    EXPECT_EQ(Start(), Chain());
    EXPECT_EQ(DeferredThreads::Count(), 2U);
    DeferredThreads::RunNext();
    EXPECT_FALSE(IsBuilding(kChanger));
    DeferredThreads::RunNext();
    EXPECT_FALSE(IsBuilding(kChanger));
}

TEST_F(BuildThread, RemovalOfTheChangerEndsTheWalk) {
    MakeMediaRoot("disc");
    Mount();
    FakeCommands::OnCommand([](std::string_view command) {
        if (command == Show(0, 1))
            EXPECT_EQ(RemoveChangerFromList(kChanger), nullptr);
    });
    EXPECT_EQ(Start(), Chain());
    DeferredThreads::RunNext();
    EXPECT_EQ(Journal::Take().back(), kClear);
    EXPECT_THAT(ThreadMessages(),
                ElementsAre("fail SetChangerFSCacheBuildInProgress (VErrCode = 20)",
                            "fail CacheFSDirectory (VErrCode = 20)"));
}

// ---- by the timer ----

TEST_F(BuildThread, TimerStartsNothingDuringABuild) {
    FireTimer();
    FireTimer();
    RunThread();
}

TEST_F(BuildThread, TimerOfARemovedChangerLogsAnErrorDaily) {
    EXPECT_EQ(RemoveChangerFromList(kChanger), nullptr);
    for (int day = 0; day < 2; ++day) {
        FireTimer();
        EXPECT_THAT(log_.TakeWithoutLineNumbers(),
                    ElementsAre(EndsWith(": fail find changer in list (VErrCode = 20)"),
                                EndsWith(": fail GetChangerDictForGUID (VErrCode = 20)"),
                                EndsWith(": fail GetChangerFSCacheBuildInProgress (VErrCode = 20)"),
                                "MediaIdState:123, ChangerFSCache: fail StartChangerFSCache on "
                                "9EDCBA9876543210 (VErrCode = 20)"));
    }
}

} // namespace
