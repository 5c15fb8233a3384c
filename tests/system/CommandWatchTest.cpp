// changerctl watch: what it prints of each change, on a pipe and on a terminal.

#include "CommandTest.h"
#include "tests/unit/support/Matchers.h"

#include <chrono>
#include <csignal>
#include <string>
#include <thread>
#include <vector>

namespace {

constexpr const char* kTime = "....-..-..T..:..:..Z ";

class CommandWatchTest : public CommandTest {
protected:
    void SetUp() override {
        std::signal(SIGINT, SIG_IGN); // as in the background of a shell; the command does not
        StartServer();
        Do("pulse every=0");
    }
    testbed::Process StartWatch(const std::vector<std::string>& options = {}) {
        return Start(ArgumentsOf(options));
    }
    testbed::Process StartWatchOn(const testbed::Terminal& terminal,
                                  const std::vector<std::string>& options = {}) {
        return StartOn(terminal, ArgumentsOf(options));
    }
    // Waits until the command has a first state, from which all changes count: makes a change
    // after the other until one is printed. The status of a client named "marker-N" remains.
    void AwaitFirstState(const std::string& changer = kChanger) {
        int marker = 0;
        do
            Do("abort changer=" + changer + " create=yes client=marker-" +
               std::to_string(++marker));
        while (!IsPrintedSoon("marker-" + std::to_string(marker)));
        while (TakeLineWith("marker-")) {
        }
    }
    // Waits for a line about the changer.
    void AwaitChange(const std::string& change) {
        AwaitOutput(kTime + ("5000C500ABCD00A1 " + change));
    }

private:
    static std::vector<std::string> ArgumentsOf(const std::vector<std::string>& options) {
        std::vector<std::string> arguments{"watch"};
        arguments.insert(arguments.end(), options.begin(), options.end());
        return arguments;
    }
    bool TakeLineWith(const std::string& text) {
        const auto has = [&](const testbed::Line& line) {
            return line.stream == testbed::Stream::CommandOutput &&
                   line.text.find(text) != std::string::npos;
        };
        return run_.OutputLog().TryTake(has).has_value();
    }
    bool IsPrintedSoon(const std::string& text) {
        bool isPrinted = false;
        for (int attempt = 0; attempt < 20 && !isPrinted; ++attempt) {
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
            isPrinted = TakeLineWith(text);
        }
        return isPrinted;
    }
};

TEST_F(CommandWatchTest, EachChangeIsALineOnAPipe) {
    testbed::Process command = StartWatch();
    AwaitFirstState();
    PutDisc(1);
    AwaitChange("slot 1 kind 1");
    AwaitChange("slot 1 slot");
    AwaitChange("slot 1 identified never");
    Do("identify changer=5000C500ABCD00A1 slot=1");
    AwaitChange("slot 1 wanted yes");
    Do("load changer=5000C500ABCD00A1 slot=1");
    AwaitChange("slot 1 drive");
    Do("ready changer=5000C500ABCD00A1 value=no");
    AwaitChange("ready no");
    Do("preferences changer=5000C500ABCD00A1 hours=3");
    AwaitChange("preferences changed");
    Do("identify changer=5000C500ABCD00A1");
    AwaitChange("build wanted yes");
    Do("abort changer=5000C500ABCD00A1 client=trayprobed create=yes");
    AwaitChange("status trayprobed 0/0 \"\" abort requested");
    Do("add-changer changer=B7 slots=1 drives=1");
    AwaitOutput(kTime + std::string("00000000000000B7 added"));
    Do("remove-changer changer=5000C500ABCD00A1");
    AwaitChange("removed");
    command.Signal(SIGINT);
    EXPECT_THAT(AwaitEnd(command), Ends(128 + SIGINT, "", ""));
}

TEST_F(CommandWatchTest, OneChangerIsWatchedIfItIsNamed) {
    Do("add-changer changer=B7 slots=1 drives=1");
    testbed::Process command = StartWatch({"B7"});
    AwaitFirstState("B7");
    PutDisc(1);
    Do("ready changer=B7 value=no");
    AwaitOutput(kTime + std::string("00000000000000B7 ready no"));
    command.Signal(SIGINT);
    EXPECT_THAT(AwaitEnd(command), Ends(128 + SIGINT, "", ""));
}

TEST_F(CommandWatchTest, EachChangeIsAnObjectOnALineWithJson) {
    testbed::Process command = StartWatch({"--json"});
    AwaitFirstState();
    Do("ready changer=5000C500ABCD00A1 value=no");
    const std::string ready = AwaitOutput(".*");
    PutDisc(1);
    const std::string slot = AwaitOutput(".*");
    command.Signal(SIGINT);
    AwaitEnd(command);
    EXPECT_THAT(RunJq("(.time | fromdate) > 1700000000 and del(.time) == "
                      "{\"changer\": \"5000C500ABCD00A1\", \"event\": \"ready\", \"ready\": false}",
                      ready),
                Prints("true\n"));
    EXPECT_THAT(
        RunJq(".event == \"slot\" and .slot == 1 and .kind == 1 and .place == \"slot\"", slot),
        Prints("true\n"));
}

TEST_F(CommandWatchTest, TextsOfTheServerAreEscaped) {
    testbed::Process command = StartWatch();
    AwaitFirstState();
    Do("abort changer=5000C500ABCD00A1 client=\"\\x1B[2J%s\\n\" create=yes");
    AwaitChange("status \\\\x1B\\[2J%s\\\\n 0/0 \"\" abort requested");
    command.Signal(SIGINT);
    AwaitEnd(command);
}

TEST_F(CommandWatchTest, RestartedServerIsShownAndWatched) {
    testbed::Process command = StartWatch();
    AwaitFirstState();
    run_.KillServer();
    AwaitOutput(kTime + std::string("- server gone"));
    StartServer();
    AwaitOutput(kTime + std::string("- server back"));
    Do("ready changer=5000C500ABCD00A1 value=no");
    AwaitChange("ready no");
    command.Signal(SIGINT);
    AwaitEnd(command);
}

// ---- on a terminal ----

TEST_F(CommandWatchTest, TerminalIsRedrawnAtEachNotification) {
    const testbed::Terminal terminal(80, 24);
    testbed::Process command = StartWatchOn(terminal);
    AwaitOutput("5000C500ABCD00A1  yes    2       0     8      0  .*");
    PutDisc(1);
    AwaitOutput("5000C500ABCD00A1  yes    2       0     8      1  .*");
    command.Signal(SIGINT);
    EXPECT_THAT(AwaitEnd(command), Ends(128 + SIGINT, EndsWith("\x1B[?25h\n"), ""));
}

TEST_F(CommandWatchTest, LinesAreClippedToTheWidthOfTheTerminalAlsoWhenItChanges) {
    Do("abort changer=5000C500ABCD00A1 client=trayprobed create=yes");
    testbed::Terminal terminal(30, 24);
    testbed::Process command = StartWatchOn(terminal, {"--color=never"});
    AwaitOutput("5000C500ABCD00A1  yes    2   \r"); // one column less: none may wrap
    terminal.Resize(40, 24);
    AwaitOutput("5000C500ABCD00A1  yes    2       0     \r");
    command.Signal(SIGINT);
    AwaitEnd(command);
}

TEST_F(CommandWatchTest, TerminalShowsThatTheServerIsGone) {
    const testbed::Terminal terminal(80, 24);
    testbed::Process command = StartWatchOn(terminal, {"--color=never"});
    AwaitOutput(".*CHANGER  .*");
    run_.KillServer();
    AwaitOutput("The changer server is gone\\.\r");
    StartServer();
    AwaitOutput(".*CHANGER  .*");
    command.Signal(SIGTERM);
    EXPECT_THAT(AwaitEnd(command), Ends(128 + SIGTERM, EndsWith("\x1B[?25h\n"), ""));
}

TEST_F(CommandWatchTest, DumbTerminalGetsALineForEachChange) {
    environment_ = {"TERM=dumb"};
    const testbed::Terminal terminal(80, 24);
    testbed::Process command = StartWatchOn(terminal);
    AwaitFirstState();
    Do("ready changer=5000C500ABCD00A1 value=no");
    AwaitChange("ready no\r");
    command.Signal(SIGINT);
    EXPECT_THAT(AwaitEnd(command), Ends(128 + SIGINT, "", ""));
}

} // namespace
