#include "Machine.h"

#include "Report.h"

#include <sys/utsname.h>
#include <unistd.h>

#include <array>
#include <cmath>
#include <cstdlib>
#include <thread>

namespace bench {
namespace {

constexpr const char* kHow =
    "# Benchmarks\n\n"
    "Written by `scripts/bench`, with the pictures. Alternatives are timed in the same rounds, in "
    "random order within a round. A measured value is the median of n rounds, with the "
    "interquartile range. A ratio is calculated for each round, from two times of that round. A "
    "result is inconclusive if its interquartile range is wider than 5 % of the median even in "
    "long rounds, and the goal is within the range: the machine was too busy. A value without a "
    "range was measured once. \"Ours\" is trayprobed.\n\n";

} // namespace

std::string DescribeRun() {
    utsname system{};
    uname(&system);
    std::array<double, 1> load{};
    getloadavg(load.data(), 1);
    const auto memory = double(sysconf(_SC_PHYS_PAGES)) * double(sysconf(_SC_PAGESIZE));
    return kHow + std::to_string(std::thread::hardware_concurrency()) + " cores, " +
           std::to_string(std::lround(memory / (1 << 30))) + " GiB, " + system.machine +
           ", Linux " + system.release + "; load average " + InUnits(load[0], "") +
           " in the minute before.\n\n";
}

} // namespace bench
