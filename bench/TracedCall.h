#ifndef BENCH_TRACEDCALL_H
#define BENCH_TRACEDCALL_H

#include <string>

namespace bench {

/* A system call, parsed from a line of strace with the options -f, -ttt and -T. */
struct TracedCall {
    // Parses the line. Throws std::invalid_argument if it has no time.
    explicit TracedCall(std::string line);

    std::string line;
    // Seconds since 1970. For a resumed call strace prints the time of its end; both have it then.
    double begin;
    double end;
};

/* True if the line shows the return of the call: a complete line, or the second half of a split
 * one.
 */
bool HasReturned(const std::string& line);

} // namespace bench

#endif
