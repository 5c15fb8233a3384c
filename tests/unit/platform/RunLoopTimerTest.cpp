#include "Callouts.h"
#include "FakeClock.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <ctime>
#include <functional>
#include <limits>
#include <memory>
#include <thread>
#include <utility>
#include <vector>

namespace {

constexpr CFTimeInterval kHour = 3600;
constexpr CFTimeInterval kDay = 24 * kHour;
constexpr CFTimeInterval kYear = 365 * kDay;
// The coarse clock may be a tick behind; an alarm waits until that clock shows the date.
constexpr CFTimeInterval kTicks = 0.02;
constexpr CFTimeInterval kRounding = 0.0011; // sleeps are in whole milliseconds, rounded up

class RunLoopTimerTest : public testing::Test {
protected:
    // A run without dates disarms the alarm. Tests begin at the same fake time: the loop would not
    // set an alarm again that is already set to an equal date.
    ~RunLoopTimerTest() override {
        TestTimer delay(CFAbsoluteTimeGetCurrent() + 1, 0, StopCurrentRun);
        CFRunLoopRun();
    }

    // A callout that records its time; callout number `wanted` ends the run.
    std::function<void()> Note(std::size_t wanted) {
        return [this, wanted] {
            fired.push_back(clock.Elapsed());
            if (fired.size() == wanted)
                StopCurrentRun();
        };
    }

    bool HasAlarmAfterAMinute() {
        bool hasAlarm = false;
        TestTimer delay(CFAbsoluteTimeGetCurrent() + 60, 0, [&] {
            hasAlarm = clock.HasAlarm();
            StopCurrentRun();
        });
        CFRunLoopRun();
        EXPECT_EQ(delay.Count(), 1);
        return hasAlarm;
    }

    FakeClock clock;
    const CFAbsoluteTime start = CFAbsoluteTimeGetCurrent();
    std::vector<CFTimeInterval> fired;
};

void ExpectTimes(const std::vector<CFTimeInterval>& fired, const std::vector<CFTimeInterval>& dates,
                 CFTimeInterval tolerance = kRounding) {
    ASSERT_EQ(fired.size(), dates.size());
    for (std::size_t i = 0; i < dates.size(); ++i)
        EXPECT_NEAR(fired[i], dates[i], tolerance) << i;
}

TEST_F(RunLoopTimerTest, OneShotFiresOnceAtItsDate) {
    TestTimer timer(start + 30, 0, Note(0));
    CFRunLoopRun();
    CFRunLoopAddTimer(CFRunLoopGetCurrent(), timer.Get(), kCFRunLoopDefaultMode);
    CFRunLoopRun();
    ExpectTimes(fired, {30});
}

TEST_F(RunLoopTimerTest, WaitForADateIsOneSleepOfWholeMilliseconds) {
    TestTimer timer(start + 30, 30, Note(2));
    CFRunLoopRun();
    EXPECT_EQ(clock.Sleeps(), 2);
    ExpectTimes(fired, {30, 60}, 1e-6);
}

TEST_F(RunLoopTimerTest, RepeatingTimerKeepsItsGridAndSkipsMissedDates) {
    TestTimer timer(start + 0.1, 0.1, [&] {
        Note(3)();
        if (fired.size() == 1)
            clock.Advance(0.55);
    });
    CFRunLoopRun();
    ExpectTimes(fired, {0.1, 0.7, 0.8});
}

TEST_F(RunLoopTimerTest, DatesMissedBeforeRunFireOnce) {
    TestTimer timer(start + 0.1, 0.1, Note(3));
    clock.Advance(0.55);
    CFRunLoopRun();
    ExpectTimes(fired, {0.55, 0.6, 0.7});
}

TEST_F(RunLoopTimerTest, PastFireDateFiresAtOnceAndStartsTheGrid) {
    TestTimer timer(start - 7.3, 1, Note(3));
    CFRunLoopRun();
    ExpectTimes(fired, {0, 1, 2});
}

TEST_F(RunLoopTimerTest, DailyTimerFromFarPastFiresAtOnceAndDaily) {
    TestTimer timer(start - 2e9 * kHour, kDay, Note(3));
    CFRunLoopRun();
    ExpectTimes(fired, {0, kDay, 2 * kDay}, kTicks);
}

TEST_F(RunLoopTimerTest, ExtremeDatesAndIntervalsDoNotOverflow) {
    const CFTimeInterval infinity = std::numeric_limits<CFTimeInterval>::infinity();
    for (const CFTimeInterval extreme : {1e18, 1e300, infinity, std::nan("")}) {
        TestTimer never(extreme, 0, Note(0));
        TestTimer neverDaily(extreme, kDay, Note(0));
        TestTimer nowAndNever(-extreme, extreme, Note(0));
        TestTimer stop(start + clock.Elapsed() + kYear, 0, StopCurrentRun);
        fired.clear();
        CFRunLoopRun();
        EXPECT_EQ(fired.size(), std::isnan(extreme) ? 0 : 1);
    }
}

TEST_F(RunLoopTimerTest, TinyIntervalDoesNotStarveSources) {
    TestSource source(StopCurrentRun);
    TestTimer timer(start, 1e-12, [&] {
        clock.Advance(1);
        source.Signal();
    });
    CFRunLoopRun();
    EXPECT_EQ(timer.Count(), 1);
    EXPECT_EQ(source.Count(), 1);
}

TEST_F(RunLoopTimerTest, DelayIgnoresTheWallClock) {
    for (const CFTimeInterval step : {-kYear, kYear}) {
        const CFTimeInterval began = clock.Elapsed();
        TestTimer timer(CFAbsoluteTimeGetCurrent() + 30, 0, Note(0));
        fired.clear();
        clock.Step(step);
        CFRunLoopRun();
        ExpectTimes(fired, {began + 30});
    }
}

TEST_F(RunLoopTimerTest, RepeatedDelayIgnoresTheWallClock) {
    TestTimer timer(start, 1, [&] {
        clock.Step(fired.size() % 2 == 0 ? kDay : -kDay);
        Note(4)();
    });
    CFRunLoopRun();
    ExpectTimes(fired, {0, 1, 2, 3});
}

TEST_F(RunLoopTimerTest, DateMovesWithTheWallClock) {
    TestTimer timer(start + 10 * kHour, kDay, Note(2));
    TestTimer earlier(start + 60, 0, [&] { clock.Step(4 * kHour); });
    CFRunLoopRun();
    ExpectTimes(fired, {6 * kHour, 30 * kHour}, kTicks);
}

TEST_F(RunLoopTimerTest, DatePassedByStepFiresOnce) {
    TestTimer timer(start + 10 * kHour, kDay, Note(2));
    TestTimer earlier(start + 60, 0, [&] { clock.Step(10 * kDay); });
    CFRunLoopRun();
    ExpectTimes(fired, {60, 10 * kHour}, kTicks);
}

TEST_F(RunLoopTimerTest, DatePassedInSuspensionFiresOnce) {
    TestTimer timer(start + 10 * kHour, kDay, Note(2));
    TestTimer earlier(start + 60, 0, [&] { clock.Suspend(3 * kDay); });
    CFRunLoopRun();
    ExpectTimes(fired, {60, 10 * kHour}, kTicks);
}

TEST_F(RunLoopTimerTest, ShortStepBackDoesNotFireTheDateAgain) {
    TestTimer timer(start + 10 * kHour, kDay, [&] {
        if (fired.empty())
            clock.Step(-2);
        Note(2)();
    });
    CFRunLoopRun();
    ExpectTimes(fired, {10 * kHour, 34 * kHour + 2}, kTicks);
}

TEST_F(RunLoopTimerTest, StepBackOverYearsMovesDateWithinTwoDays) {
    TestTimer timer(start + 10 * kHour, kDay, Note(2));
    TestTimer earlier(start + 60, 0, [&] { clock.Step(-10 * kYear); });
    CFRunLoopRun();
    ExpectTimes(fired, {34 * kHour, 58 * kHour}, kTicks);
}

TEST_F(RunLoopTimerTest, StepBackLeavesLessThanTwoDaysToWait) {
    for (const int days : {1, 2, 3}) {
        const CFTimeInterval begin = clock.Elapsed();
        const CFAbsoluteTime now = CFAbsoluteTimeGetCurrent();
        fired.clear();
        TestTimer timer(now + 10 * kHour, kDay, Note(1));
        TestTimer earlier(now + 60, 0, [&] { clock.Step(-days * kDay); });
        CFRunLoopRun();
        ExpectTimes(fired, {begin + 34 * kHour}, kTicks);
    }
}

// The kernel reports the step when the next date is set.
TEST_F(RunLoopTimerTest, StepBackInCalloutMovesNextDateWithinTwoDays) {
    TestTimer timer(start + 10 * kHour, kDay, [&] {
        if (fired.empty())
            clock.Step(-10 * kYear);
        Note(2)();
    });
    CFRunLoopRun();
    ExpectTimes(fired, {10 * kHour, 58 * kHour}, kTicks);
}

// The delay before the first callout is many times the interval.
TEST_F(RunLoopTimerTest, DelayBeforeRepetitionsIgnoresAStepThatMovesDates) {
    TestTimer delay(start + 1000, 10, Note(2));
    TestTimer date(start + 10 * kHour, kDay, Note(0));
    TestTimer earlier(start + 60, 0, [&] { clock.Step(-kDay); });
    CFRunLoopRun();
    ExpectTimes(fired, {1000, 1010});
}

TEST_F(RunLoopTimerTest, AlarmIsDisarmedWithLastDate) {
    std::vector<bool> alarms;
    TestTimer date(start + 10 * kHour, kDay, Note(0));
    TestTimer delays(start + 60, 60, [&] {
        alarms.push_back(clock.HasAlarm());
        date.Invalidate();
        if (alarms.size() == 2)
            StopCurrentRun();
    });
    CFRunLoopRun();
    EXPECT_EQ(alarms, (std::vector<bool>{true, false}));
}

TEST_F(RunLoopTimerTest, DateThatNeverComesSetsNoAlarm) {
    const CFTimeInterval infinity = std::numeric_limits<CFTimeInterval>::infinity();
    TestTimer onceAndNever(start, infinity, Note(0)); // its second date is beyond kNever
    EXPECT_FALSE(HasAlarmAfterAMinute());
}

TEST_F(RunLoopTimerTest, ShortIntervalAfterLongDelaySetsNoAlarm) {
    TestTimer delay(start + 10 * kHour, 1e-9, Note(0));
    EXPECT_FALSE(HasAlarmAfterAMinute());
}

TEST_F(RunLoopTimerTest, OnlyIntervalOfAnHourOrMoreSetsAlarm) {
    for (const CFTimeInterval interval : {3600.0, 3599.999}) {
        TestTimer repeating(start + 10 * kHour, interval, Note(0));
        EXPECT_EQ(HasAlarmAfterAMinute(), interval == 3600.0);
    }
}

TEST_F(RunLoopTimerTest, OneShotHoursAheadMovesWithTheWallClock) {
    TestTimer timer(start + 10 * kHour, 0, Note(0));
    TestTimer earlier(start + 60, 0, [&] { clock.Step(kHour); });
    CFRunLoopRun();
    ExpectTimes(fired, {9 * kHour}, kTicks);
}

// The loop is woken between the date and the next tick of the coarse clock.
TEST_F(RunLoopTimerTest, CalloutFindsTheCoarseClockPastTheDate) {
    const CFAbsoluteTime date = start + 10 * kHour + 0.003;
    TestTimer timer(date, kDay, [&] {
        timespec coarse = {};
        clock_gettime(CLOCK_REALTIME_COARSE, &coarse);
        EXPECT_GE(static_cast<double>(coarse.tv_sec) + static_cast<double>(coarse.tv_nsec) / 1e9,
                  date + kCFAbsoluteTimeIntervalSince1970);
        StopCurrentRun();
    });
    TestTimer wakes(start + 60, 0, [&] { clock.Step(date + 0.0005 - CFAbsoluteTimeGetCurrent()); });
    CFRunLoopRun();
    EXPECT_EQ(timer.Count(), 1);
}

// The loop of a new thread has no alarm yet.
TEST_F(RunLoopTimerTest, WithoutAlarmDateIsPolledEachMinute) {
    clock.RefuseAlarms(true);
    std::thread([&] {
        TestTimer timer(start + 10 * kHour + 30, kDay, Note(2));
        TestTimer earlier(start + 60, 0, [&] { clock.Step(4 * kHour); });
        CFRunLoopRun();
    }).join();
    ExpectTimes(fired, {6 * kHour + 60, 30 * kHour + 60}, kTicks);
}

TEST_F(RunLoopTimerTest, AlarmIsSetAfterRefusalsEnd) {
    clock.RefuseAlarms(true);
    std::thread([&] {
        TestTimer timer(start + 10 * kHour + 30, kDay, Note(1));
        TestTimer earlier(start + 60, 0, [&] { clock.RefuseAlarms(false); });
        CFRunLoopRun();
    }).join();
    ExpectTimes(fired, {10 * kHour + 30}, kTicks);
}

TEST_F(RunLoopTimerTest, DueTimersFireByDateBeforeSources) {
    std::vector<int> order;
    TestSource source([&] {
        order.push_back(4);
        StopCurrentRun();
    });
    TestTimer third(start + 3, 0, [&] { order.push_back(3); });
    TestTimer first(start + 1, 0, [&] { order.push_back(1); });
    TestTimer second(start - kHour + 2, 2 * kHour, [&] { order.push_back(2); });
    clock.Advance(1);
    source.Signal();
    clock.Advance(5);
    CFRunLoopRun();
    EXPECT_EQ(order, (std::vector<int>{2, 1, 3, 4}));
}

TEST_F(RunLoopTimerTest, TimerAddedDueInIterationFiresInNext) {
    TestSource source(StopCurrentRun);
    std::vector<std::unique_ptr<TestTimer>> timers;
    std::function<void()> makeAnother = [&] {
        timers.push_back(std::make_unique<TestTimer>(start, 0, makeAnother));
    };
    makeAnother();
    source.Signal();
    CFRunLoopRun();
    EXPECT_EQ(timers.size(), 2);
}

TEST_F(RunLoopTimerTest, NestedRunFiresAllButTimerInCallout) {
    int depth = 0;
    int deepest = 0;
    TestTimer other(start + 2.5, 0, StopCurrentRun);
    TestTimer timer(start + 1, 1, [&] {
        deepest = std::max(deepest, ++depth);
        if (timer.Count() == 1)
            CFRunLoopRun();
        else
            StopCurrentRun();
        --depth;
    });
    CFRunLoopRun();
    EXPECT_EQ(other.Count(), 1);
    EXPECT_EQ(deepest, 1);
    EXPECT_EQ(timer.Count(), 2);
    EXPECT_NEAR(clock.Elapsed(), 3, kRounding);
}

TEST_F(RunLoopTimerTest, TimerInvalidatedInItsCalloutFiresNoMore) {
    TestTimer timer(start, 1, [&] {
        CFRunLoopRemoveTimer(CFRunLoopGetCurrent(), timer.Get(), kCFRunLoopCommonModes);
        timer.Invalidate();
    });
    CFRunLoopRun();
    EXPECT_EQ(timer.Count(), 1);
}

TEST_F(RunLoopTimerTest, TimerInvalidatedByAnotherDueTimerDoesNotFire) {
    TestTimer second(start + 2, 0, [] {});
    TestTimer first(start + 1, 0, [&] { second.Invalidate(); });
    clock.Advance(3);
    CFRunLoopRun();
    EXPECT_EQ(second.Count(), 0);
}

TEST_F(RunLoopTimerTest, StoppedRunLeavesOtherDueTimersToNextRun) {
    TestTimer second(start + 2, 0, [] {});
    TestTimer first(start + 1, 0, StopCurrentRun);
    clock.Advance(3);
    CFRunLoopRun();
    EXPECT_EQ(second.Count(), 0);
    CFRunLoopRun();
    EXPECT_EQ(second.Count(), 1);
}

TEST_F(RunLoopTimerTest, RemovalFromCommonModesKeepsTimerOfDefaultMode) {
    TestTimer timer(start + 1, 0, Note(0));
    CFRunLoopRemoveTimer(CFRunLoopGetCurrent(), timer.Get(), kCFRunLoopCommonModes);
    CFRunLoopRun();
    EXPECT_EQ(timer.Count(), 1);
}

TEST_F(RunLoopTimerTest, EitherModeRemovesTimerOfCommonModes) {
    for (CFStringRef mode : {kCFRunLoopDefaultMode, kCFRunLoopCommonModes}) {
        TestTimer timer(start + 1, 0, Note(0), kCFRunLoopCommonModes);
        CFRunLoopRemoveTimer(CFRunLoopGetCurrent(), timer.Get(), mode);
        CFRunLoopRun();
        EXPECT_EQ(timer.Count(), 0);
    }
}

TEST_F(RunLoopTimerTest, OneRemovalRemovesTimerAddedTwice) {
    TestTimer timer(start + 1, 0, Note(0));
    CFRunLoopAddTimer(CFRunLoopGetCurrent(), timer.Get(), kCFRunLoopDefaultMode);
    CFRunLoopRemoveTimer(CFRunLoopGetCurrent(), timer.Get(), kCFRunLoopDefaultMode);
    CFRunLoopRun();
    EXPECT_EQ(timer.Count(), 0);
}

TEST_F(RunLoopTimerTest, UnknownModeAndObjectsOfOtherTypesAreIgnored) {
    TestTimer timer(start + 1, 0, Note(0), CFSTR("another mode"));
    const CFTypeRef wrong = CFSTR("not a loop");
    CFRunLoopAddTimer(static_cast<CFRunLoopRef>(const_cast<void*>(wrong)), timer.Get(),
                      kCFRunLoopDefaultMode);
    CFRunLoopAddTimer(CFRunLoopGetCurrent(),
                      static_cast<CFRunLoopTimerRef>(const_cast<void*>(wrong)),
                      kCFRunLoopDefaultMode);
    CFRunLoopAddTimer(nullptr, nullptr, nullptr);
    CFRunLoopRemoveTimer(nullptr, nullptr, nullptr);
    CFRunLoopTimerInvalidate(nullptr);
    CFRunLoopRun();
    EXPECT_EQ(timer.Count(), 0);
}

TEST_F(RunLoopTimerTest, RemovalFromOtherModeOrLoopOrOfNullIsIgnored) {
    TestTimer timer(start + 1, 0, Note(0));
    CFRunLoopRef const loop = CFRunLoopGetCurrent();
    CFRunLoopRef other = nullptr;
    std::thread([&] {
        other = CFRunLoopGetCurrent();
        CFRunLoopRemoveTimer(other, timer.Get(), kCFRunLoopDefaultMode);
    }).join();
    CFRunLoopRemoveTimer(loop, timer.Get(), CFSTR("another mode"));
    CFRunLoopRemoveTimer(loop, nullptr, kCFRunLoopDefaultMode);
    CFRunLoopRemoveTimer(nullptr, timer.Get(), kCFRunLoopDefaultMode);
    CFRunLoopRun();
    EXPECT_NE(other, loop);
    EXPECT_EQ(timer.Count(), 1);
}

int g_references = 0;

const void* CountRetain(const void* info) {
    ++g_references;
    return info;
}

void CountRelease(const void*) {
    --g_references;
}

TEST_F(RunLoopTimerTest, InfoIsRetainedUntilInvalidationAndDuringCallouts) {
    CFRunLoopTimerContext context = {0, nullptr, CountRetain, CountRelease, nullptr};
    CFRunLoopTimerRef timer = CFRunLoopTimerCreate(
        kCFAllocatorDefault, start, 1, 0, 0,
        [](CFRunLoopTimerRef self, void*) {
            EXPECT_EQ(g_references, 2);
            CFRunLoopTimerInvalidate(self);
            EXPECT_EQ(g_references, 1);
        },
        &context);
    EXPECT_EQ(g_references, 1);
    CFRunLoopAddTimer(CFRunLoopGetCurrent(), timer, kCFRunLoopDefaultMode);
    CFRelease(timer);
    EXPECT_EQ(g_references, 1);
    CFRunLoopRun();
    EXPECT_EQ(g_references, 0);
}

TEST_F(RunLoopTimerTest, InfoMayBeRetainedWithoutBeingReleased) {
    g_references = 0;
    CFRunLoopTimerContext context = {0, nullptr, CountRetain, nullptr, nullptr};
    CFRunLoopTimerRef timer = CFRunLoopTimerCreate(
        kCFAllocatorDefault, start, 0, 0, 0,
        [](CFRunLoopTimerRef, void*) { EXPECT_EQ(g_references, 2); }, &context);
    CFRunLoopAddTimer(CFRunLoopGetCurrent(), timer, kCFRunLoopDefaultMode);
    CFRelease(timer);
    CFRunLoopRun();
    EXPECT_EQ(std::exchange(g_references, 0), 2);
}

TEST_F(RunLoopTimerTest, InfoIsReleasedWithATimerThatWasNeverInvalidated) {
    CFRunLoopTimerContext context = {0, nullptr, CountRetain, CountRelease, nullptr};
    CFRelease(CFRunLoopTimerCreate(kCFAllocatorDefault, start, 0, 0, 0, nullptr, &context));
    EXPECT_EQ(g_references, 0);
}

// The real clocks: time() moves with the kernel's tick and would still show the second before.
TEST(RunLoopTimerRealTest, TimeHasReachedTheDateInTheCallout) {
    const CFAbsoluteTime date = std::floor(CFAbsoluteTimeGetCurrent()) + 1;
    TestTimer timer(date, kDay, [date] {
        EXPECT_GE(static_cast<double>(time(nullptr)), date + kCFAbsoluteTimeIntervalSince1970);
        StopCurrentRun();
    });
    CFRunLoopRun();
    EXPECT_EQ(timer.Count(), 1);
}

} // namespace
