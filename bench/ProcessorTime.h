#ifndef BENCH_PROCESSORTIME_H
#define BENCH_PROCESSORTIME_H

#include <sys/types.h>

namespace bench {

/* Seconds of processor time that all threads of the process have used so far, those that ended as
   well. */
double ProcessorTimeOf(pid_t process);

} // namespace bench

#endif
