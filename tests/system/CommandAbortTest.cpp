// changerctl abort: it ends a build, and leaves no status where no build is.

#include "CommandTest.h"
#include "tests/unit/support/Matchers.h"

#include <csignal>
#include <string>

namespace {

class CommandAbortTest : public CommandTest {
protected:
    void SetUp() override {
        BeginWithDaemon();
    }
    // Every test: no status without a build is left.
    void TearDown() override {
        EXPECT_THAT(Statuses(), IsEmpty());
        CommandTest::TearDown();
    }

    // Starts a build that waits for the disc in slot 0 of that many.
    void StartBuild(int discs) {
        PutBlockingDiscs(discs);
        RequestBuild();
        AwaitStep(0);
        AwaitBlockedBuild();
    }
    void LeaveStatusOfDeadDaemon() {
        StartBuild(1);
        run_.Daemon().Signal(SIGKILL);
        Do("take changer=5000C500ABCD00A1 slot=0"); // its listing delays the end of the process
        run_.AwaitEndOfDaemon();
    }
    void AwaitAbortRequest() {
        Server().Await("status", {{"client", "trayprobed"}, {"abort", "yes"}});
    }
};

TEST_F(CommandAbortTest, BuildIsAborted) {
    StartBuild(2);
    testbed::Process command = Start({"abort"});
    AwaitAbortRequest();
    AwaitHandledNotifications();
    TakeBlockingDisc();
    EXPECT_THAT(AwaitEnd(command), Prints(""));
    AwaitEndOfBuild();
}

TEST_F(CommandAbortTest, WaitShowsTheStatusUntilItIsGone) {
    StartBuild(1);
    testbed::Process command = Start({"abort", "--wait"});
    AwaitOutput(".* 0 of 1 discs  Building changer directory cache  \\(abort requested\\)");
    AwaitHandledNotifications();
    TakeBlockingDisc();
    EXPECT_EQ(AwaitEnd(command).status, 0);
    AwaitEndOfBuild();
}

TEST_F(CommandAbortTest, RequestRepeatsTheMessageAndTheStepsOfTheBuild) {
    StartBuild(1);
    testbed::Process command = Start({"abort"});
    const testbed::Event status =
        Server().Await("status", {{"client", "trayprobed"}, {"abort", "yes"}});
    EXPECT_TRUE(status.Has(
        {{"message", "Building changer directory cache"}, {"current", "0"}, {"maximum", "1"}}));
    AwaitHandledNotifications();
    TakeBlockingDisc();
    EXPECT_THAT(AwaitEnd(command), Prints(""));
    AwaitEndOfBuild();
}

TEST_F(CommandAbortTest, ChangerWithoutABuildGetsNoRequest) {
    EXPECT_THAT(Run({"abort"}),
                Fails(6, "5000C500ABCD00A1: nothing to abort: trayprobed shows no build"));
    EXPECT_THAT(Server().AllSoFar("status", {{"abort", "yes"}}), IsEmpty());
}

TEST_F(CommandAbortTest, StatusOfAnotherClientIsNoBuild) {
    Do("abort changer=5000C500ABCD00A1 client=backup create=yes");
    EXPECT_THAT(Run({"abort"}), Fails(6, "nothing to abort"));
    EXPECT_THAT(Statuses(), ElementsAre("backup 0/0 yes"));
    Do("remove-changer changer=5000C500ABCD00A1");
}

// The command reads what the server showed before the build ended.
TEST_F(CommandAbortTest, BuildThatEndsBetweenLookAndRequestLeavesNoStatus) {
    StartBuild(1);
    Do("pause");
    testbed::Process command = Start({"abort", "--timeout=1"});
    AwaitSubscription();
    command.Stop();
    Do("resume once=yes");
    TakeBlockingDisc();
    AwaitEndOfBuild();
    command.Continue();
    AwaitAbortRequest();
    Do("resume");
    EXPECT_THAT(AwaitEnd(command),
                Fails(5, "no build answers; the request to abort was withdrawn"));
}

// The command may have seen the end of the build before it sends its request, or not.
TEST_F(CommandAbortTest, BuildThatEndsBeforeTheRequestArrivesLeavesNoStatus) {
    StartBuild(1);
    Do("pause");
    testbed::Process command = Start({"abort"});
    AwaitSubscription();
    command.Stop();
    Do("resume once=yes");
    TakeBlockingDisc();
    AwaitEndOfBuild();
    Do("resume");
    command.Continue();
    EXPECT_THAT(AwaitEnd(command), Fails(6, "5000C500ABCD00A1: "));
}

TEST_F(CommandAbortTest, StatusThatADeadDaemonHasLeftIsRemoved) {
    LeaveStatusOfDeadDaemon();
    EXPECT_THAT(Run({"abort", "--timeout=1"}),
                Fails(5, "no build answers; the request to abort was withdrawn"));
}

// The server shows the request to nobody before the build's next report replaces it.
TEST_F(CommandAbortTest, RequestThatAReportOverwritesIsSentAgain) {
    StartBuild(3);
    Do("pause");
    testbed::Process command = Start({"abort"});
    AwaitSubscription();
    Do("resume once=yes");
    AwaitAbortRequest();
    TakeBlockingDisc();
    AwaitStep(1);
    AwaitBlockedBuild();
    Do("resume");
    AwaitAbortRequest();
    AwaitHandledNotifications();
    TakeBlockingDisc();
    EXPECT_THAT(AwaitEnd(command), Prints(""));
    AwaitEndOfBuild();
}

TEST_F(CommandAbortTest, InterruptedCommandWithdrawsItsRequest) {
    StartBuild(1);
    testbed::Process command = Start({"abort"});
    AwaitAbortRequest();
    command.Signal(SIGINT);
    EXPECT_THAT(
        AwaitEnd(command),
        Ends(128 + SIGINT, "", HasSubstr("interrupted; the request to abort was withdrawn")));
    EXPECT_THAT(Statuses(), IsEmpty());
    TakeBlockingDisc();
    AwaitEndOfBuild();
}

TEST_F(CommandAbortTest, LostServerEndsTheCommandWithStatusSix) {
    PermitKeptConnections();
    LeaveStatusOfDeadDaemon();
    testbed::Process command = Start({"abort"});
    const testbed::Event request = Server().Await("request", {{"abort-requested", "yes"}});
    Server().Await("disconnect", {{"connection", request["connection"]}});
    run_.KillServer();
    EXPECT_THAT(AwaitEnd(command), Fails(6, "the connection to the server is lost"));
    StartServer();
}

TEST_F(CommandAbortTest, WithdrawClearsARequestThatNoBuildAnswers) {
    Do("abort changer=5000C500ABCD00A1 client=trayprobed create=yes");
    EXPECT_THAT(Run({"abort", "--withdraw"}), Prints(""));
    EXPECT_THAT(Run({"abort", "--withdraw"}), Fails(6, "nothing to withdraw"));
}

} // namespace
