#ifndef BENCH_PROCESSTABLE_H
#define BENCH_PROCESSTABLE_H

#include <cstddef>

namespace bench {

/* Reads the process table by the daemon's function; returns the number of processes. Throws Failure
   on errors. */
std::size_t ReadProcessTable();

} // namespace bench

#endif
