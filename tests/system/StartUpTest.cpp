#include "SystemTest.h"
#include "testbed/ProcessState.h"

#include <gmock/gmock.h>

#include <string>
#include <vector>

using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

namespace {

// The daemon however it is started: the title overwrites argv[0] and what follows it in memory.
class StartUpTest : public SystemTest,
                    public testing::WithParamInterface<std::vector<std::string>> {
protected:
    testbed::DaemonStart Start() const {
        return {GetParam(), {"MARK=of the environment"}};
    }
};

INSTANTIATE_TEST_SUITE_P(
    Arguments, StartUpTest,
    testing::Values(std::vector<std::string>{"trayprobed"},
                    std::vector<std::string>{"./trayprobed"}, std::vector<std::string>{""},
                    std::vector<std::string>{"/usr/sbin/trayprobed"},
                    std::vector<std::string>{"trayprobed", "--secret", "word"}));

TEST_P(StartUpTest, ProcessTitleReplacesTheArguments) {
    StartServer();
    StartDaemon(Start());
    const std::string title = testbed::ReadProcFile(run_.Daemon().Pid(), "cmdline");
    EXPECT_THAT(title, StartsWith("(trayprobed)"));
    EXPECT_THAT(title, Not(HasSubstr("word")));
}

TEST_P(StartUpTest, LogLinesHaveTheDaemonsName) {
    StartServer();
    StartDaemon(Start());
    Tell("fault on=\"eject disc\" do=error code=1050 text=no");
    Tell("put changer=5000C500ABCD00A1 slot=0");
    AwaitIdentification(0);
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
