#include "SystemTest.h"
#include "testbed/ProcessState.h"
#include "tests/unit/support/Matchers.h"

#include <string>
#include <vector>

namespace {

// The process title overwrites the arguments and the environment behind them.
class StartUpTest : public SystemTest,
                    public testing::WithParamInterface<std::vector<std::string>> {
protected:
    void SetUp() override {
        StartServer();
        StartDaemon({GetParam(), {"MARK=of the environment"}});
    }
};

INSTANTIATE_TEST_SUITE_P(Arguments, StartUpTest,
                         testing::ValuesIn(std::vector<std::vector<std::string>>{
                             {"trayprobed"},
                             {"./trayprobed"},
                             {""},
                             {"/usr/sbin/trayprobed"},
                             {"trayprobed", "--secret", "word"}}));

TEST_P(StartUpTest, ProcessTitleReplacesTheArguments) {
    const std::string title = testbed::ReadProcFile(run_.Daemon().Pid(), "cmdline");
    EXPECT_THAT(title, StartsWith("(trayprobed)"));
    EXPECT_THAT(title, Not(HasSubstr("word")));
}

TEST_P(StartUpTest, LogLinesHaveTheDaemonsName) {
    Do("fault on=\"eject disc\" do=error code=1050 text=no");
    IdentifyNewDisc(0);
    AwaitLogOfFailedEject("no", 1050);
}

using StartUpFailureTest = SystemTest;

// Enough descriptors to load the program and to log, but not for the main thread's run loop.
TEST_F(StartUpFailureTest, DaemonThatCannotStartLogsTheCauseAndExitsWithStatusZero) {
    testbed::DaemonStart start;
    start.descriptorLimit = 6;
    run_.StartDaemon(start);
    EXPECT_EQ(run_.AwaitEndOfDaemon(), 0);
    AwaitLog({Link("ChangerServerNotifications", "StartNotificationConnectCycle",
                   "fail create connect timer"),
              Link("ChangerServerNotifications", "SubscribeToChangerNotifications",
                   "fail start notification connect cycle"),
              Link("MediaIdManager", "InitMediaIdManager", "fail SubscribeToChangerNotifications"),
              Link("trayprobed_main", "main", "fail InitMediaIdManager")});
}

} // namespace
