#include "bench/Comparison.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <functional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

using bench::Comparison;

namespace {

constexpr std::size_t kRounds = 5;
constexpr std::size_t kRunsOfATrial = 2 + kRounds; // the first two warm up and tell how long one is

// Rounds of one run each, so that the bodies decide which times there are.
class ScriptedContest : public testing::Test {
protected:
    // The times of the rounds of each trial, from the first on again when there are more rounds.
    // Those of the last trial repeat.
    void Add(const std::string& name, const std::vector<std::vector<double>>& trials) {
        comparison_.AddTimed(name, [this, trials, run = std::size_t{0}]() mutable {
            const std::size_t trial = std::min(run / kRunsOfATrial, trials.size() - 1);
            const std::size_t round = run % kRunsOfATrial;
            ++run;
            runs_ = std::max(runs_, run);
            return round < 2 ? 1e9 : trials[trial][(round - 2) % trials[trial].size()];
        });
    }
    std::size_t CountTrials() const {
        return runs_ / kRunsOfATrial;
    }

    Comparison comparison_{kRounds, Comparison::Thread::Main, 0};

private:
    std::size_t runs_ = 0;
};

} // namespace

TEST_F(ScriptedContest, NarrowRatioEndsAfterTheFirstTrial) {
    Add("ours", {{1}});
    Add("theirs", {{2}});
    comparison_.Run();
    EXPECT_EQ(CountTrials(), 1U);
    EXPECT_EQ(comparison_.Ratio("theirs", "ours").median, 2);
}

TEST_F(ScriptedContest, WideRatioIsTriedFiveTimes) {
    Add("ours", {{1}});
    Add("theirs", {{1, 2}});
    comparison_.Run();
    EXPECT_EQ(CountTrials(), 5U);
}

TEST_F(ScriptedContest, RatioIsOfTheSameRound) {
    Add("ours", {{1, 2, 3, 4, 5}});
    Add("theirs", {{2, 4, 6, 8, 10}});
    comparison_.Run();
    EXPECT_EQ(CountTrials(), 1U);
    EXPECT_FALSE(comparison_.Time("ours").IsNarrow());
    EXPECT_EQ(comparison_.Ratio("theirs", "ours").low, 2);
    EXPECT_EQ(comparison_.Ratio("theirs", "ours").high, 2);
}

// Each of the two is within 5 % of the first one, but not of the other.
TEST_F(ScriptedContest, WideRatioOfTheSecondToTheThirdIsTriedAgain) {
    Add("first", {{1}});
    Add("second", {{1, 1.04}});
    Add("third", {{1.04, 1}});
    comparison_.Run();
    EXPECT_TRUE(comparison_.Ratio("second", "first").IsNarrow());
    EXPECT_TRUE(comparison_.Ratio("third", "first").IsNarrow());
    EXPECT_EQ(CountTrials(), 5U);
}

TEST_F(ScriptedContest, WideTimesOfTheOnlyContenderAreTriedAgain) {
    Add("all", {{1, 2}});
    comparison_.Run();
    EXPECT_EQ(CountTrials(), 5U);
}

TEST_F(ScriptedContest, NarrowTimesOfTheOnlyContenderEndAfterTheFirstTrial) {
    Add("all", {{1}});
    comparison_.Run();
    EXPECT_EQ(CountTrials(), 1U);
}

TEST_F(ScriptedContest, LastTrialCountsAlone) {
    Add("all", {{1, 2}, {3}});
    comparison_.Run();
    EXPECT_EQ(CountTrials(), 2U);
    EXPECT_EQ(comparison_.Time("all").low, 3);
    EXPECT_EQ(comparison_.Time("all").high, 3);
    EXPECT_EQ(comparison_.Time("all").count, kRounds);
}

TEST_F(ScriptedContest, TimesAreTold) {
    Add("ours", {{0.5}});
    Add("theirs", {{0.25}});
    comparison_.Run();
    EXPECT_EQ(comparison_.Tell({"theirs", "ours"}), "theirs 250 ms, ours 500 ms");
}

TEST_F(ScriptedContest, UnknownNameThrows) {
    Add("ours", {{1}});
    comparison_.Run();
    EXPECT_THROW(comparison_.Time("theirs"), std::invalid_argument);
}

// Twice as long as a turn when the last in one is the first in the next.
TEST(Comparison, ContendersTakeTurnsWithinARound) {
    std::string log;
    Comparison comparison(1, Comparison::Thread::Main, 0.01);
    comparison.Add("a", [&] { log += 'a'; });
    comparison.Add("b", [&] { log += 'b'; });
    comparison.Run();
    log.erase(0, 4); // what tells how long one is
    const auto runs = [&](char name) { return std::ranges::count(log, name); };
    const auto turns = std::min<std::ptrdiff_t>({16, runs('a'), runs('b')});
    for (const char name : {'a', 'b'}) {
        const auto share = static_cast<std::size_t>(runs(name) / turns + 1);
        EXPECT_EQ(log.find(std::string(2 * share + 1, name)), std::string::npos)
            << runs(name) << " runs of " << name;
    }
}

TEST(Comparison, BodiesRunOnTheThreadThatWasChosen) {
    for (const auto& [thread, isThis] : {std::pair(Comparison::Thread::Main, true),
                                         std::pair(Comparison::Thread::Another, false)}) {
        Comparison comparison(1, thread, 0);
        std::thread::id id;
        comparison.Add("all", [&] { id = std::this_thread::get_id(); });
        comparison.Run();
        EXPECT_EQ(id == std::this_thread::get_id(), isThis);
    }
}

TEST(Comparison, FailureOfABodyIsThrown) {
    for (const Comparison::Thread thread :
         {Comparison::Thread::Main, Comparison::Thread::Another}) {
        Comparison comparison(1, thread, 0);
        comparison.Add("all", [] { throw std::runtime_error("failed"); });
        EXPECT_THROW(comparison.Run(), std::runtime_error);
    }
}
