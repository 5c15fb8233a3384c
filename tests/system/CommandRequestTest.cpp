// changerctl identify, build, mount and eject: what they request, and how they end.

#include "CommandTest.h"
#include "testbed/Failure.h"
#include "testbed/ProcessState.h"
#include "tests/unit/support/Matchers.h"

#include <unistd.h>

#include <csignal>
#include <string>

namespace {

using testing::_;
using testing::AnyOf;

// Without the daemon, so that all requests are those of the command.
class CommandRequestTest : public CommandTest {
protected:
    void SetUp() override {
        StartServer("slots=12 drives=2");
        for (const int slot : {0, 1, 3})
            PutDisc(slot, slot == 0 ? "identified=yes" : "");
    }
};

TEST_F(CommandRequestTest, IdentifyRequestsEachSlotOnceInTheGivenOrder) {
    EXPECT_THAT(Run({"identify", "5000C500ABCD00A1", "3", "0-1,3"}), Prints(""));
    EXPECT_THAT(RequestsSoFar(), ElementsAre("request 3", "request 0", "request 1"));
}

TEST_F(CommandRequestTest, IdentifyNewRequestsTheDiscsThatWereNeverIdentified) {
    EXPECT_THAT(Run({"identify", "--new"}), Prints(""));
    EXPECT_THAT(RequestsSoFar(), ElementsAre("request 1", "request 3"));
}

TEST_F(CommandRequestTest, IdentifyWithdrawWithdrawsTheRequests) {
    EXPECT_THAT(Run({"identify", "--withdraw", "0,3"}), Prints(""));
    EXPECT_THAT(RequestsSoFar(), ElementsAre("withdraw 0", "withdraw 3"));
}

TEST_F(CommandRequestTest, IdentifyWithoutASlotIsAUsageErrorAndNoBuild) {
    EXPECT_THAT(Run({"identify"}), Fails(2, "no slot is named"));
    EXPECT_THAT(Run({"identify", "5000C500ABCD00A1"}), Fails(2, "is no slot"));
    EXPECT_THAT(RequestsSoFar(), IsEmpty());
}

TEST_F(CommandRequestTest, SlotThatTheServerDoesNotListIsRefusedBeforeAnythingIsSent) {
    EXPECT_THAT(Run({"identify", "0", "99"}),
                Fails(4, "5000C500ABCD00A1 has no slot 99 (0 to 11)"));
    EXPECT_THAT(Run({"mount", "12"}), Fails(4, "has no slot 12 (0 to 11)"));
    EXPECT_THAT(Run({"eject", "12"}), Fails(4, "has no slot 12 (0 to 11)"));
    EXPECT_THAT(RequestsSoFar(), IsEmpty());
}

TEST_F(CommandRequestTest, BuildRequestsAndWithdrawsTheChanger) {
    EXPECT_THAT(Run({"build"}), Prints(""));
    EXPECT_THAT(Run({"build", "--withdraw"}), Prints(""));
    EXPECT_THAT(RequestsSoFar(), ElementsAre("request changer", "withdraw changer"));
}

TEST_F(CommandRequestTest, MountPrintsThePathAndEjectSendsTheDiscBack) {
    EXPECT_THAT(Run({"mount", "0", "--drive", "1"}), Prints("/tmp/carousel/disc-0\n"));
    const testbed::Event mount = Server().Await("request", {{"command", "mount disc"}});
    EXPECT_EQ(mount["client-name"], "changerctl");
    EXPECT_EQ(mount["data-transfer-element-index"], "1");
    EXPECT_THAT(mount["mount-private"], AnyOf("", "no"));
    Server().Await("mounted", {{"drive", "1"}});
    EXPECT_THAT(Run({"eject", "0"}), Prints(""));
    Server().Await("unmounted");
}

TEST_F(CommandRequestTest, EjectForceOverridesThatADiscIsPrivate) {
    EXPECT_THAT(Run({"mount", "0"}), Prints("/tmp/carousel/disc-0\n"));
    EXPECT_THAT(Run({"eject", "0", "--force"}), Prints(""));
    EXPECT_EQ(Server().Await("request", {{"command", "eject disc"}})["overrideprivate"], "yes");
}

TEST_F(CommandRequestTest, OneDiscIsMountedAtATime) {
    EXPECT_THAT(Run({"mount", "0,1"}), Fails(2, "one slot only"));
    EXPECT_THAT(Run({"eject", "0", "1"}), Fails(2, "one slot only"));
}

TEST_F(CommandRequestTest, BusyServerIsAskedAgainUntilTheTimeLimit) {
    Do("fault on=\"mount disc\" do=error code=1021 text=busy count=all");
    EXPECT_THAT(Run({"mount", "0", "--timeout=1"}), Fails(5, "busy until the time limit"));
}

TEST_F(CommandRequestTest, RefusalIsPrintedWithItsTextAndNumber) {
    Do("fault on=request do=error code=1050 text=\"no \\x1B[1mway\" count=all");
    const std::string refusal = "the changer server refused: no \\x1B[1mway (number 1050)";
    EXPECT_THAT(Run({"identify", "0"}), Fails(1, refusal));
    EXPECT_THAT(Run({"build"}), Fails(1, refusal));
    EXPECT_THAT(Run({"mount", "0"}), Fails(1, refusal));
    EXPECT_THAT(Run({"eject", "0"}), Fails(1, refusal));
}

TEST_F(CommandRequestTest, LongRefusalIsPrintedWhole) {
    const std::string text(60000, 'x');
    Do("fault on=request do=error code=5 text=" + text);
    EXPECT_THAT(Run({"build"}), Fails(1, text + " (number 5)"));
}

TEST_F(CommandRequestTest, ServerThatClosesTheConnectionEndsTheCommandWithStatusThree) {
    Do("fault on=request do=close");
    EXPECT_THAT(Run({"build"}), Fails(3, "closed the connection without a reply"));
}

TEST_F(CommandRequestTest, ReplyWithoutWhatItMustHaveEndsTheCommandWithStatusSix) {
    Do("fault on=\"mount disc\" do=wrong-types");
    EXPECT_THAT(Run({"mount", "0"}), Fails(6, "the request failed: "));
}

using SlowCommandRequestTest = CommandRequestTest;

TEST_F(SlowCommandRequestTest, ServerThatDoesNotReplyEndsTheCommandWithStatusFive) {
    Do("fault on=request do=silence");
    EXPECT_THAT(Run({"build"}), Fails(5, "did not reply within 30 s"));
}

TEST_F(CommandRequestTest, IdentifyWaitEndsWithStatusFiveAtItsTimeLimit) {
    EXPECT_THAT(Run({"identify", "--wait", "--timeout=1", "1"}),
                Ends(5, HasSubstr("0 of 1 discs identified\n"),
                     HasSubstr("1 of 1 discs were not identified in time")));
}

TEST_F(CommandRequestTest, IdentifyWaitEndsWithStatusSixIfTheDiscIsRemoved) {
    testbed::Process command = Start({"identify", "--wait", "1"});
    AwaitOutput(".*0 of 1 discs identified");
    Do("take changer=5000C500ABCD00A1 slot=1");
    EXPECT_THAT(AwaitEnd(command), Fails(6, "the disc of slot 1 was removed"));
}

TEST_F(CommandRequestTest, BuildWaitEndsWithStatusSixIfTheRequestIsWithdrawn) {
    testbed::Process command = Start({"build", "--wait"});
    Server().Await("disconnect");
    Do("identify changer=5000C500ABCD00A1 value=no");
    EXPECT_THAT(AwaitEnd(command), Fails(6, "the request is gone and no build is shown"));
}

// The status of a build is lost with the server: its absence is no end of the build.
TEST_F(CommandRequestTest, BuildWaitEndsWithStatusSixIfTheNextServerShowsNoBuild) {
    PermitKeptConnections();
    testbed::Process command = Start({"build", "--wait"});
    Server().Await("disconnect");
    Do("abort changer=5000C500ABCD00A1 client=trayprobed create=yes");
    AwaitOutput(".* 0 of 0 discs .*");
    run_.KillServer();
    StartServer();
    EXPECT_THAT(AwaitEnd(command), Fails(6, "no build is shown"));
}

// ---- servers that cannot be reached ----

using UnreachableServerTest = CommandTest;

TEST_F(UnreachableServerTest, MissingServerEndsTheCommandWithStatusThree) {
    for (const char* command : {"list", "show", "watch", "build", "abort"})
        EXPECT_THAT(Run({command}), Fails(3, "no changer server runs"));
    for (const char* command : {"identify", "mount", "eject"})
        EXPECT_THAT(Run({command, "1"}), Fails(3, "no changer server runs"));
}

TEST_F(UnreachableServerTest, ServerWithoutASocketIsNamed) {
    run_.StartServer();
    Do("add-changer changer=B7 slots=1 drives=1"); // its reply shows that it has begun
    EXPECT_THAT(Run({"list"}), Fails(3, "the changer server has no socket /tmp/carouseldn-"));
}

TEST_F(UnreachableServerTest, SocketOfADeadServerIsNamed) {
    StartServer();
    const std::string socket = "/tmp/carouseldn-" + std::to_string(Server().Pid());
    EXPECT_THAT(RunShell("rm " + socket + "; touch " + socket + "; exec $changerctl list"),
                Fails(3, "cannot connect to " + socket));
}

TEST_F(UnreachableServerTest, MissingPermissionNamesTheSocketAndItsOwner) {
    if (testbed::ReadProcFile(getpid(), "uid_map").find("4294967295") == std::string::npos)
        GTEST_SKIP() << "the user namespace has one user only";
    StartServer();
    EXPECT_THAT(
        RunShell("exec setpriv --reuid 61184 --regid 61184 --clear-groups $changerctl list"),
        Fails(3, "no permission to connect to /tmp/carouseldn-" + std::to_string(Server().Pid()) +
                     ", which belongs to root"));
}

TEST_F(UnreachableServerTest, SilentServerEndsTheCommandWithStatusFive) {
    StartServer();
    Do("pause");
    EXPECT_THAT(Run({"list", "--timeout", "1"}), Fails(5, "sent no notification within 1 s"));
}

// ---- with the daemon ----

class CommandWaitTest : public CommandTest {
protected:
    void SetUp() override {
        BeginWithDaemon();
        Do("preferences changer=5000C500ABCD00A1 identify-on-insert=no");
    }
};

TEST_F(CommandWaitTest, IdentifyWaitShowsTheProgressUntilAllDiscsAreBack) {
    for (const int slot : {0, 1})
        PutDisc(slot);
    EXPECT_THAT(Run({"identify", "--wait", "0-1"}),
                Prints(EndsWith("5000C500ABCD00A1  [##############################] "
                                "2 of 2 discs identified\n")));
    EXPECT_THAT(RequestsSoFar(), AllOf(Contains("eject 0"), Contains("eject 1")));
}

TEST_F(CommandWaitTest, BuildWaitShowsTheProgressUntilTheStatusIsGone) {
    PutBlockingDiscs(2);
    testbed::Process command = Start({"build", "--wait"});
    AwaitOutput(".* 0 of 2 discs  Building changer directory cache");
    AwaitBlockedBuild();
    TakeBlockingDisc();
    AwaitOutput(".* 1 of 2 discs  Building changer directory cache");
    AwaitBlockedBuild();
    TakeBlockingDisc();
    EXPECT_THAT(AwaitEnd(command), Prints(_));
}

TEST_F(CommandWaitTest, BuildWaitOnATerminalRedrawsOneLineAndShowsTheCursorAgain) {
    PutBlockingDiscs(2);
    const testbed::Terminal terminal(80, 24);
    testbed::Process command = StartOn(terminal, {"build", "--wait"});
    AwaitOutput("\x1B\\[\\?25l\r\x1B\\[J.*");
    AwaitBlockedBuild();
    TakeBlockingDisc();
    AwaitOutput("\x1B\\[1A\r\x1B\\[J.* 1 of 2 discs .*");
    AwaitBlockedBuild();
    TakeBlockingDisc();
    EXPECT_THAT(AwaitEnd(command), Prints(EndsWith("\x1B[?25h\n")));
}

TEST_F(CommandWaitTest, BuildWaitEndsWithStatusSixIfTheBuildIsAborted) {
    PutBlockingDiscs(1);
    testbed::Process command = Start({"build", "--wait"});

    AwaitOutput(".* 0 of 1 discs .*");
    AwaitBlockedBuild();
    Do("abort changer=5000C500ABCD00A1 client=trayprobed");
    AwaitOutput(".*\\(abort requested\\)");
    AwaitHandledNotifications();
    TakeBlockingDisc();
    EXPECT_THAT(AwaitEnd(command), Ends(6, _, HasSubstr("the build was aborted")));
}

TEST_F(CommandWaitTest, BuildWaitEndsWithStatusFiveAtItsTimeLimit) {
    PutBlockingDiscs(1);
    EXPECT_THAT(Run({"build", "--wait", "--timeout=1"}),
                Ends(5, _, HasSubstr("the build has not ended in time")));
    AwaitBlockedBuild();
    TakeBlockingDisc();
    AwaitEndOfBuild();
}

TEST_F(CommandWaitTest, InterruptedWaitShowsTheCursorAndEndsByTheSignal) {
    PutBlockingDiscs(1);
    const testbed::Terminal terminal(80, 24);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        testbed::Process command = StartOn(terminal, {"build", "--wait"});
        AwaitOutput(".* 0 of 1 discs .*");
        command.Signal(signal);
        EXPECT_THAT(AwaitEnd(command), Ends(128 + signal, EndsWith("\x1B[?25h\n"), ""));
    }
    AwaitBlockedBuild();
    TakeBlockingDisc();
    AwaitEndOfBuild();
}

} // namespace
