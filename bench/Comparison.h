#ifndef BENCH_COMPARISON_H
#define BENCH_COMPARISON_H

#include "Spread.h"

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

namespace bench {

/*
 * Compares the run times of candidates: alternative ways to do the same work. Each round is divided
 * into time slices, in which the candidates run in random order; a disturbance by other processes
 * affects all candidates of a round. Results are ratios of two times of the same round.
 *
 * A trial is a number of rounds. It is repeated with rounds of twice the length, in which
 * disturbances average out, until its result is narrow (Spread::IsNarrow): the ratios of all pairs
 * of candidates, or the times of a single candidate. There are at most five trials, and none begins
 * later than 90 seconds after the first one. Only the last trial counts.
 */
class Comparison {
public:
    enum class Thread { Main, Worker };
    // `thread`: where the candidates run; Worker is a new thread, Main the caller of Run().
    explicit Comparison(std::size_t rounds = 15, Thread thread = Thread::Main,
                        double secondsPerRound = 0.1)
        : rounds_(rounds), thread_(thread), secondsPerRound_(secondsPerRound) {}
    Comparison(const Comparison&) = delete;
    Comparison& operator=(const Comparison&) = delete;

    // Adds a candidate. The body is one run; a round repeats it for about `secondsPerRound`.
    void Add(const std::string& name, const std::function<void()>& body);
    // As Add, but the body measures its time itself and returns it, in seconds.
    void AddTimed(const std::string& name, std::function<double()> body);

    // Runs the trials; blocks until they are done. Rethrows exceptions of the bodies.
    void Run();

    // The times of a candidate, in seconds per run. Throws std::invalid_argument if there is no
    // such candidate.
    Spread Time(const std::string& name) const;
    // The ratios of the times of two candidates in the same round. Throws like Time().
    Spread Ratio(const std::string& over, const std::string& under) const;

    // Formats the median times of the candidates: "ours 1.20 ms, find 2.40 ms".
    std::string DescribeTimes(const std::vector<std::string>& names) const;

private:
    struct Candidate {
        std::string name;
        std::function<double()> body;
        std::size_t runs = 1;      // per round
        std::vector<double> times; // seconds per run, one for each round
    };
    const Candidate& Find(const std::string& name) const;
    void RunTrial(double seconds);
    void RunRound();
    void RunTrials();
    bool IsNarrow() const;

    const std::size_t rounds_;
    const Thread thread_;
    const double secondsPerRound_;
    std::vector<Candidate> candidates_;
};

} // namespace bench

#endif
