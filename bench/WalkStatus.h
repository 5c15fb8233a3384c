#ifndef BENCH_WALKSTATUS_H
#define BENCH_WALKSTATUS_H

#include <cstddef>
#include <cstdio>
#include <cstdlib>

namespace bench {

/* The exit status of a walk, which fails unless it found that many entries: a walk that misses some
   would win. expected is the number as an argument of the program. */
inline int StatusOfWalk(const char* program, std::size_t found, const char* expected) {
    if (found == std::strtoul(expected, nullptr, 10))
        return EXIT_SUCCESS;
    std::fprintf(stderr, "%s found %zu entries instead of %s\n", program, found, expected);
    return EXIT_FAILURE;
}

} // namespace bench

#endif
