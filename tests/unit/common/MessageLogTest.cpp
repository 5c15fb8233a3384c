/* The two logs, and the form of a message in each. */

#include "common/MessageLog.h"

#include "common/VErr.h"
#include "support/LogCapture.h"
#include "support/Matchers.h"
#include "support/TemporaryTree.h"

#include <gtest/gtest.h>

#include <time.h>

#include <cstdarg>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <limits>
#include <sstream>
#include <string>

namespace {

constexpr time_t kTime = 1'000'000'000;
time_t g_time = kTime;

} // namespace

extern "C" time_t __wrap_time(time_t*) {
    return g_time;
}

namespace {

constexpr char kStamp[] = "Sun Sep  9 01:46:40 2001\n";

__attribute__((format(printf, 3, 4))) void LogString(VErrCode code, UInt16 level,
                                                     const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    LogErrStr(code, level, format, arguments);
    va_end(arguments);
}

class MessageLog : public testing::Test {
protected:
    MessageLog() {
        InitVErrSystem();
        g_time = kTime;
    }

    LogCapture log;
};

TEST_F(MessageLog, MessageGoesToTheSystemLogAtAlertPriority) {
    LogMessage("%s %d", "plain", 1);
    LogErr("%s %d", "error", 2);
    EXPECT_THAT(log.Take(), ElementsAre("plain 1", "error 2"));
}

TEST_F(MessageLog, FileNameIsThePartAfterTheLastSlash) {
    EXPECT_STREQ(GetFileNameFromPath("common/CFHelpers"), "CFHelpers");
    EXPECT_STREQ(GetFileNameFromPath("a/b/c"), "c");
    EXPECT_STREQ(GetFileNameFromPath("a/"), "");
    EXPECT_STREQ(GetFileNameFromPath("none"), "none");
}

TEST_F(MessageLog, MessageWithoutMemoryForItsLinkIsLoggedWithItsCodeUpToTheLevel) {
    LogString(kVErrCodeDefault, 50, "fail %d", 1);
    LogString(kVErrFacilityBase + 1001, 50, "fail %d", 2);
    LogString(2, 50, "fail %d", 3);
    LogString(-1, 0, "fail %d", 4);
    LogString(2, 51, "above the level");
    EXPECT_THAT(log.Take(), ElementsAre("fail 1", "fail 2", "VErrCode = 1001", "fail 3", "err = 2",
                                        "fail 4", "err = -1"));
}

TEST_F(MessageLog, SiteWithoutMemoryForItsLinkIsLogged) {
    LogErrFileFuncLine("a/b/Module", "Function", 5'000'000'000);
    EXPECT_THAT(log.Take(), ElementsAre("Module:5000000000, Function"));
}

// Errors are written to a file.
class MessageLogFile : public MessageLog {
protected:
    MessageLogFile() {
        setenv("TZ", "UTC", 1);
        tzset();
        SetVErrLogFilePath(path.c_str());
    }
    ~MessageLogFile() override {
        TermVErrSystem();
        InitVErrSystem();
    }

    std::string Content() const {
        std::stringstream content;
        content << std::ifstream(path).rdbuf();
        return content.str();
    }

    const TemporaryTree tree;
    const std::string path = tree.Path("log");
};

TEST_F(MessageLogFile, EachMessageIsALineThatBeginsWithATimeStamp) {
    LogErr("fail %d", 1);
    FLogMessage(path.c_str(), "fail %d", 2);
    EXPECT_EQ(Content(), std::string(kStamp) + "fail 1\n" + kStamp + "fail 2\n");
}

TEST_F(MessageLogFile, MessageThatEndsWithANewlineAddsAnEmptyLine) {
    LogErr("fail\n");
    EXPECT_EQ(Content(), std::string(kStamp) + "fail\n\n");
}

TEST_F(MessageLogFile, MessageOfAYearBeyondIntHasNoTimeStamp) {
    g_time = std::numeric_limits<time_t>::max();
    LogErr("fail");
    EXPECT_EQ(Content(), "fail\n");
}

TEST_F(MessageLogFile, MessagesAreAppendedToAnExistingFile) {
    std::ofstream(path) << "before\n";
    LogErr("fail");
    EXPECT_EQ(Content(), std::string("before\n") + kStamp + "fail\n");
}

TEST_F(MessageLogFile, PlainMessageGoesToTheSystemLog) {
    LogMessage("plain");
    EXPECT_THAT(log.Take(), ElementsAre("plain"));
    EXPECT_FALSE(std::filesystem::exists(path));
}

TEST_F(MessageLogFile, MessagesWithoutMemoryForTheirLinkAreWritten) {
    LogString(2, 50, "fail");
    LogErrFileFuncLine("a/Module", "Function", 3);
    EXPECT_EQ(Content(), std::string(kStamp) + "fail\n" + kStamp + "err = 2\n" + kStamp +
                             "Module:3, Function\n");
}

TEST_F(MessageLogFile, MessagesAreDroppedWithoutTheDirectory) {
    std::filesystem::remove_all(tree.Root());
    LogErr("fail");
    EXPECT_FALSE(std::filesystem::exists(tree.Root()));
}

} // namespace
