#ifndef BENCH_PROGRAM_H
#define BENCH_PROGRAM_H

#include <sys/types.h>

#include <string>
#include <vector>

namespace bench {

/* Runs a program and waits for its end; its standard output is discarded. `words` are its arguments
   from argv[0] on; words[0] is a path or a name to search in PATH. Throws Failure unless it exits
   with 0. */
void RunProgram(const std::vector<std::string>& words);

/* The number of other processes while the process table is read. */
inline constexpr int kOtherProcesses = 500;

/* Idle processes, as entries of the process table. */
class Sleepers {
public:
    // Starts `count` processes; the destructor kills them. Throws Failure on errors.
    explicit Sleepers(int count);
    ~Sleepers();
    Sleepers(const Sleepers&) = delete;
    Sleepers& operator=(const Sleepers&) = delete;

private:
    std::vector<pid_t> processes_;
};

} // namespace bench

#endif
