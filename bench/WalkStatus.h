#ifndef BENCH_WALKSTATUS_H
#define BENCH_WALKSTATUS_H

#include <cstddef>
#include <cstdio>
#include <cstdlib>

namespace bench {

/* Returns the exit status of a program that walks a tree. It fails if the number of entries is not
   `expected`, an argument of the program: a walk that missed entries would be faster. The reason
   goes to standard error. */
inline int WalkExitStatus(const char* program, std::size_t found, const char* expected) {
    if (found == std::strtoul(expected, nullptr, 10))
        return EXIT_SUCCESS;
    std::fprintf(stderr, "%s found %zu entries instead of %s\n", program, found, expected);
    return EXIT_FAILURE;
}

} // namespace bench

#endif
