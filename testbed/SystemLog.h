#ifndef TESTBED_SYSTEMLOG_H
#define TESTBED_SYSTEMLOG_H

#include "testbed/OutputLog.h"

#include <string>

namespace testbed {

/* The system log of a sandbox: creates /dev/log and adds every message to the output log, without
   its header of priority and date: "trayprobed: text". A message with another header keeps it. */
class SystemLog {
public:
    // Creates /dev/log; the destructor removes it. The output log must outlive this object. Throws
    // Failure on errors.
    explicit SystemLog(OutputLog& outputLog);
    ~SystemLog();
    SystemLog(const SystemLog&) = delete;
    SystemLog& operator=(const SystemLog&) = delete;

    // Waits until the output log contains all messages that were sent before this call. Throws
    // Failure after kTimeOut.
    void Flush();

private:
    OutputLog& outputLog_;
};

/* Removes priority and date from "<9>Nov 21 02:00:00 trayprobed: text"; priority 9 is user.alert.
   Returns other messages unchanged. */
std::string WithoutHeader(const std::string& message);

} // namespace testbed

#endif
