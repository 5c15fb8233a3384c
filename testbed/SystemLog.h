#ifndef TESTBED_SYSTEMLOG_H
#define TESTBED_SYSTEMLOG_H

#include "testbed/OutputLog.h"

#include <string>

namespace testbed {

/* The system log daemon of the private world: owns /dev/log and puts every message on the
   outputLog, as "trayprobed: text" once its priority and date are taken off. A message that is not
   formed like that, or not of the daemon's priority, is recorded as it came. */
class SystemLog {
public:
    explicit SystemLog(OutputLog& outputLog);
    ~SystemLog();
    SystemLog(const SystemLog&) = delete;
    SystemLog& operator=(const SystemLog&) = delete;

    // Everything logged before this call is in the output log afterwards.
    void Flush();

private:
    OutputLog& outputLog_;
};

/* "<9>Nov 21 02:00:00 trayprobed: text" without priority (user.alert) and date. */
std::string WithoutHeader(const std::string& message);

} // namespace testbed

#endif
