#ifndef BENCH_CONTEST_H
#define BENCH_CONTEST_H

#include <functional>
#include <map>
#include <string>
#include <vector>

namespace bench {

// Ways to do the same, timed round by round in random order by Google Benchmark, so that what
// else the machine does falls on all of them. The time is the real one: the median of the rounds,
// in seconds.
class Contest {
public:
    enum class Thread { Main, Another };
    explicit Contest(int rounds = 15, Thread thread = Thread::Main)
        : rounds_(rounds), thread_(thread) {}
    Contest(const Contest&) = delete;
    Contest& operator=(const Contest&) = delete;

    // The body is one run, and is repeated in a round until that takes a while.
    void Add(const std::string& name, std::function<void()> body);
    // One that tells itself how many seconds it took.
    void AddTimed(const std::string& name, std::function<double()> body);

    using Times = std::map<std::string, double>;
    Times Run();

    // "ours 1.20 ms, theirs 2.40 ms"
    static std::string Tell(const Times& times, const std::vector<std::string>& names);

private:
    const int rounds_;
    const Thread thread_;
    std::map<std::string, std::function<double()>> bodies_;
};

} // namespace bench

#endif
