#ifndef BENCH_COMPARISON_H
#define BENCH_COMPARISON_H

#include "Spread.h"

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

namespace bench {

/*
 * Ways to do the same, timed round by round: in each round they take turns, in random order, so
 * that what else the machine does falls on all. What counts is the ratio of two in the same round.
 *
 * A trial is repeated with rounds twice as long, in which disturbances level out, until its result
 * is narrow (Spread::IsNarrow): the ratio of each two contenders, or the times of the only one.
 * There are five trials at most, and none begins after a minute and a half. The last one counts.
 */
class Comparison {
public:
    enum class Thread { Main, Another };
    explicit Comparison(std::size_t rounds = 15, Thread thread = Thread::Main,
                        double secondsPerRound = 0.1)
        : rounds_(rounds), thread_(thread), secondsPerRound_(secondsPerRound) {}
    Comparison(const Comparison&) = delete;
    Comparison& operator=(const Comparison&) = delete;

    // The body is one run, and is repeated in a round until that takes its seconds.
    void Add(const std::string& name, const std::function<void()>& body);
    // As Add, but what counts is the seconds that the body returns, such as those of a part of it.
    void AddTimed(const std::string& name, std::function<double()> body);

    void Run();

    // Seconds a run.
    Spread Time(const std::string& name) const;
    // Paired: of the times of the same round.
    Spread Ratio(const std::string& over, const std::string& under) const;

    // "ours 1.20 ms, theirs 2.40 ms"
    std::string Tell(const std::vector<std::string>& names) const;

private:
    struct Contender {
        std::string name;
        std::function<double()> body;
        std::size_t runs = 1;      // in a round
        std::vector<double> times; // seconds a run, one for each round
    };
    const Contender& Find(const std::string& name) const;
    void RunTrial(double seconds);
    void RunRound();
    void RunTrials();
    bool IsNarrow() const;

    const std::size_t rounds_;
    const Thread thread_;
    const double secondsPerRound_;
    std::vector<Contender> contenders_;
};

} // namespace bench

#endif
