/*
 * Which of several timers fires next, whatever the callouts do to the others: by how long they have
 * been due, the same for both clocks; of equally late ones the one that joined the loop first; none
 * twice in a turn, and none in the turn in which it joined.
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

class TimerQueueTest : public testing::Test {
protected:
    // A run without dates disarms the alarm, whose date the next test might not set anew.
    ~TimerQueueTest() override {
        TestTimer delay(CFAbsoluteTimeGetCurrent() + 1, 0, StopCurrentRun);
        CFRunLoopRun();
    }

    // A callout that notes the name and then does something.
    std::function<void()> Note(char name, std::function<void()> then = [] {}) {
        return [this, name, then = std::move(then)] {
            order += name;
            then();
        };
    }

    // Runs the loop for one turn: a source is called out behind the timers that fire in it, and
    // stops the run.
    std::string RunTurn() {
        order.clear();
        TestSource end(StopCurrentRun);
        end.Signal();
        CFRunLoopRun();
        return order;
    }

    FakeClock clock;
    const CFAbsoluteTime start = CFAbsoluteTimeGetCurrent();
    std::string order;
};

// ---- the order ----

TEST_F(TimerQueueTest, EquallyLateTimersOfBothClocksFireInTheOrderOfJoining) {
    TestTimer a(start + 1, 0, Note('a'));
    TestTimer b(start + 1, kDay, Note('b'));
    TestTimer c(start + 1, 0, Note('c'));
    TestTimer d(start + 1, kDay, Note('d'));
    TestTimer e(start + 1, kDay, Note('e'));
    TestTimer f(start + 1, 0, Note('f'));
    clock.Advance(2);
    EXPECT_EQ(RunTurn(), "abcdef");
}

TEST_F(TimerQueueTest, TimerThatLeavesAndJoinsAgainFiresBehindThoseEquallyLate) {
    TestTimer a(start + 1, 0, Note('a'));
    TestTimer b(start + 1, 0, Note('b'));
    TestTimer c(start + 1, 0, Note('c'));
    Remove(a);
    Add(a);
    clock.Advance(2);
    EXPECT_EQ(RunTurn(), "bca");
}

TEST_F(TimerQueueTest, RepeatingTimersKeepTheOrderOfJoining) {
    TestTimer a(start + 1, 1, Note('a'));
    TestTimer b(start + 1, 1, Note('b'));
    TestTimer c(start + 1, 1, Note('c'));
    clock.Advance(1);
    EXPECT_EQ(RunTurn(), "abc");
    Remove(a);
    Add(a);
    clock.Advance(1);
    EXPECT_EQ(RunTurn(), "bca");
}

TEST_F(TimerQueueTest, TimerThatIsNotDueDoesNotFireWithThoseThatAre) {
    TestTimer a(start + 3, 0, Note('a'));
    TestTimer b(start + 1, 0, Note('b'));
    TestTimer c(start + 3, kDay, Note('c'));
    TestTimer d(start + 2, 0, Note('d'));
    clock.Advance(2);
    EXPECT_EQ(RunTurn(), "bd");
    clock.Advance(1);
    EXPECT_EQ(RunTurn(), "ac");
}

// Against a stable sort, with dates that come several times, of both clocks, and with a third of
// the timers removed beforehand and another third by the callouts.
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
        TakeOut(Draw(kTimers));
    }
    void TakeOut(int timer) {
        if (Draw(2) == 0)
            timers_[static_cast<std::size_t>(timer)]->Invalidate();
        else
            Remove(*timers_[static_cast<std::size_t>(timer)]);
        std::erase(expected_, timer);
    }
    // The timers that fire, if no callout takes one out.
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

TEST_P(ManyTimersTest, FireByLatenessAndThenInTheOrderOfJoining) {
    AddTimers();
    Expect();
    for (int i = 0; i < kTimers / 3; ++i)
        TakeOut(Draw(kTimers));
    clock.Advance(100);
    EXPECT_GT(expected_.size(), 100U);
    RunTurn();
    EXPECT_TRUE(expected_.empty());
}

INSTANTIATE_TEST_SUITE_P(Seeds, ManyTimersTest, testing::Range(0U, 20U));

// ---- what callouts do to other timers ----

TEST_F(TimerQueueTest, DueTimerThatACalloutRemovesDoesNotFire) {
    TestTimer b(start + 2, 0, Note('b'));
    TestTimer c(start + 3, 0, Note('c'));
    TestTimer a(start + 1, 0, Note('a', [&] { Remove(b); }));
    clock.Advance(3);
    EXPECT_EQ(RunTurn(), "ac");
    EXPECT_EQ(RunTurn(), "");
}

TEST_F(TimerQueueTest, DueTimerThatACalloutRemovesAndAddsAgainWaitsForTheNextTurn) {
    TestTimer b(start + 2, 0, Note('b'));
    TestTimer c(start + 3, 0, Note('c'));
    TestTimer a(start + 1, 0, Note('a', [&] {
                    Remove(b);
                    Add(b);
                }));
    clock.Advance(3);
    EXPECT_EQ(RunTurn(), "ac");
    EXPECT_EQ(RunTurn(), "b");
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
    EXPECT_EQ(RunTurn(), "ad");
}

// The first one fires while the others are due as well, and so the new one, due at once, is looked
// at and has to wait.
TEST_F(TimerQueueTest, TimerThatWaitsForTheNextTurnMayBeRemovedMeanwhile) {
    std::unique_ptr<TestTimer> added;
    TestTimer a(start, 0,
                Note('a', [&] { added = std::make_unique<TestTimer>(start, 0, Note('x')); }));
    TestSource remove([&] { added.reset(); });
    remove.Signal();
    EXPECT_EQ(RunTurn(), "a");
    EXPECT_EQ(remove.Count(), 1);
    EXPECT_EQ(RunTurn(), "");
}

TEST_F(TimerQueueTest, TimerThatJoinsAgainInItsOwnCalloutFiresAtItsNextDateOnce) {
    TestTimer a(start + 1, 1, Note('a', [&] {
                    Remove(a);
                    Add(a);
                }));
    TestTimer b(start + 1, 1, Note('b'));
    clock.Advance(1);
    EXPECT_EQ(RunTurn(), "ab");
    EXPECT_EQ(RunTurn(), "");
    clock.Advance(1);
    EXPECT_EQ(RunTurn(), "ba");
}

TEST_F(TimerQueueTest, TimerThatLeavesInItsOwnCalloutMayJoinAgainLater) {
    TestTimer a(start + 1, 1, Note('a', [&] { Remove(a); }));
    clock.Advance(1);
    EXPECT_EQ(RunTurn(), "a");
    clock.Advance(1);
    EXPECT_EQ(RunTurn(), "");
    Add(a);
    EXPECT_EQ(RunTurn(), "a");
}

// ---- nested runs ----

TEST_F(TimerQueueTest, DueTimersThatANestedRunFiredDoNotFireAgain) {
    TestTimer b(start + 2, 0, Note('b'));
    TestTimer c(start + 3, 100, Note('c', StopCurrentRun));
    TestTimer a(start + 1, 0, Note('a', [&] {
                    CFRunLoopRun();
                    order += '.';
                }));
    clock.Advance(3);
    EXPECT_EQ(RunTurn(), "abc.");
}

TEST_F(TimerQueueTest, DueTimersThatANestedRunLeftFireInTheOuterRunsTurn) {
    TestTimer b(start + 2, 0, Note('b', StopCurrentRun));
    TestTimer c(start + 3, 0, Note('c'));
    TestTimer d(start + 3, kDay, Note('d'));
    TestTimer a(start + 1, 0, Note('a', [&] {
                    CFRunLoopRun();
                    order += '.';
                }));
    clock.Advance(3);
    EXPECT_EQ(RunTurn(), "ab.cd");
}

TEST_F(TimerQueueTest, TimerThatJoinsInANestedRunWaitsForTheOuterRunsNextTurn) {
    std::unique_ptr<TestTimer> added;
    TestTimer b(start + 2, 0, Note('b', [&] {
                    added = std::make_unique<TestTimer>(start + 3, 0, Note('x'));
                    StopCurrentRun();
                }));
    TestTimer c(start + 3, 0, Note('c'));
    TestTimer a(start + 1, 0, Note('a', [&] {
                    CFRunLoopRun();
                    order += '.';
                }));
    clock.Advance(3);
    EXPECT_EQ(RunTurn(), "ab.c");
    EXPECT_EQ(RunTurn(), "x");
}

TEST_F(TimerQueueTest, TimerThatWaitsForTheOuterRunsNextTurnFiresInANestedRun) {
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
    EXPECT_EQ(RunTurn(), "ab(x)");
}

TEST_F(TimerQueueTest, TimerThatBecomesDueInANestedRunWaitsForTheOuterRunsNextTurn) {
    TestTimer c(start + 3, 0, Note('c'));
    TestTimer b(start + 2, 0, Note('b', [&] {
                    clock.Advance(1);
                    StopCurrentRun();
                }));
    TestTimer a(start + 1, 0, Note('a', [&] {
                    CFRunLoopRun();
                    order += '.';
                }));
    clock.Advance(2);
    EXPECT_EQ(RunTurn(), "ab.");
    EXPECT_EQ(RunTurn(), "c");
}

// ---- steps of the wall clock ----

TEST_F(TimerQueueTest, LateDateWhoseCalloutSetsTheClockBackDoesNotFireAgainInTheTurn) {
    TestTimer a(start + kDay, kDay, Note('a', [&] { clock.Step(-10 * kDay); }));
    clock.Suspend(6 * kDay);
    EXPECT_EQ(RunTurn(), "a");
}

TEST_F(TimerQueueTest, LateDateThatANestedRunFiredDoesNotFireAgainAfterAStepBack) {
    TestTimer b(start + kDay, kDay, Note('b', [&] {
                    clock.Step(-10 * kDay);
                    StopCurrentRun();
                }));
    TestTimer c(start + 2 * kDay, kDay, Note('c'));
    TestTimer a(start - 1, 2 * kDay, Note('a', [&] {
                    CFRunLoopRun();
                    order += '.';
                }));
    clock.Suspend(6 * kDay);
    EXPECT_EQ(RunTurn(), "ab.c");
}

TEST_F(TimerQueueTest, DatesThatAStepMovesFireInTheirNewOrder) {
    TestTimer a(start + kDay, 9 * kDay, Note('a', StopCurrentRun));
    TestTimer b(start + 2 * kDay, kDay, Note('b', StopCurrentRun));
    TestTimer earlier(start + 60, 0, [&] { clock.Step(-1000 * kDay); });
    CFRunLoopRun();
    EXPECT_EQ(order, "b");
    EXPECT_LT(clock.Elapsed(), 3 * kDay);
}

// The timer is not in the queue while it calls out.
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
