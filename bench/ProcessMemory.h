#ifndef BENCH_PROCESSMEMORY_H
#define BENCH_PROCESSMEMORY_H

#include <sys/types.h>

namespace bench {

// Bytes that are the process's alone, as the kernel counts them in smaps_rollup: those that it has
// written, and with those that it has only read.
double ReadDirtyMemory(pid_t process);
double ReadPrivateMemory(pid_t process);

// Bytes of it that are in memory, now and at most, since this process forgot its own peak.
double ReadResidentMemory(pid_t process);
double ReadPeakMemory(pid_t process);
void ForgetPeakMemory();

} // namespace bench

#endif
