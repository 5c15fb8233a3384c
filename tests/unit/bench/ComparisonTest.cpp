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
constexpr std::size_t kRunsPerTrial = 2 + kRounds; // two to warm up and to estimate a run's time

// A comparison with one run per round; the bodies return prepared times.
class ScriptedComparison : public testing::Test {
protected:
    // Adds a candidate with the times of the rounds of each trial. The times repeat if there are
    // more rounds, the last trial repeats if there are more trials.
    void Add(const std::string& name, const std::vector<std::vector<double>>& trials) {
        comparison_.AddTimed(name, [this, trials, run = std::size_t{0}]() mutable {
            const std::size_t trial = std::min(run / kRunsPerTrial, trials.size() - 1);
            const std::size_t round = run % kRunsPerTrial;
            ++run;
            runs_ = std::max(runs_, run);
            return round < 2 ? 1e9 : trials[trial][(round - 2) % trials[trial].size()];
        });
    }
    // Runs the comparison and returns the number of trials.
    std::size_t RunTrials() {
        comparison_.Run();
        return runs_ / kRunsPerTrial;
    }

    Comparison comparison_{kRounds, Comparison::Thread::Main, 0};

private:
    std::size_t runs_ = 0;
};

} // namespace

TEST_F(ScriptedComparison, NarrowRatioEndsAfterTheFirstTrial) {
    Add("ours", {{1}});
    Add("theirs", {{2}});
    EXPECT_EQ(RunTrials(), 1U);
    EXPECT_EQ(comparison_.Ratio("theirs", "ours").median, 2);
}

TEST_F(ScriptedComparison, WideRatioEndsAfterFiveTrials) {
    Add("ours", {{1}});
    Add("theirs", {{1, 2}});
    EXPECT_EQ(RunTrials(), 5U);
}

TEST_F(ScriptedComparison, RatioUsesTimesOfTheSameRound) {
    Add("ours", {{1, 2, 3, 4, 5}});
    Add("theirs", {{2, 4, 6, 8, 10}});
    EXPECT_EQ(RunTrials(), 1U);
    EXPECT_FALSE(comparison_.Time("ours").IsNarrow());
    EXPECT_EQ(comparison_.Ratio("theirs", "ours").low, 2);
    EXPECT_EQ(comparison_.Ratio("theirs", "ours").high, 2);
}

// The second and the third are each within 5 % of the first, but not of each other.
TEST_F(ScriptedComparison, WideRatioOfTheSecondToTheThirdRepeatsTheTrial) {
    Add("first", {{1}});
    Add("second", {{1, 1.04}});
    Add("third", {{1.04, 1}});
    EXPECT_EQ(RunTrials(), 5U);
    EXPECT_TRUE(comparison_.Ratio("second", "first").IsNarrow());
    EXPECT_TRUE(comparison_.Ratio("third", "first").IsNarrow());
}

TEST_F(ScriptedComparison, WideTimesOfASingleCandidateRepeatTheTrial) {
    Add("all", {{1, 2}});
    EXPECT_EQ(RunTrials(), 5U);
}

TEST_F(ScriptedComparison, NarrowTimesOfASingleCandidateEndAfterTheFirstTrial) {
    Add("all", {{1}});
    EXPECT_EQ(RunTrials(), 1U);
}

TEST_F(ScriptedComparison, ResultIsThatOfTheLastTrialOnly) {
    Add("all", {{1, 2}, {3}});
    EXPECT_EQ(RunTrials(), 2U);
    EXPECT_EQ(comparison_.Time("all").low, 3);
    EXPECT_EQ(comparison_.Time("all").high, 3);
    EXPECT_EQ(comparison_.Time("all").count, kRounds);
}

TEST_F(ScriptedComparison, DescriptionHasTheMedianTimesInTheGivenOrder) {
    Add("ours", {{0.5}});
    Add("theirs", {{0.25}});
    comparison_.Run();
    EXPECT_EQ(comparison_.DescribeTimes({"theirs", "ours"}), "theirs 250 ms, ours 500 ms");
}

TEST_F(ScriptedComparison, TimeOfAnUnknownCandidateThrows) {
    Add("ours", {{1}});
    comparison_.Run();
    EXPECT_THROW(comparison_.Time("theirs"), std::invalid_argument);
}

// A candidate may be the last of a slice and the first of the next: at most two shares in sequence.
TEST(Comparison, CandidatesAreInterleavedWithinARound) {
    std::string log;
    Comparison comparison(1, Comparison::Thread::Main, 0.01);
    comparison.Add("a", [&] { log += 'a'; });
    comparison.Add("b", [&] { log += 'b'; });
    comparison.Run();
    log.erase(0, 4); // the runs before the rounds
    const auto runs = [&](char name) { return std::ranges::count(log, name); };
    const auto slices = std::min<std::ptrdiff_t>({16, runs('a'), runs('b')});
    for (const char name : {'a', 'b'}) {
        const auto share = static_cast<std::size_t>(runs(name) / slices + 1);
        EXPECT_EQ(log.find(std::string(2 * share + 1, name)), std::string::npos)
            << runs(name) << " runs of " << name;
    }
}

TEST(Comparison, BodiesRunOnTheChosenThread) {
    for (const auto& [thread, isThis] : {std::pair(Comparison::Thread::Main, true),
                                         std::pair(Comparison::Thread::Worker, false)}) {
        Comparison comparison(1, thread, 0);
        std::thread::id id;
        comparison.Add("all", [&] { id = std::this_thread::get_id(); });
        comparison.Run();
        EXPECT_EQ(id == std::this_thread::get_id(), isThis);
    }
}

TEST(Comparison, ExceptionOfABodyLeavesRun) {
    for (const Comparison::Thread thread : {Comparison::Thread::Main, Comparison::Thread::Worker}) {
        Comparison comparison(1, thread, 0);
        comparison.Add("all", [] { throw std::runtime_error("failed"); });
        EXPECT_THROW(comparison.Run(), std::runtime_error);
    }
}
