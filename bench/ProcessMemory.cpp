#include "ProcessMemory.h"

#include "Report.h"
#include "testbed/Failure.h"
#include "testbed/ProcessState.h"

#include <fstream>
#include <sstream>
#include <string>

namespace bench {
namespace {

double ReadField(pid_t process, const std::string& file, const std::string& field) {
    std::istringstream lines(testbed::ReadProcFile(process, file));
    for (std::string word; lines >> word;) {
        if (word == field) {
            lines >> word;
            return std::stod(word) * kKibibyte;
        }
    }
    throw testbed::Failure("no " + field + " in " + file + " of a process");
}

} // namespace

double ReadDirtyMemory(pid_t process) {
    return ReadField(process, "smaps_rollup", "Private_Dirty:");
}

double ReadPrivateMemory(pid_t process) {
    return ReadDirtyMemory(process) + ReadField(process, "smaps_rollup", "Private_Clean:");
}

double ReadResidentMemory(pid_t process) {
    return ReadField(process, "status", "VmRSS:");
}

double ReadPeakMemory(pid_t process) {
    return ReadField(process, "status", "VmHWM:");
}

void ResetPeakMemory() {
    std::ofstream file("/proc/self/clear_refs");
    file << '5';
    file.close();
    testbed::Require(file.good(), "cannot reset the peak of memory");
}

} // namespace bench
