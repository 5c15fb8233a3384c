#ifndef BENCH_PROGRAM_H
#define BENCH_PROGRAM_H

#include <string>
#include <sys/types.h>
#include <vector>

namespace bench {

/* Runs a program until it exits; its standard output is discarded. Throws unless it succeeds. The
   first word is a path, or searched for in PATH. */
void RunProgram(const std::vector<std::string>& words);

/* How many other processes there are where the process table is read. */
inline constexpr int kOthers = 500;

/* So many processes, which do nothing until this object goes. */
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
