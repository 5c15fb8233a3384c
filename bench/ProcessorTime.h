#ifndef BENCH_PROCESSORTIME_H
#define BENCH_PROCESSORTIME_H

#include <sys/types.h>

namespace bench {

/* Returns the processor time that all threads of the process have used so far, ended ones included,
   in seconds. Throws Failure on errors. */
double ProcessorTimeOf(pid_t process);

} // namespace bench

#endif
