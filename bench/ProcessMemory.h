#ifndef BENCH_PROCESSMEMORY_H
#define BENCH_PROCESSMEMORY_H

#include <sys/types.h>

namespace bench {

// Bytes that are the process's alone, as the kernel counts them in smaps_rollup: those that it has
// written, and with those that it has only read.
double ReadDirtyMemory(pid_t process);
double ReadPrivateMemory(pid_t process);

} // namespace bench

#endif
