#ifndef BENCH_CONTEST_H
#define BENCH_CONTEST_H

#include "Spread.h"

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

namespace bench {

// Ways to do the same, timed round by round: in each round all of them once, in random order, so
// that what else the machine does falls on all. What counts is the ratio of two in the same round.
//
// When the middle half of the ratios to the first contender is wider than 5 %, the trial is
// repeated with rounds twice as long, in which disturbances level out, up to three trials or a
// minute.
class Contest {
public:
    enum class Thread { Main, Another };
    explicit Contest(std::size_t rounds = 15, Thread thread = Thread::Main)
        : rounds_(rounds), thread_(thread) {}
    Contest(const Contest&) = delete;
    Contest& operator=(const Contest&) = delete;

    // The body is one run, and is repeated in a round until that takes a while.
    void Add(const std::string& name, const std::function<void()>& body);
    // One that tells itself how many seconds it took, or something did in it.
    void AddTimed(const std::string& name, std::function<double()> body);

    void Run();

    // Seconds a run.
    Spread Time(const std::string& name) const;
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
    void RunTrials();
    bool IsClear() const;

    const std::size_t rounds_;
    const Thread thread_;
    std::vector<Contender> contenders_;
};

} // namespace bench

#endif
