#ifndef BENCH_PROCESSMEMORY_H
#define BENCH_PROCESSMEMORY_H

#include <sys/types.h>

namespace bench {

/* All in bytes, as the kernel counts them by pages. They throw when the kernel does not tell. */

/* Memory that no other process shares: that which the process has written, and all of it. */
double ReadDirtyMemory(pid_t process);
double ReadPrivateMemory(pid_t process);

/* Resident memory, now and at most. */
double ReadResidentMemory(pid_t process);
double ReadPeakMemory(pid_t process);

/* Has the peak of this process begin anew with what is resident now. */
void ForgetPeakMemory();

} // namespace bench

#endif
