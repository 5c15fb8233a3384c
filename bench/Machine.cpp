#include "Machine.h"

#include "Report.h"

#include <array>
#include <cmath>
#include <cstdlib>
#include <sys/utsname.h>
#include <thread>
#include <unistd.h>

namespace bench {
namespace {

constexpr const char* kHow =
    "# What it costs\n\n"
    "Written by `scripts/bench`, with the pictures. Ways to do the same are timed round by round, "
    "in random order in each. A figure is the median of n rounds, beside the borders of their "
    "middle half; a ratio is taken in each round, of two times of that round. Where the middle "
    "half is wider than 5 % of the median even in long rounds, and the goal lies in it, the "
    "machine was too busy to tell. What has no middle half was measured once.\n\n";

} // namespace

std::string DescribeRun() {
    utsname system{};
    uname(&system);
    std::array<double, 1> load{};
    getloadavg(load.data(), 1);
    const auto memory = double(sysconf(_SC_PHYS_PAGES)) * double(sysconf(_SC_PAGESIZE));
    return kHow + std::to_string(std::thread::hardware_concurrency()) + " cores, " +
           std::to_string(std::lround(memory / (1 << 30))) + " GiB, " + system.machine +
           ", Linux " + system.release + "; a load of " + InUnits(load[0], "") +
           " in the minute before.\n\n";
}

} // namespace bench
