/* Finding the server: the process table, the server's process, the paths of its sockets. */

#include "ChangerServerConnectionLib/ChangerServerMessages.h"
#include "ChangerServerConnectionLib/ChangerServerNotifications.h"
#include "ProcessTable.h"
#include "support/Chain.h"
#include "support/LogCapture.h"
#include "support/Matchers.h"
#include "support/WithoutMemory.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

namespace {

constexpr VErrCode kNotFound = 0x40000000000003E9;

const char kMessages[] = "ChangerServerConnectionLib/ChangerServerMessages";
const char kNotifications[] = "ChangerServerConnectionLib/ChangerServerNotifications";

// The list read and the result of the call.
struct ReadList {
    int error = -1;
    std::vector<std::string> names;
    bool hasList = false;
};

ReadList ReadProcesses() {
    kinfo_proc* list = nullptr;
    std::size_t count = 77;
    ReadList read;
    read.error = GetBSDProcessList(&list, &count);
    const std::unique_ptr<kinfo_proc, decltype(&free)> owned(list, free);
    read.hasList = list != nullptr;
    for (std::size_t i = 0; i < count; ++i)
        read.names.emplace_back(list[i].kp_proc.p_comm);
    return read;
}

void ExpectProcesses(const std::vector<std::string>& names, int calls) {
    const ReadList read = ReadProcesses();
    EXPECT_EQ(read.error, 0);
    EXPECT_EQ(read.names, names);
    EXPECT_EQ(CountTableCalls(), calls);
}

// ---- the table ----

TEST(ProcessList, KeepsTheOrderOfTheTable) {
    SetProcesses({{1, "init"}, {70, "carouseld"}, {9, "sh"}});
    ExpectProcesses({"init", "carouseld", "sh"}, 2);
}

TEST(ProcessList, IsReadAgainIfTheTableGrew) {
    const std::vector<Process> two = {{1, "a"}, {2, "b"}};
    const std::vector<Process> four = {{1, "a"}, {2, "b"}, {3, "c"}, {4, "d"}};
    AnswerProcessTable({{0, two}, {0, four}, {0, two}, {0, four}, {0, four}, {0, four}});
    ExpectProcesses({"a", "b", "c", "d"}, 6);
}

TEST(ProcessList, IsReadAgainEachTimeTheTableGrew) {
    constexpr std::size_t kTimes = 100;
    std::vector<TableAnswer> answers;
    std::vector<Process> processes = {{1, "init"}};
    for (std::size_t i = 0; i < kTimes; ++i) {
        answers.push_back({0, processes});
        processes.insert(processes.end(), 2, {2, "new"});
        answers.push_back({0, processes});
    }
    answers.push_back({0, processes});
    AnswerProcessTable(std::move(answers));
    const ReadList read = ReadProcesses();
    EXPECT_EQ(read.error, 0);
    EXPECT_EQ(read.names.size(), 1 + 2 * kTimes);
    EXPECT_EQ(CountTableCalls(), static_cast<int>(2 * kTimes + 2));
}

TEST(ProcessList, IsShorterIfTheTableShrank) {
    AnswerProcessTable({{0, {{1, "a"}, {2, "b"}, {3, "c"}}}, {0, {{1, "a"}}}});
    ExpectProcesses({"a"}, 2);
}

TEST(ProcessList, FailsWithTheErrorOfEitherCall) {
    const struct {
        std::vector<TableAnswer> answers;
        int error;
        int calls;
    } cases[] = {
        {{{EPERM, {}}}, EPERM, 1},
        {{{ENOMEM, {}}}, ENOMEM, 1}, // retried only after the second call
        {{{0, {{1, "a"}}}, {EIO, {}}}, EIO, 2},
    };
    for (const auto& each : cases) {
        AnswerProcessTable(each.answers);
        const ReadList read = ReadProcesses();
        EXPECT_EQ(read.error, each.error);
        EXPECT_FALSE(read.hasList);
        EXPECT_THAT(read.names, IsEmpty());
        EXPECT_EQ(CountTableCalls(), each.calls);
    }
}

TEST(ProcessList, FailsWithoutMemory) {
    SetProcesses({{1, "a"}});
    kinfo_proc* list = nullptr;
    std::size_t count = 77;
    EXPECT_EQ(WithoutMemory([&] { return GetBSDProcessList(&list, &count); }), ENOMEM);
    EXPECT_EQ(list, nullptr);
    EXPECT_EQ(count, 0u);
    EXPECT_EQ(CountTableCalls(), 1);
}

TEST(ProcessListDeathTest, WrongArgumentsEndTheProcess) {
    kinfo_proc record = {};
    kinfo_proc* list = nullptr;
    kinfo_proc* used = &record;
    std::size_t count = 0;
    const auto aborted = testing::KilledBySignal(SIGABRT);
    EXPECT_EXIT(GetBSDProcessList(nullptr, &count), aborted,
                "ChangerServerMessages:[0-9]+: failed assertion `procList != NULL'\n");
    EXPECT_EXIT(GetBSDProcessList(&used, &count), aborted,
                "failed assertion `\\*procList == NULL'\n");
    EXPECT_EXIT(GetBSDProcessList(&list, nullptr), aborted,
                "failed assertion `procCount != NULL'\n");
}

// ---- the process ----

TEST(ServerPID, IsThatOfTheFirstMatchInTheTable) {
    SetProcesses({{80, "sh"}, {70, "carouseld"}, {60, "carouseld"}});
    SInt32 found = 0;
    SInt32 pid = 0;
    EXPECT_THAT(TakeChain(GetChangerServerPID(&found, &pid)), IsEmpty());
    EXPECT_EQ(found, 1);
    EXPECT_EQ(pid, 70);
}

TEST(ServerPID, IsThatOfANameThatContainsTheWord) {
    const struct {
        const char* name;
        bool matches;
    } cases[] = {
        {"carouseld", true},     {"my-carouseld", true},
        {"carouseld-sim", true}, {"xcarouseldxxxxxx", true},
        {"carousel", false},     {"Carouseld", false},
        {"arouseld", false},     {"", false},
    };
    for (const auto& [name, matches] : cases) {
        SetProcesses({{1, "init"}, {5, name}});
        SInt32 found = 7;
        SInt32 pid = 77;
        EXPECT_THAT(TakeChain(GetChangerServerPID(&found, &pid)), IsEmpty());
        EXPECT_EQ(found, matches ? 1 : 0) << name;
        EXPECT_EQ(pid, matches ? 5 : 77) << name;
    }
}

TEST(ServerPID, FailsWithTheErrorOfTheTable) {
    AnswerProcessTable({{EMFILE, {}}});
    SInt32 found = 7;
    SInt32 pid = 77;
    EXPECT_EQ(
        TakeChain(GetChangerServerPID(&found, &pid)),
        (Chain{{"unable to get BSD process list", "GetChangerServerPID", kMessages, EMFILE}}));
    EXPECT_EQ(found, 0);
}

// ---- the paths ----

struct PathBuilder {
    VErrLink* (*build)(char* path, std::size_t size);
    const char* function;
    const char* file;
    const char* path; // for the server with process id 4711
};

void PrintTo(const PathBuilder& builder, std::ostream* out) {
    *out << builder.function;
}

class SocketPath : public testing::TestWithParam<PathBuilder> {
protected:
    SocketPath() {
        SetProcesses({{4711, "carouseld"}});
    }

    char path[104] = "before";
};
INSTANTIATE_TEST_SUITE_P(OfBothChannels, SocketPath,
                         testing::Values(PathBuilder{GetChangerServerMessageSocketPath,
                                                     "GetChangerServerMessageSocketPath", kMessages,
                                                     "/tmp/carouseld-4711"},
                                         PathBuilder{GetChangerServerNotificationSocketPath,
                                                     "GetChangerServerNotificationSocketPath",
                                                     kNotifications, "/tmp/carouseldn-4711"}));

TEST_P(SocketPath, ContainsTheProcessId) {
    EXPECT_THAT(TakeChain(GetParam().build(path, sizeof path)), IsEmpty());
    EXPECT_STREQ(path, GetParam().path);
}

TEST_P(SocketPath, ContainsTheNewProcessIdAfterARestart) {
    TakeChain(GetParam().build(path, sizeof path));
    SetProcesses({{4712, "carouseld"}});
    TakeChain(GetParam().build(path, sizeof path));
    EXPECT_EQ(std::string(path).substr(std::string(path).size() - 4), "4712");
}

TEST_P(SocketPath, IsTruncatedToTheSize) {
    EXPECT_THAT(TakeChain(GetParam().build(path, 8)), IsEmpty());
    EXPECT_STREQ(path, "/tmp/ca");
}

TEST_P(SocketPath, FailsWithoutServer) {
    SetProcesses({{1, "init"}});
    EXPECT_EQ(
        TakeChain(GetParam().build(path, sizeof path)),
        (Chain{{"fail find changer server", GetParam().function, GetParam().file, kNotFound}}));
}

TEST_P(SocketPath, FailsWithoutTheTable) {
    AnswerProcessTable({{ENFILE, {}}});
    EXPECT_EQ(
        TakeChain(GetParam().build(path, sizeof path)),
        (Chain{{"unable to get BSD process list", "GetChangerServerPID", kMessages, ENFILE},
               {"fail get changer server PID", GetParam().function, GetParam().file, ENFILE}}));
}

// ---- processes ----

bool AreSame(const ChangerServerProcess& one, const ChangerServerProcess& other) {
    const bool same = IsSameChangerServerProcess(&one, &other);
    EXPECT_EQ(IsSameChangerServerProcess(&other, &one), same);
    return same;
}

TEST(ServerProcess, IsTheSameOnlyWithTheSameIdAndStartTime) {
    EXPECT_TRUE(AreSame({7, {100, 20000}}, {7, {100, 20000}}));
    EXPECT_FALSE(AreSame({7, {100, 20000}}, {8, {100, 20000}}));
    EXPECT_FALSE(AreSame({7, {100, 20000}}, {7, {101, 20000}}));
    EXPECT_FALSE(AreSame({7, {100, 20000}}, {7, {100, 30000}}));
}

TEST(ServerProcess, UnknownStartTimeEqualsAny) {
    EXPECT_TRUE(AreSame({7, {0, 0}}, {7, {100, 20000}}));
    EXPECT_TRUE(AreSame({7, {0, 0}}, {7, {0, 0}}));
    EXPECT_FALSE(AreSame({7, {0, 0}}, {8, {0, 0}}));
    // Microseconds alone make a start time known.
    EXPECT_FALSE(AreSame({7, {0, 20000}}, {7, {0, 30000}}));
}

TEST(ServerProcess, StartTimeIsReadOrZero) {
    for (const timeval& startTime : {timeval{100, 20000}, timeval{}}) {
        ChangerServerProcess process = {1, {2, 3}};
        SetStartTime(startTime);
        GetChangerServerProcess(7, &process);
        EXPECT_EQ(process.pid, 7);
        EXPECT_EQ(process.startTime.tv_sec, startTime.tv_sec);
        EXPECT_EQ(process.startTime.tv_usec, startTime.tv_usec);
    }
}

} // namespace
