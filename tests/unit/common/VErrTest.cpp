/* Error chains: raising, inheriting, logging, and shortage of memory. */

#include "common/VErr.h"

#include "AllocationFaults.h"
#include "common/MessageLog.h"
#include "support/Chain.h"
#include "support/LogCapture.h"
#include "support/Matchers.h"
#include "support/WithoutMemory.h"

#include <gtest/gtest.h>

#include <pthread.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <string>
#include <thread>

namespace {

const char kSourcePath[] = "tests/unit/VErrTest";

class VErrTest : public testing::Test {
protected:
    VErrTest() {
        InitVErrSystem();
    }
    ~VErrTest() override {
        VErrCatch(&err);
    }

    // Raises with the site "Module", "Function" and the given line.
    VErrLink* At(SInt64 line, VErrLink* thrown) {
        return VErrRaise(thrown, "some/where/Module", "Function", line);
    }

    VErrLink* err = nullptr;
    LogCapture log;
};

// ---- raising ----

TEST_F(VErrTest, PlainRaiseOnAnEmptySlotHasTheDefaults) {
    VErrLink* raised = VERR_RAISE(VErrThrow(&err, "fail %s %d", "thing", 7));
    const SInt64 line = __LINE__ - 1;
    EXPECT_EQ(raised, err);
    EXPECT_EQ(err->level, 50);
    EXPECT_EQ(err->code, 0x4000000000000001);
    EXPECT_EQ(err->line, line);
    EXPECT_STREQ(err->message, "fail thing 7");
    EXPECT_STREQ(err->funcName, "TestBody");
    EXPECT_STREQ(err->fileName, "tests/unit/VErrTest");
    EXPECT_EQ(err->next, nullptr);
}

TEST_F(VErrTest, MessageHasNoLengthLimit) {
    const std::string text(5000, 'x');
    VErrThrow(&err, "fail %s", text.c_str());
    EXPECT_EQ(err->message, "fail " + text);
}

TEST_F(VErrTest, PlainRaiseInheritsCodeAndLevel) {
    VErrThrowLevelWithErrCode(&err, 10, EIO, "inner");
    VErrThrow(&err, "outer");
    EXPECT_EQ(VErrGetErrCode(err), EIO);
    EXPECT_EQ(VErrGetErrLevel(err), 10);
    EXPECT_STREQ(err->next->message, "inner");
}

TEST_F(VErrTest, RaiseWithACodeKeepsThatCode) {
    VErrThrowWithErrCode(&err, EIO, "inner");
    VErrThrowWithErrCode(&err, ENOENT, "outer");
    EXPECT_EQ(VErrGetErrCode(err), ENOENT);
    EXPECT_EQ(VErrGetErrCode(err->next), EIO);
}

TEST_F(VErrTest, RaiseWithALevelKeepsThatLevel) {
    VErrThrowLevelWithErrCode(&err, 10, EIO, "inner");
    VErrThrowLevelWithErrCode(&err, 20, kVErrCodeDefault, "outer");
    EXPECT_EQ(VErrGetErrLevel(err), 20);
    EXPECT_EQ(VErrGetErrCode(err), EIO);
}

TEST_F(VErrTest, ThrowLevelIgnoresTheLevelGiven) {
    VErrThrowLevel(&err, 10, "fail %d", 1);
    EXPECT_EQ(VErrGetErrLevel(err), 50);
    EXPECT_EQ(VErrGetErrCode(err), kVErrCodeDefault);
    EXPECT_STREQ(err->message, "fail 1");
}

TEST_F(VErrTest, SiteRecordedAgainIsReplaced) {
    At(1, VErrThrow(&err, "fail"));
    VErrAddFileFuncLine(err, "a/B", "Other", 2);
    EXPECT_EQ(ReadChain(err), (Chain{{"fail", "Other", "a/B"}}));
    EXPECT_EQ(err->line, 2);
}

TEST_F(VErrTest, CatchEmptiesTheSlot) {
    VErrThrow(&err, "inner");
    VErrThrow(&err, "outer");
    VErrCatch(&err);
    EXPECT_EQ(err, nullptr);
    VErrCatch(&err);
    EXPECT_EQ(err, nullptr);
}

TEST_F(VErrTest, MessageIsTruncatedToTheBufferAndTerminated) {
    VErrThrow(&err, "0123456789");
    char buffer[] = "before";
    VErrGetErrMessage(err, nullptr, sizeof buffer);
    VErrGetErrMessage(err, buffer, 0);
    EXPECT_STREQ(buffer, "before");
    VErrGetErrMessage(err, buffer, 5);
    EXPECT_STREQ(buffer, "0123");
    VErrGetErrMessage(err, buffer, 1);
    EXPECT_STREQ(buffer, "");
}

TEST_F(VErrTest, MessageOfALinkWithoutOneIsEmpty) {
    char buffer[] = "before";
    VErrGetErrMessage(&g_genericVErr, buffer, sizeof buffer);
    EXPECT_STREQ(buffer, "");
}

// ---- the steps of a sequence ----

VErrLink* FailingCall() {
    VErrLink* err = nullptr;
    return VERR_RAISE(VErrThrowWithErrCode(&err, EBUSY, "fail FailingCall"));
}

TEST_F(VErrTest, SuccessfulStepRaisesNothing) {
    VERR_STEP(err, static_cast<VErrLink*>(nullptr), "fail step");
    const char* object = nullptr;
    VERR_GET(err, object, "object", "fail get");
    EXPECT_STREQ(object, "object");
    VERR_NEED(err, true, "fail need");
    VERR_STATUS(err, 0, "fail status");
    EXPECT_EQ(err, nullptr);
}

TEST_F(VErrTest, FailingStepAddsALinkToTheChainOfItsCall) {
    VERR_STEP(err, FailingCall(), "fail step %d", 2);
    EXPECT_EQ(ReadChain(err), (Chain{{"fail FailingCall", "FailingCall", kSourcePath, EBUSY},
                                     {"fail step 2", "TestBody", kSourcePath, EBUSY}}));
}

TEST_F(VErrTest, FailingNeedStatusAndGetRaiseOneLink) {
    VERR_NEED(err, false, "fail need %d", 1);
    EXPECT_EQ(ReadChain(err), (Chain{{"fail need 1", "TestBody", kSourcePath}}));
    VErrCatch(&err);
    VERR_STATUS(err, EAGAIN, "fail status %d", 3);
    EXPECT_EQ(ReadChain(err), (Chain{{"fail status 3", "TestBody", kSourcePath, EAGAIN}}));
    VErrCatch(&err);
    const char* object = "before";
    VERR_GET(err, object, nullptr, "fail get %d", 4);
    EXPECT_EQ(object, nullptr);
    EXPECT_EQ(ReadChain(err), (Chain{{"fail get 4", "TestBody", kSourcePath}}));
}

TEST_F(VErrTest, FirstFailingStepSkipsTheRest) {
    int calls = 0;
    VERR_NEED(err, false, "first");
    VERR_STEP(err, (++calls, FailingCall()), "second");
    VERR_NEED(err, ++calls < 0, "third");
    VERR_STATUS(err, ++calls, "fourth");
    VERR_GET(err, calls, 1, "fifth");
    EXPECT_EQ(calls, 0);
    EXPECT_EQ(ReadChain(err), (Chain{{"first", "TestBody", kSourcePath}}));
}

// ---- logging ----

TEST_F(VErrTest, InheritedCodeIsLoggedOnEachLink) {
    At(1, VErrThrowWithErrCode(&err, 0x4000000000000000 + 1024, "timed out"));
    At(2, VErrThrow(&err, "fail outer"));
    VErrLog(err);
    EXPECT_THAT(log.Take(), ElementsAre("Module:1, Function: timed out (VErrCode = 1024)",
                                        "Module:2, Function: fail outer (VErrCode = 1024)"));
}

// Operators search logs for these numbers, and the server uses some of them.
TEST_F(VErrTest, EachCodeExceptTheDefaultIsLoggedBehindTheMessage) {
    struct {
        VErrCode code;
        const char* suffix;
    } const cases[] = {
        {kVErrCodeDefault, ""},
        {kVErrCodeUserAborted, " (VErrCode = 2)"},
        {kVErrCodeNotFound, " (VErrCode = 20)"},
        {kVErrCodeStringEncoding, " (VErrCode = 100)"},
        {kVErrCodeServerNotFound, " (VErrCode = 1001)"},
        {kVErrCodeConnectFailed, " (VErrCode = 1002)"},
        {kVErrCodeReplyTimeout, " (VErrCode = 1004)"},
        {kVErrCodeConnectionLost, " (VErrCode = 1005)"},
        {kVErrCodeMountUnderWay, " (VErrCode = 1020)"},
        {kVErrCodeServerBusy, " (VErrCode = 1021)"},
        {kVErrCodeCommandTimedOut, " (VErrCode = 1024)"},
        {5, " (err = 5)"},
        {-2, " (err = -2)"},
        {0, " (err = 0)"},
        {LLONG_MIN, " (err = -9223372036854775808)"},
        {0x3FFFFFFFFFFFFFFF, " (err = 4611686018427387903)"},
        {0x4000000000000000, " (VErrCode = 0)"},
        {0x4000000000000002, " (VErrCode = 2)"},
        {LLONG_MAX, " (VErrCode = 4611686018427387903)"},
    };
    for (const auto& each : cases) {
        At(12, VErrThrowWithErrCode(&err, each.code, "fail"));
        VErrLog(err);
        EXPECT_THAT(log.Take(),
                    ElementsAre(std::string("Module:12, Function: fail") + each.suffix));
        VErrCatch(&err);
    }
}

TEST_F(VErrTest, ChainIsLoggedOldestFirstAndUnchanged) {
    At(1, VErrThrow(&err, "first"));
    At(2, VErrThrow(&err, "second"));
    At(3, VErrThrow(&err, "third"));
    const Chain before = ReadChain(err);
    VErrLog(err);
    EXPECT_THAT(log.Take(), ElementsAre("Module:1, Function: first", "Module:2, Function: second",
                                        "Module:3, Function: third"));
    EXPECT_EQ(ReadChain(err), before);
}

TEST_F(VErrTest, OnlyTheLevelOfTheNewestLinkDecidesWhetherAChainIsLogged) {
    At(1, VErrThrowLevelWithErrCode(&err, 51, EIO, "quiet"));
    VErrLog(err);
    EXPECT_THAT(log.Take(), IsEmpty());
    At(2, VErrThrowLevelWithErrCode(&err, 49, EIO, "loud"));
    VErrLog(err);
    EXPECT_THAT(log.Take(), ElementsAre("Module:1, Function: quiet (err = 5)",
                                        "Module:2, Function: loud (err = 5)"));
}

TEST_F(VErrTest, SuccessIsNotLogged) {
    VErrLog(nullptr);
    VErrLogCore(nullptr);
    VErrLogLink(nullptr);
    VErrLogAndCatch(&err);
}

TEST_F(VErrTest, LogAndCatchLogsTheChainAndEmptiesTheSlot) {
    At(1, VErrThrow(&err, "fail"));
    VErrLogAndCatch(&err);
    EXPECT_EQ(err, nullptr);
    EXPECT_THAT(log.Take(), ElementsAre("Module:1, Function: fail"));
}

TEST_F(VErrTest, MissingTextsOfALinkAreLoggedAsUnknown) {
    err = GetVErrLink();
    err->code = kVErrCodeDefault;
    VErrLogLink(err);
    EXPECT_THAT(log.Take(), ElementsAre("<UNKNOWN>:0, <UNKNOWN>: <UNKNOWN>"));
}

TEST_F(VErrTest, PercentSignsInTextsAreNotFormats) {
    At(1, VErrThrow(&err, "%s", "100% %s %n"));
    VErrLog(err);
    EXPECT_THAT(log.Take(), ElementsAre("Module:1, Function: 100% %s %n"));
}

// A failed walk raises one link per directory level: logging and releasing must not recurse.
TEST_F(VErrTest, LongChainIsLoggedAndReleasedWithASmallStack) {
    constexpr SInt64 kLinks = 10000;
    for (SInt64 line = 1; line <= kLinks; ++line)
        At(line, VErrThrow(&err, "fail"));
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstacksize(&attributes, 128 * 1024);
    const auto logAndCatch = [](void* slot) -> void* {
        VErrLogAndCatch(static_cast<VErrLink**>(slot));
        return nullptr;
    };
    pthread_t thread;
    ASSERT_EQ(pthread_create(&thread, &attributes, logAndCatch, &err), 0);
    pthread_join(thread, nullptr);
    pthread_attr_destroy(&attributes);

    const auto lines = log.Take();
    ASSERT_EQ(lines.size(), static_cast<std::size_t>(kLinks));
    EXPECT_EQ(lines.front(), "Module:1, Function: fail");
    EXPECT_EQ(lines.back(), "Module:10000, Function: fail");
}

// ---- without memory ----

// The allocation that fails: that of the link (1) or that of the message (2).
class RaiseWithoutMemory : public VErrTest, public testing::WithParamInterface<std::size_t> {
protected:
    void Throw(UInt16 level, VErrCode code, const char* text) {
        const AllocationFault fault(GetParam());
        VErrThrowLevelWithErrCode(&err, level, code, "fail %s, %d", text, 2);
    }
};
INSTANTIATE_TEST_SUITE_P(OfTheLinkAndOfItsMessage, RaiseWithoutMemory, testing::Values(1, 2));

TEST_P(RaiseWithoutMemory, LogsTheMessageAndReturnsTheSharedLink) {
    Throw(50, kVErrCodeDefault, "one");
    EXPECT_EQ(err, &g_genericVErr);
    EXPECT_THAT(log.Take(), ElementsAre("fail one, 2"));
}

TEST_P(RaiseWithoutMemory, LogsTheCodeOnASeparateLine) {
    Throw(50, kVErrFacilityBase + 1001, "one");
    EXPECT_THAT(log.Take(), ElementsAre("fail one, 2", "VErrCode = 1001"));
    Throw(50, -2, "two");
    EXPECT_THAT(log.Take(), ElementsAre("fail two, 2", "err = -2"));
}

TEST_P(RaiseWithoutMemory, LogsNothingAboveTheLevel) {
    Throw(51, EIO, "one");
    EXPECT_EQ(err, &g_genericVErr);
    EXPECT_THAT(log.Take(), IsEmpty());
}

TEST_P(RaiseWithoutMemory, LogsAndFreesTheChainInTheSlotFirst) {
    At(1, VErrThrow(&err, "first"));
    At(2, VErrThrow(&err, "second"));
    Throw(50, kVErrCodeDefault, "third");
    EXPECT_EQ(err, &g_genericVErr);
    EXPECT_THAT(log.Take(), ElementsAre("Module:1, Function: first", "Module:2, Function: second",
                                        "fail third, 2"));
}

TEST_P(RaiseWithoutMemory, FreesAChainAboveTheLevelWithoutLoggingIt) {
    At(1, VErrThrowLevelWithErrCode(&err, 51, EIO, "quiet"));
    Throw(50, kVErrCodeDefault, "loud");
    EXPECT_EQ(err, &g_genericVErr);
    EXPECT_THAT(log.Take(), ElementsAre("fail loud, 2"));
}

TEST_P(RaiseWithoutMemory, LogsTheSiteAndStoresNothingInTheSharedLink) {
    Throw(50, kVErrCodeDefault, "one");
    At(77, err);
    EXPECT_THAT(log.Take(), ElementsAre("fail one, 2", "Module:77, Function"));
    EXPECT_EQ(g_genericVErr.line, 0);
    EXPECT_EQ(g_genericVErr.funcName, nullptr);
    EXPECT_EQ(g_genericVErr.fileName, nullptr);
}

// Begins each test with the shared link in the slot.
class OnTheSharedLink : public VErrTest {
protected:
    OnTheSharedLink() {
        WithoutMemory([&] { return VErrThrow(&err, "lost"); });
    }
    void SetUp() override {
        EXPECT_THAT(log.Take(), ElementsAre("lost"));
        ASSERT_EQ(err, &g_genericVErr);
    }
};

TEST_F(OnTheSharedLink, PlainRaiseInheritsLevelZero) {
    At(1, VErrThrow(&err, "later"));
    EXPECT_EQ(err->level, 0);
    EXPECT_EQ(err->code, kVErrCodeDefault);
    EXPECT_EQ(err->next, &g_genericVErr);
    At(2, VErrThrowLevelWithErrCode(&err, 7, EIO, "last"));
    EXPECT_EQ(err->level, 7);
    EXPECT_EQ(err->code, EIO);
    VErrLog(err);
    EXPECT_THAT(log.Take(),
                ElementsAre("Module:1, Function: later", "Module:2, Function: last (err = 5)"));
    EXPECT_EQ(err->next->next, &g_genericVErr);
}

TEST_F(OnTheSharedLink, TheSharedLinkIsNotLogged) {
    VErrLog(err);
    VErrLogCore(err);
    VErrLogLink(err);
    EXPECT_THAT(log.Take(), IsEmpty());
}

TEST_F(OnTheSharedLink, CatchLeavesTheSharedLinkUnchanged) {
    VErrCatch(&err);
    EXPECT_EQ(err, nullptr);
    EXPECT_EQ(g_genericVErr.message, nullptr);
    EXPECT_EQ(g_genericVErr.level, 0);
    EXPECT_EQ(g_genericVErr.code, kVErrCodeDefault);
    EXPECT_EQ(g_genericVErr.next, nullptr);
}

TEST_F(OnTheSharedLink, ReleasingAChainStopsAtTheSharedLink) {
    At(1, VErrThrow(&err, "later"));
    VErrCatch(&err);
    EXPECT_EQ(err, nullptr);
    EXPECT_EQ(g_genericVErr.next, nullptr);
}

TEST_F(OnTheSharedLink, RaisingAgainWithoutMemoryLogsTheLinksAboveTheSharedLink) {
    At(1, VErrThrow(&err, "later"));
    WithoutMemory([&] { return VErrThrow(&err, "lost again"); });
    EXPECT_EQ(err, &g_genericVErr);
    EXPECT_THAT(log.Take(), ElementsAre("Module:1, Function: later", "lost again"));
}

TEST_F(VErrTest, SiteWithoutMemoryIsItsLineOnly) {
    for (const std::size_t nth : {1u, 2u}) {
        At(1, VErrThrow(&err, "fail"));
        WithoutMemory([&] { VErrAddFileFuncLine(err, "other/File", "Other", 2); }, nth);
        EXPECT_EQ(ReadChain(err), (Chain{{"fail", "Function", "some/where/Module"}}));
        EXPECT_EQ(err->line, 2);
        VErrCatch(&err);

        VErrThrow(&err, "fail");
        WithoutMemory([&] { return At(3, err); }, nth);
        VErrLog(err);
        EXPECT_THAT(log.Take(), ElementsAre("<UNKNOWN>:3, <UNKNOWN>: fail"));
        VErrCatch(&err);
    }
}

// The C locale lacks this wide character: vsnprintf() fails.
TEST_F(VErrTest, MessageThatCannotBeFormattedIsLoggedAsWithoutMemory) {
    VErrThrow(&err, "%ls", L"\u20ac");
    EXPECT_EQ(err, &g_genericVErr);
    EXPECT_THAT(log.Take(), ElementsAre("(cannot be formatted)"));
}

TEST_F(VErrTest, ThreadsRaiseConcurrentlyWithAndWithoutMemory) {
    const auto raise = [] {
        for (int i = 0; i < 100; ++i) {
            VErrLink* own = nullptr;
            WithoutMemory([&] { return VErrThrow(&own, "lost"); });
            VERR_RAISE(VErrThrow(&own, "later"));
            VErrLogAndCatch(&own);
        }
    };
    std::thread threads[] = {std::thread(raise), std::thread(raise), std::thread(raise)};
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(log.Take().size(), 600u);
}

// ---- start and end ----

TEST_F(VErrTest, InitSucceedsAndResets) {
    SetVErrLogFilePath("/dev/null");
    char* path = g_vErrLogPath;
    ASSERT_STREQ(path, "/dev/null");
    g_genericVErr.line = 5;
    EXPECT_EQ(InitVErrSystem(), 1);
    EXPECT_EQ(g_vErrLogPath, nullptr);
    EXPECT_EQ(g_genericVErr.line, 0);
    EXPECT_EQ(g_genericVErr.code, kVErrCodeDefault);
    EXPECT_EQ(g_genericVErr.level, 0);
    free(path); // InitVErrSystem() does not release the path
}

TEST_F(VErrTest, TermFreesThePathAndDoesNotResetTheVariable) {
    TermVErrSystem();
    SetVErrLogFilePath("/dev/null");
    TermVErrSystem();
    EXPECT_NE(g_vErrLogPath, nullptr);
    InitVErrSystem();
}

TEST_F(VErrTest, SystemLogIsUsedWithoutMemoryForThePath) {
    WithoutMemory([] { SetVErrLogFilePath("/dev/null"); });
    EXPECT_EQ(g_vErrLogPath, nullptr);
}

} // namespace
