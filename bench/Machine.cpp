#include "Machine.h"

#include <cmath>
#include <fstream>
#include <sys/utsname.h>
#include <thread>
#include <unistd.h>

namespace bench {
namespace {

// The value of "name : value", or "NAME=value", in a file of such lines.
std::string ReadEntry(const char* file, const std::string& name, char separator) {
    std::ifstream lines(file);
    for (std::string line; std::getline(lines, line);) {
        if (line.starts_with(name)) {
            const std::string value = line.substr(line.find(separator) + 1);
            const auto begin = value.find_first_not_of(" \t\"");
            return value.substr(begin, value.find_last_not_of(" \"") - begin + 1);
        }
    }
    return "unknown";
}

} // namespace

std::string DescribeRun() {
    utsname system{};
    uname(&system);
    const auto memory = double(sysconf(_SC_PHYS_PAGES)) * double(sysconf(_SC_PAGESIZE));
    return "# What it costs\n\n"
           "Written by `scripts/bench`. Times are medians of rounds in turns; on a shared machine "
           "only the ratios last.\n\n" +
           ReadEntry("/proc/cpuinfo", "model name", ':') + ", " +
           std::to_string(std::thread::hardware_concurrency()) + " cores, " +
           std::to_string(std::lround(memory / (1 << 30))) + " GiB; " +
           ReadEntry("/etc/os-release", "PRETTY_NAME", '=') + ", Linux " + system.release + ".\n\n";
}

} // namespace bench
