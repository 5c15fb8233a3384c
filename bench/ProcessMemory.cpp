#include "ProcessMemory.h"

#include "Report.h"

#include "stage/Failure.h"
#include "stage/ProcessState.h"

#include <sstream>
#include <string>

namespace bench {
namespace {

double ReadRollup(pid_t process, const std::string& field) {
    std::istringstream lines(stage::ReadProcFile(process, "smaps_rollup"));
    for (std::string word; lines >> word;) {
        if (word == field) {
            lines >> word;
            return std::stod(word) * kKibibyte;
        }
    }
    throw stage::Failure("no " + field + " in smaps_rollup of a process");
}

} // namespace

double ReadDirtyMemory(pid_t process) {
    return ReadRollup(process, "Private_Dirty:");
}

double ReadPrivateMemory(pid_t process) {
    return ReadDirtyMemory(process) + ReadRollup(process, "Private_Clean:");
}

} // namespace bench
