#include "Machine.h"

#include <cmath>
#include <sys/utsname.h>
#include <thread>
#include <unistd.h>

namespace bench {

std::string DescribeRun() {
    utsname system{};
    uname(&system);
    const auto memory = double(sysconf(_SC_PHYS_PAGES)) * double(sysconf(_SC_PAGESIZE));
    return "# What it costs\n\n"
           "Written by `scripts/bench`. Times are medians of rounds in random order, unless a "
           "section says otherwise; on a shared machine only the ratios last.\n\n" +
           std::to_string(std::thread::hardware_concurrency()) + " cores, " +
           std::to_string(std::lround(memory / (1 << 30))) + " GiB, " + system.machine +
           ", Linux " + system.release + ".\n\n";
}

} // namespace bench
