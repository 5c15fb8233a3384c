#ifndef BENCH_PROGRAM_H
#define BENCH_PROGRAM_H

#include <string>
#include <sys/types.h>
#include <vector>

namespace bench {

// Runs it to its end, its output unread. Throws unless it succeeds. The first word is searched for
// as a shell does.
void RunProgram(const std::vector<std::string>& words);

// On a machine that has much else to do.
inline constexpr int kOthers = 500;

// Processes that sleep as long as this lives.
class Sleepers {
public:
    explicit Sleepers(int count);
    ~Sleepers();
    Sleepers(const Sleepers&) = delete;
    Sleepers& operator=(const Sleepers&) = delete;

private:
    std::vector<pid_t> processes_;
};

} // namespace bench

#endif
