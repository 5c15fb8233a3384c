/*
 * The order in which due timers fire, whatever their callouts do to other timers. The timer that
 * has been due longest fires first, whatever its clock; of timers due equally long, the one that
 * was added first. No timer fires twice in one iteration, or in the iteration in which it was
 * added.
 */

#include "Callouts.h"
#include "FakeClock.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <functional>
#include <memory>
#include <random>
#include <string>
#include <utility>
#include <vector>

namespace {

constexpr CFTimeInterval kDay = 86400;

void Add(const TestTimer& timer) {
    CFRunLoopAddTimer(CFRunLoopGetCurrent(), timer.Get(), kCFRunLoopDefaultMode);
}

void Remove(const TestTimer& timer) {
    CFRunLoopRemoveTimer(CFRunLoopGetCurrent(), timer.Get(), kCFRunLoopDefaultMode);
}

void RemoveAndAdd(const TestTimer& timer) {
    Remove(timer);
    Add(timer);
}

class TimerQueueTest : public testing::Test {
protected:
    // Runs the loop without dates: disarms the alarm, which the next test may not set again.
    ~TimerQueueTest() override {
        TestTimer delay(CFAbsoluteTimeGetCurrent() + 1, 0, StopCurrentRun);
        CFRunLoopRun();
    }

    // A callout that appends the name to `order` and then calls `then`.
    std::function<void()> Note(char name, std::function<void()> then = [] {}) {
        return [this, name, then = std::move(then)] {
            order += name;
            then();
        };
    }

    // Runs one iteration: its timers fire before the source, which stops the run.
    std::string RunIteration() {
        order.clear();
        TestSource end(StopCurrentRun);
        end.Signal();
        CFRunLoopRun();
        return order;
    }

    // Runs the loop inside of a callout. '.' in `order` marks the end of the nested run.
    void RunNested() {
        CFRunLoopRun();
        order += '.';
    }

    FakeClock clock;
    const CFAbsoluteTime start = CFAbsoluteTimeGetCurrent();
    std::string order;
};

// ---- the order ----

TEST_F(TimerQueueTest, EquallyLateTimersOfBothClocksFireInTheOrderOfAddition) {
    TestTimer a(start + 1, 0, Note('a'));
    TestTimer b(start + 1, kDay, Note('b'));
    TestTimer c(start + 1, 0, Note('c'));
    TestTimer d(start + 1, kDay, Note('d'));
    TestTimer e(start + 1, kDay, Note('e'));
    TestTimer f(start + 1, 0, Note('f'));
    clock.Advance(2);
    EXPECT_EQ(RunIteration(), "abcdef");
}

TEST_F(TimerQueueTest, TimerRemovedAndAddedAgainFiresAfterThoseEquallyLate) {
    TestTimer a(start + 1, 0, Note('a'));
    TestTimer b(start + 1, 0, Note('b'));
    TestTimer c(start + 1, 0, Note('c'));
    RemoveAndAdd(a);
    clock.Advance(2);
    EXPECT_EQ(RunIteration(), "bca");
}

TEST_F(TimerQueueTest, RepeatingTimersKeepTheOrderOfAddition) {
    TestTimer a(start + 1, 1, Note('a'));
    TestTimer b(start + 1, 1, Note('b'));
    TestTimer c(start + 1, 1, Note('c'));
    clock.Advance(1);
    EXPECT_EQ(RunIteration(), "abc");
    RemoveAndAdd(a);
    clock.Advance(1);
    EXPECT_EQ(RunIteration(), "bca");
}

TEST_F(TimerQueueTest, TimersThatAreNotDueDoNotFire) {
    TestTimer a(start + 3, 0, Note('a'));
    TestTimer b(start + 1, 0, Note('b'));
    TestTimer c(start + 3, kDay, Note('c'));
    TestTimer d(start + 2, 0, Note('d'));
    clock.Advance(2);
    EXPECT_EQ(RunIteration(), "bd");
    clock.Advance(1);
    EXPECT_EQ(RunIteration(), "ac");
}

// Compares the order with a stable sort. Many timers of both clocks have equal dates; a third is
// removed before the run, and another third by the callouts.
class ManyTimersTest : public TimerQueueTest, public testing::WithParamInterface<unsigned> {
protected:
    static constexpr int kTimers = 300;

    int Draw(int limit) {
        return std::uniform_int_distribution(0, limit - 1)(random_);
    }

    void AddTimers() {
        for (int i = 0; i < kTimers; ++i) {
            seconds_.push_back(1 + Draw(40));
            timers_.push_back(std::make_unique<TestTimer>(
                start + seconds_.back(), Draw(2) == 0 ? 0 : kDay, [this, i] { Fire(i); }));
        }
    }
    void Fire(int timer) {
        EXPECT_FALSE(expected_.empty());
        EXPECT_EQ(timer, expected_.front());
        std::erase(expected_, timer);
        RemoveOne(Draw(kTimers));
    }
    void RemoveOne(int timer) {
        if (Draw(2) == 0)
            timers_[static_cast<std::size_t>(timer)]->Invalidate();
        else
            Remove(*timers_[static_cast<std::size_t>(timer)]);
        std::erase(expected_, timer);
    }
    // The timers that fire if no callout removes one.
    void Expect() {
        for (int i = 0; i < kTimers; ++i)
            expected_.push_back(i);
        std::ranges::stable_sort(expected_, {},
                                 [this](int i) { return seconds_[static_cast<std::size_t>(i)]; });
    }

    std::mt19937 random_{GetParam()};
    std::vector<int> seconds_;
    std::vector<std::unique_ptr<TestTimer>> timers_;
    std::vector<int> expected_;
};

TEST_P(ManyTimersTest, FireByLatenessAndThenInTheOrderOfAddition) {
    AddTimers();
    Expect();
    for (int i = 0; i < kTimers / 3; ++i)
        RemoveOne(Draw(kTimers));
    clock.Advance(100);
    EXPECT_GT(expected_.size(), 100U);
    RunIteration();
    EXPECT_TRUE(expected_.empty());
}

INSTANTIATE_TEST_SUITE_P(Seeds, ManyTimersTest, testing::Range(0U, 20U));

// ---- what callouts do to other timers ----

TEST_F(TimerQueueTest, DueTimerThatACalloutRemovesDoesNotFire) {
    TestTimer b(start + 2, 0, Note('b'));
    TestTimer c(start + 3, 0, Note('c'));
    TestTimer a(start + 1, 0, Note('a', [&] { Remove(b); }));
    clock.Advance(3);
    EXPECT_EQ(RunIteration(), "ac");
    EXPECT_EQ(RunIteration(), "");
}

TEST_F(TimerQueueTest, DueTimerThatACalloutRemovesAndAddsAgainFiresInTheNextIteration) {
    TestTimer b(start + 2, 0, Note('b'));
    TestTimer c(start + 3, 0, Note('c'));
    TestTimer a(start + 1, 0, Note('a', [&] { RemoveAndAdd(b); }));
    clock.Advance(3);
    EXPECT_EQ(RunIteration(), "ac");
    EXPECT_EQ(RunIteration(), "b");
}

TEST_F(TimerQueueTest, DueTimerWhoseLastReferenceACalloutReleasesDoesNotFire) {
    auto b = std::make_unique<TestTimer>(start + 2, 0, Note('b'));
    auto c = std::make_unique<TestTimer>(start + 2, kDay, Note('c'));
    TestTimer d(start + 3, 0, Note('d'));
    TestTimer a(start + 1, 0, Note('a', [&] {
                    b.reset();
                    c.reset();
                }));
    clock.Advance(3);
    EXPECT_EQ(RunIteration(), "ad");
}

// The callout adds a timer that is due at once, and so is pending until the next iteration.
TEST_F(TimerQueueTest, TimerPendingForTheNextIterationDoesNotFireAfterItsRemoval) {
    std::unique_ptr<TestTimer> added;
    TestTimer a(start, 0,
                Note('a', [&] { added = std::make_unique<TestTimer>(start, 0, Note('x')); }));
    TestSource remove([&] { added.reset(); });
    remove.Signal();
    EXPECT_EQ(RunIteration(), "a");
    EXPECT_EQ(remove.Count(), 1);
    EXPECT_EQ(RunIteration(), "");
}

TEST_F(TimerQueueTest, TimersAddedInACalloutAllFireInTheNextIteration) {
    std::unique_ptr<TestTimer> added[2];
    TestTimer a(start, 0, Note('a', [&] {
                    for (auto& timer : added)
                        timer = std::make_unique<TestTimer>(start, 0, Note('x'));
                }));
    EXPECT_EQ(RunIteration(), "a");
    EXPECT_EQ(RunIteration(), "xx");
}

TEST_F(TimerQueueTest, TimerAddedAgainInItsOwnCalloutFiresOnceAtItsNextDate) {
    TestTimer a(start + 1, 1, Note('a', [&] { RemoveAndAdd(a); }));
    TestTimer b(start + 1, 1, Note('b'));
    clock.Advance(1);
    EXPECT_EQ(RunIteration(), "ab");
    EXPECT_EQ(RunIteration(), "");
    clock.Advance(1);
    EXPECT_EQ(RunIteration(), "ba");
}

TEST_F(TimerQueueTest, TimerRemovedInItsOwnCalloutCanBeAddedAgain) {
    TestTimer a(start + 1, 1, Note('a', [&] { Remove(a); }));
    clock.Advance(1);
    EXPECT_EQ(RunIteration(), "a");
    clock.Advance(1);
    EXPECT_EQ(RunIteration(), "");
    Add(a);
    EXPECT_EQ(RunIteration(), "a");
}

// ---- nested runs ----

TEST_F(TimerQueueTest, DueTimersThatANestedRunFiredDoNotFireAgain) {
    TestTimer b(start + 2, 0, Note('b'));
    TestTimer c(start + 3, 100, Note('c', StopCurrentRun));
    TestTimer a(start + 1, 0, Note('a', [&] { RunNested(); }));
    clock.Advance(3);
    EXPECT_EQ(RunIteration(), "abc.");
}

TEST_F(TimerQueueTest, DueTimersThatANestedRunLeftFireInTheOuterIteration) {
    TestTimer b(start + 2, 0, Note('b', StopCurrentRun));
    TestTimer c(start + 3, 0, Note('c'));
    TestTimer d(start + 3, kDay, Note('d'));
    TestTimer a(start + 1, 0, Note('a', [&] { RunNested(); }));
    clock.Advance(3);
    EXPECT_EQ(RunIteration(), "ab.cd");
}

TEST_F(TimerQueueTest, TimerAddedInANestedRunFiresInTheNextOuterIteration) {
    std::unique_ptr<TestTimer> added;
    TestTimer b(start + 2, 0, Note('b', [&] {
                    added = std::make_unique<TestTimer>(start + 3, 0, Note('x'));
                    StopCurrentRun();
                }));
    TestTimer c(start + 3, 0, Note('c'));
    TestTimer a(start + 1, 0, Note('a', [&] { RunNested(); }));
    clock.Advance(3);
    EXPECT_EQ(RunIteration(), "ab.c");
    EXPECT_EQ(RunIteration(), "x");
}

TEST_F(TimerQueueTest, TimerPendingForTheNextOuterIterationFiresInANestedRun) {
    std::unique_ptr<TestTimer> added;
    TestTimer a(start + 1, 0, Note('a', [&] {
                    added = std::make_unique<TestTimer>(start + 3, 0, Note('x', StopCurrentRun));
                }));
    TestTimer b(start + 3, 0, Note('b'));
    TestSource nests([&] {
        order += '(';
        CFRunLoopRun();
        order += ')';
    });
    nests.Signal();
    clock.Advance(3);
    EXPECT_EQ(RunIteration(), "ab(x)");
}

TEST_F(TimerQueueTest, TimerThatBecomesDueInANestedRunFiresInTheNextOuterIteration) {
    TestTimer c(start + 3, 0, Note('c'));
    TestTimer b(start + 2, 0, Note('b', [&] {
                    clock.Advance(1);
                    StopCurrentRun();
                }));
    TestTimer a(start + 1, 0, Note('a', [&] { RunNested(); }));
    clock.Advance(2);
    EXPECT_EQ(RunIteration(), "ab.");
    EXPECT_EQ(RunIteration(), "c");
}

// ---- steps of the wall clock ----

TEST_F(TimerQueueTest, LateTimerWhoseCalloutSetsTheClockBackFiresOnceInTheIteration) {
    TestTimer a(start + kDay, kDay, Note('a', [&] { clock.Step(-10 * kDay); }));
    clock.Suspend(6 * kDay);
    EXPECT_EQ(RunIteration(), "a");
}

TEST_F(TimerQueueTest, LateTimerThatANestedRunFiredDoesNotFireAgainAfterAStepBack) {
    TestTimer b(start + kDay, kDay, Note('b', [&] {
                    clock.Step(-10 * kDay);
                    StopCurrentRun();
                }));
    TestTimer c(start + 2 * kDay, kDay, Note('c'));
    TestTimer a(start - 1, 2 * kDay, Note('a', [&] { RunNested(); }));
    clock.Suspend(6 * kDay);
    EXPECT_EQ(RunIteration(), "ab.c");
}

TEST_F(TimerQueueTest, DatesThatAStepMovesFireInTheirNewOrder) {
    TestTimer a(start + kDay, 9 * kDay, Note('a', StopCurrentRun));
    TestTimer b(start + 2 * kDay, kDay, Note('b', StopCurrentRun));
    TestTimer earlier(start + 60, 0, [&] { clock.Step(-1000 * kDay); });
    CFRunLoopRun();
    EXPECT_EQ(order, "b");
    EXPECT_LT(clock.Elapsed(), 3 * kDay);
}

// A timer is not in the queue during its callout.
TEST_F(TimerQueueTest, StepInANestedRunMovesTheDateOfTheTimerThatCallsOut) {
    TestTimer a(start + kDay, 2 * kDay, Note('a', [&] {
                    if (order != "a")
                        return StopCurrentRun();
                    clock.Step(-1000 * kDay);
                    TestTimer stop(CFAbsoluteTimeGetCurrent() + 60, 0, StopCurrentRun);
                    CFRunLoopRun();
                }));
    CFRunLoopRun();
    EXPECT_EQ(order, "aa");
    EXPECT_LT(clock.Elapsed(), 8 * kDay);
}

} // namespace
