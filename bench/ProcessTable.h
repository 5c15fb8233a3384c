#ifndef BENCH_PROCESSTABLE_H
#define BENCH_PROCESSTABLE_H

#include <cstddef>

namespace bench {

/* Reads the process table as the daemon does; returns the number of processes in it. Throws when it
   cannot be read. */
std::size_t ReadProcessTable();

} // namespace bench

#endif
