#include "ProcessorTime.h"

#include "testbed/Failure.h"

#include <cerrno>
#include <ctime>

namespace bench {

double ProcessorTimeOf(pid_t process) {
    clockid_t clock{};
    timespec time{};
    errno = clock_getcpuclockid(process, &clock);
    testbed::Require(errno == 0 && clock_gettime(clock, &time) == 0,
                     "cannot read the processor time of a process");
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

} // namespace bench
