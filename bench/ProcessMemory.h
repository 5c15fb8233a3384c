#ifndef BENCH_PROCESSMEMORY_H
#define BENCH_PROCESSMEMORY_H

#include <sys/types.h>

namespace bench {

/* Memory of a process in bytes; the kernel counts whole pages. Functions throw Failure on errors.
 */

/* Memory that no other process shares: the pages that the process has written, and all pages. */
double ReadDirtyMemory(pid_t process);
double ReadPrivateMemory(pid_t process);

/* Resident memory: the present value, and the peak. */
double ReadResidentMemory(pid_t process);
double ReadPeakMemory(pid_t process);

/* Sets the peak of this process to its present resident memory. */
void ResetPeakMemory();

} // namespace bench

#endif
