#include "changerctl/BuildAbort.h"

#include <gtest/gtest.h>

namespace changerctl {
namespace {

using Phase = BuildAbort::Phase;
using std::chrono::milliseconds;
using std::chrono::seconds;

// The request and what the server shows, at times that the test sets.
class BuildAbortTest : public testing::Test {
protected:
    BuildAbortTest() {
        abort_.BeginRequest(now_);
    }
    void Reply() {
        abort_.EndRequest(now_);
    }
    void ShowNone() {
        abort_.Notice(nullptr, now_);
    }
    void Show(bool abortRequested, std::uint16_t step = 4) {
        const ClientStatus status{"trayprobed", "Building", step, 10, abortRequested};
        abort_.Notice(&status, now_);
    }
    void Pass(milliseconds time) {
        now_ += time;
    }
    Phase Now() const {
        return abort_.PhaseAt(now_);
    }

    BuildAbort abort_;
    BuildAbort::Clock::time_point now_{seconds(1000)};
};

TEST_F(BuildAbortTest, StatusThatGoesAfterTheRequestWasShownEndsTheBuild) {
    Show(true);
    EXPECT_EQ(Now(), Phase::Standing);
    Reply();
    ShowNone();
    EXPECT_EQ(Now(), Phase::Ended);
}

TEST_F(BuildAbortTest, StatusWithoutTheRequestBeforeTheReplyIsAnOlderOne) {
    Show(false);
    EXPECT_EQ(Now(), Phase::Requested);
}

TEST_F(BuildAbortTest, StatusWithoutTheRequestAfterTheReplyHasReplacedIt) {
    Reply();
    Show(false, 5);
    EXPECT_EQ(Now(), Phase::Replaced);
}

TEST_F(BuildAbortTest, ReportThatOverwritesTheStandingRequestReplacesIt) {
    Show(true);
    Reply();
    Show(false, 5);
    EXPECT_EQ(Now(), Phase::Replaced);
    abort_.BeginRequest(now_);
    Show(true, 5);
    EXPECT_EQ(Now(), Phase::Standing);
}

TEST_F(BuildAbortTest, RequestThatIsShownAfterTheStatusWasGoneIsStale) {
    ShowNone();
    EXPECT_EQ(Now(), Phase::Gone);
    Reply();
    Show(true);
    EXPECT_EQ(Now(), Phase::Stale);
}

TEST_F(BuildAbortTest, StatusThatStaysGoneEndsTheBuildASecondAfterTheReply) {
    ShowNone();
    Pass(seconds(20));
    EXPECT_EQ(Now(), Phase::Gone) << "the request may be executed until the reply";
    Reply();
    Pass(milliseconds(999));
    EXPECT_EQ(Now(), Phase::Gone);
    Pass(milliseconds(1));
    EXPECT_EQ(Now(), Phase::Ended);
}

TEST_F(BuildAbortTest, StatusThatGoesAfterTheReplyIsAwaitedFromThenOn) {
    Reply();
    Pass(seconds(5));
    ShowNone();
    EXPECT_EQ(Now(), Phase::Gone);
    Pass(seconds(1));
    EXPECT_EQ(Now(), Phase::Ended);
}

TEST_F(BuildAbortTest, NextBuildAfterTheStatusWasGoneEndsTheFormerOne) {
    ShowNone();
    Show(false, 0);
    EXPECT_EQ(Now(), Phase::Ended);
}

TEST_F(BuildAbortTest, SecondRequestThatIsShownAfterTheStatusWasGoneIsStale) {
    Show(true);
    Reply();
    Show(false, 5);
    abort_.BeginRequest(now_);
    ShowNone();
    Show(true, 5);
    EXPECT_EQ(Now(), Phase::Stale);
}

TEST_F(BuildAbortTest, QuietTimeBeginsAnewWithEachChange) {
    Show(true, 4);
    Pass(seconds(30));
    Show(true, 4);
    EXPECT_EQ(abort_.QuietSince(now_), seconds(30)) << "nothing has changed";
    Show(true, 5);
    EXPECT_EQ(abort_.QuietSince(now_), seconds(0));
    Pass(seconds(7));
    EXPECT_EQ(abort_.QuietSince(now_), seconds(7));
    abort_.BeginRequest(now_);
    EXPECT_EQ(abort_.QuietSince(now_), seconds(0));
}

} // namespace
} // namespace changerctl
