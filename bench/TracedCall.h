#ifndef BENCH_TRACED_CALL_H
#define BENCH_TRACED_CALL_H

#include <string>

namespace bench {

/* A system call as a line of strace shows it, with the options -f, -ttt and -T. */
struct TracedCall {
    explicit TracedCall(std::string line);

    std::string line;
    // Seconds since 1970. A call that was resumed has the time of its end for both.
    double begin;
    double end;
};

/* Whether the call has come back; its line is complete, or the end of one that was cut in two. */
bool HasReturned(const std::string& line);

} // namespace bench

#endif
