/* The full build of one changer: its start, its steps, and the closing command, which is sent
   whatever fails. */

#include "AllocationFaults.h"
#include "MountedChanger.h"
#include "support/Matchers.h"

#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace {

constexpr const char* kWithdraw = "withdraw changer 9EDCBA9876543210";
constexpr const char* kClosing = "withdraw changer 9EDCBA9876543210 (locked)";
constexpr const char* kClear = "clear 9EDCBA9876543210 trayprobed";
constexpr const char* kThread = "ChangerFSCacheThread:123, RunChangerFSCacheThread: ";

std::string Show(int current, int maximum) {
    return "show 9EDCBA9876543210 trayprobed \"Building changer directory cache\" " +
           std::to_string(current) + "/" + std::to_string(maximum);
}

RaisedLink Raised(const std::string& message, VErrCode code) {
    return {message, "StartChangerFSCache", kWalkSource, code};
}

class BuildThread : public MountedChanger {
protected:
    static Chain Start() {
        return TakeChain(StartChangerFSCache(kChanger));
    }
    // Runs a whole build. Returns the journal.
    static std::vector<std::string> Build() {
        EXPECT_EQ(Start(), Chain());
        EXPECT_EQ(DeferredThreads::Count(), 1U);
        DeferredThreads::RunNext();
        EXPECT_FALSE(StateLock::IsHeld());
        return Journal::Take();
    }
    // The lines that the build's thread logged.
    std::vector<std::string> ThreadLines() {
        std::vector<std::string> lines = log_.TakeWithoutLineNumbers();
        std::erase_if(lines, [](const std::string& line) { return !line.starts_with(kThread); });
        return lines;
    }
};

// ---- the start ----

TEST_F(BuildThread, TheSecondOfTwoStartsStartsNoBuild) {
    EXPECT_EQ(Start(), Chain());
    EXPECT_TRUE(IsBuilding(kChanger));
    EXPECT_EQ(Start(), Chain());
    EXPECT_EQ(DeferredThreads::Count(), 1U);
    DeferredThreads::RunNext();
    EXPECT_FALSE(IsBuilding(kChanger));
    EXPECT_EQ(Start(), Chain());
    DeferredThreads::RunNext();
    Journal::Take();
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
    Journal::Take();
}

TEST_F(BuildThread, AnUnknownChangerIsNotBuilt) {
    EXPECT_EQ(RemoveChangerFromList(kChanger), nullptr);
    EXPECT_EQ(Start().back(), Raised("fail GetChangerFSCacheBuildInProgress", kVErrCodeNotFound));
    EXPECT_EQ(DeferredThreads::Count(), 0U);
}

TEST_F(BuildThread, AThreadThatCannotBeMadeLeavesNoFlag) {
    const char* const functions[] = {"pthread_attr_init", "pthread_attr_setdetachstate",
                                     "pthread_create"};
    for (const char* function : functions) {
        DeferredThreads::Fail(function, EAGAIN);
        EXPECT_EQ(Start(), (Chain{Raised(std::string("fail ") + function, EAGAIN)}));
        EXPECT_EQ(DeferredThreads::Count(), 0U);
        EXPECT_FALSE(IsBuilding(kChanger));
    }
}

TEST_F(BuildThread, AttributesThatCannotBeDestroyedAreAFailureOfAStartedBuild) {
    DeferredThreads::Fail("pthread_attr_destroy", EINVAL);
    EXPECT_EQ(Start(), (Chain{Raised("fail pthread_attr_destroy", EINVAL)}));
    EXPECT_TRUE(IsBuilding(kChanger));
    DeferredThreads::RunNext();
    Journal::Take();
}

TEST_F(BuildThread, AFlagThatCannotBeSetLetsTheThreadRun) {
    DeferredThreads::OnCreation([] { EXPECT_EQ(RemoveChangerFromList(kChanger), nullptr); });
    EXPECT_EQ(Start().back(), Raised("fail SetChangerFSCacheBuildInProgress", kVErrCodeNotFound));
    EXPECT_EQ(DeferredThreads::Count(), 1U);
    DeferredThreads::RunNext();
    EXPECT_THAT(Journal::Take(), IsEmpty()); // no closing command without the flag
    EXPECT_THAT(ThreadLines(),
                ElementsAre(EndsWith("fail SetChangerFSCacheBuildInProgress (VErrCode = 20)")));
}

TEST_F(BuildThread, AStartWithoutMemoryLeavesNoFlag) {
    std::set<std::string> newest;
    VErrLink* err = nullptr;
    SweepAllocationFaults([&](std::size_t) { err = StartChangerFSCache(kChanger); },
                          [&](std::size_t, bool happened) {
                              EXPECT_EQ(err != nullptr, happened);
                              const Chain chain = TakeChain(err);
                              if (!chain.empty())
                                  newest.insert(chain.back().message);
                              if (DeferredThreads::Count() != 0)
                                  DeferredThreads::RunNext();
                              EXPECT_FALSE(IsBuilding(kChanger));
                          });
    EXPECT_THAT(newest,
                ElementsAre("fail GetChangerFSCacheBuildInProgress",
                            "fail SetChangerFSCacheBuildInProgress", "fail alloc thread context"));
    Journal::Take();
}

// A build with nothing to do may be done before its starter has set the flag.
TEST_F(BuildThread, ABuildFasterThanItsStarterLeavesTheFlagFalse) {
    DeferredThreads::RaceWithStarter();
    EXPECT_EQ(Start(), Chain()); // as the timer does, without the state lock
    DeferredThreads::Join();
    EXPECT_FALSE(IsBuilding(kChanger));
    Journal::Take();
}

TEST_F(BuildThread, TheThreadWaitsForItsStarterEvenWhenTheFlagCannotBeSet) {
    DeferredThreads::RaceWithStarter();
    DeferredThreads::OnCreation([] { EXPECT_EQ(RemoveChangerFromList(kChanger), nullptr); });
    EXPECT_THAT(Start(), SizeIs(3));
    DeferredThreads::Join();
    EXPECT_THAT(ThreadLines(), SizeIs(1));
}

TEST_F(BuildThread, TheThreadWaitsForAStarterThatHoldsTheStateLock) {
    DeferredThreads::RaceWithStarter();
    ASSERT_EQ(LockMediaIdState(), nullptr);
    EXPECT_EQ(Start(), Chain());
    EXPECT_TRUE(IsBuilding(kChanger));
    UnlockMediaIdState();
    DeferredThreads::Join();
    EXPECT_FALSE(IsBuilding(kChanger));
    Journal::Take();
}

// ---- the course ----

TEST_F(BuildThread, WithoutAMountedFileSystemOnlyTheClosingCommandIsSent) {
    EXPECT_THAT(Build(), ElementsAre(kClosing));
    EXPECT_FALSE(IsBuilding(kChanger));
}

TEST_F(BuildThread, CountsThenWalksBetweenTwoWithdrawals) {
    MakeMediaRoot("disc");
    tree_.MakeDirectory("disc/a");
    Mount();
    EXPECT_THAT(Build(), ElementsAre(kWithdraw, Show(0, 0), "list .", Show(0, 1), "list .",
                                     "list ./disc", "list ./disc/a", Show(1, 1), kClear, kClosing));
    EXPECT_FALSE(IsBuilding(kChanger));
}

TEST_F(BuildThread, TheFlagIsSetUntilTheStatusIsCleared) {
    Mount();
    FakeCommands::OnCommand([](std::string_view command) {
        SInt32 inProgress = 2;
        EXPECT_EQ(GetChangerFSCacheBuildInProgress(kChanger, &inProgress), nullptr);
        EXPECT_EQ(inProgress, command == kClosing ? 0 : 1) << command;
    });
    Build();
}

TEST_F(BuildThread, AnAbortEndsTheBuildWithoutALogLine) {
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
    EXPECT_FALSE(IsBuilding(kChanger));
}

TEST_F(BuildThread, AfterAFailedOpeningWithdrawalOnlyTheClosingCommandIsSent) {
    Mount();
    FakeCommands::Fail("withdraw");
    EXPECT_THAT(Build(), ElementsAre(kWithdraw, kClosing));
    EXPECT_THAT(log_.TakeWithoutLineNumbers(),
                ElementsAre(kCommandFailureLine,
                            std::string(kThread) + "fail ChangerServerRequestChangerIdentification "
                                                   "(VErrCode = 1005)"));
    EXPECT_FALSE(IsBuilding(kChanger));
}

TEST_F(BuildThread, AfterAFailedProgressStartOnlyTheClosingCommandIsSent) {
    Mount();
    FakeCommands::Fail("show");
    EXPECT_THAT(Build(), ElementsAre(kWithdraw, Show(0, 0), kClosing));
    EXPECT_THAT(ThreadLines(),
                ElementsAre(EndsWith("fail StartStatusReportingForFullFSCache (VErrCode = 1005)")));
    EXPECT_FALSE(IsBuilding(kChanger));
}

TEST_F(BuildThread, AFailedReportEndsTheWalkAndTheStatusIsCleared) {
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
    EXPECT_THAT(lines, SizeIs(5));
    EXPECT_EQ(lines.back(), std::string(kThread) + "fail CacheFSDirectory (VErrCode = 1005)");
    EXPECT_FALSE(IsBuilding(kChanger));
}

TEST_F(BuildThread, AfterAPathThatDoesNotFitOnlyTheClosingCommandIsSent) {
    Mount("/" + std::string(1023, 'd'));
    EXPECT_THAT(Build(), ElementsAre(kClosing));
    EXPECT_THAT(ThreadLines(), ElementsAre(EndsWith("fail GetChangerFSMountPath")));
    EXPECT_FALSE(IsBuilding(kChanger));
}

TEST_F(BuildThread, AfterAPathThatDoesNotFitTheLockIsHeldUntilTheFlagIsCleared) {
    Mount("/" + std::string(1023, 'd'));
    EXPECT_EQ(Start(), Chain());
    StateLock::FailLock(EINVAL, 2);
    DeferredThreads::RunNext();
    EXPECT_THAT(Journal::Take(), ElementsAre(kClosing));
    EXPECT_THAT(ThreadLines(), ElementsAre(EndsWith("fail GetChangerFSMountPath")));
    EXPECT_FALSE(IsBuilding(kChanger));
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
    EXPECT_THAT(ThreadLines(), ElementsAre(EndsWith("fail IsChangerFSGUIDInList for " + number)));
    EXPECT_FALSE(IsBuilding(kSmallChanger));
}

// ---- the ending ----

// The progress record is never released.
TEST_F(BuildThread, AFailedClearIsLoggedAndStopsNothing) {
    Mount();
    FakeCommands::Fail("clear");
    EXPECT_THAT(Build(), ElementsAre(kWithdraw, Show(0, 0), "list .", Show(0, 0), "list .", kClear,
                                     kClosing));
    EXPECT_THAT(log_.Take(), SizeIs(3));
    EXPECT_FALSE(IsBuilding(kChanger));
    FSCacheStatusReport* report = FakeCommands::TakeKeptReport();
    ASSERT_NE(report, nullptr);
    EXPECT_EQ(report->changerGUID, kChanger);
    EXPECT_STREQ(report->message, "Building changer directory cache");
    free(report);
}

TEST_F(BuildThread, AfterAFailedFirstLockOnlyTheClosingCommandIsSent) {
    Mount();
    EXPECT_EQ(Start(), Chain());
    StateLock::FailLock(EINVAL);
    DeferredThreads::RunNext();
    EXPECT_THAT(Journal::Take(), ElementsAre(kClosing));
    EXPECT_THAT(ThreadLines(), ElementsAre(EndsWith("fail LockMediaIdState (err = 22)")));
    EXPECT_FALSE(IsBuilding(kChanger));
}

// The only failure after which the changer is not built again until it is removed.
TEST_F(BuildThread, AFailedLastLockLeavesTheFlagSet) {
    Mount();
    EXPECT_EQ(Start(), Chain());
    StateLock::FailLock(EINVAL, 2);
    DeferredThreads::RunNext();
    EXPECT_EQ(Journal::Take().back(), kClear);
    EXPECT_THAT(ThreadLines(), ElementsAre(EndsWith("fail LockMediaIdState (err = 22)")));
    EXPECT_TRUE(IsBuilding(kChanger));
}

TEST_F(BuildThread, AFailedClosingWithdrawalIsLogged) {
    FakeCommands::Fail(kClosing);
    EXPECT_THAT(Build(), ElementsAre(kClosing));
    EXPECT_THAT(ThreadLines(), ElementsAre(EndsWith("fail "
                                                    "ChangerServerRequestChangerIdentification "
                                                    "(VErrCode = 1005)")));
    EXPECT_FALSE(IsBuilding(kChanger));
}

TEST_F(BuildThread, TheClosingCommandsErrorIsLoggedBeforeTheBuildsError) {
    Mount();
    FakeCommands::Fail("show");
    FakeCommands::Fail(kClosing);
    Build();
    EXPECT_THAT(
        ThreadLines(),
        ElementsAre(EndsWith("fail ChangerServerRequestChangerIdentification (VErrCode = 1005)"),
                    EndsWith("fail StartStatusReportingForFullFSCache (VErrCode = 1005)")));
}

// The old build's end clears the new build's flag. Known and harmless.
TEST_F(BuildThread, AChangerAddedAnewIsBuiltTwice) {
    EXPECT_EQ(Start(), Chain());
    AddChanger(kChanger);
    EXPECT_EQ(Start(), Chain());
    EXPECT_EQ(DeferredThreads::Count(), 2U);
    DeferredThreads::RunNext();
    EXPECT_FALSE(IsBuilding(kChanger));
    DeferredThreads::RunNext();
    EXPECT_FALSE(IsBuilding(kChanger));
    Journal::Take();
}

TEST_F(BuildThread, AChangerRemovedDuringTheWalkEndsTheWalk) {
    MakeMediaRoot("disc");
    Mount();
    FakeCommands::OnCommand([](std::string_view command) {
        if (command == Show(0, 1))
            EXPECT_EQ(RemoveChangerFromList(kChanger), nullptr);
    });
    EXPECT_EQ(Build().back(), kClear);
    EXPECT_THAT(ThreadLines(),
                ElementsAre(EndsWith("fail SetChangerFSCacheBuildInProgress (VErrCode = 20)"),
                            EndsWith("fail CacheFSDirectory (VErrCode = 20)")));
}

// ---- by the timer ----

TEST_F(BuildThread, TheTimerStartsNothingWhileABuildRuns) {
    const auto number = Integer(static_cast<SInt64>(kChanger));
    ChangerFSCache(nullptr, const_cast<__CFNumber*>(number.Get()));
    ChangerFSCache(nullptr, const_cast<__CFNumber*>(number.Get()));
    EXPECT_EQ(DeferredThreads::Count(), 1U);
    DeferredThreads::RunNext();
    Journal::Take();
}

TEST_F(BuildThread, TheTimerOfARemovedChangerFailsDaily) {
    EXPECT_EQ(RemoveChangerFromList(kChanger), nullptr);
    const auto number = Integer(static_cast<SInt64>(kChanger));
    for (int day = 0; day < 2; ++day) {
        ChangerFSCache(nullptr, const_cast<__CFNumber*>(number.Get()));
        EXPECT_THAT(log_.TakeWithoutLineNumbers(),
                    ElementsAre(EndsWith(": fail find changer in list (VErrCode = 20)"),
                                EndsWith(": fail GetChangerDictForGUID (VErrCode = 20)"),
                                EndsWith(": fail GetChangerFSCacheBuildInProgress (VErrCode = 20)"),
                                "MediaIdState:123, ChangerFSCache: fail StartChangerFSCache on "
                                "9EDCBA9876543210 (VErrCode = 20)"));
    }
}

} // namespace
