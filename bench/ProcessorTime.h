#ifndef BENCH_PROCESSORTIME_H
#define BENCH_PROCESSORTIME_H

#include <sys/types.h>

namespace bench {

// The seconds of processor that all threads of the process have taken so far.
double ProcessorTimeOf(pid_t process);

} // namespace bench

#endif
