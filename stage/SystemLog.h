#ifndef STAGE_SYSTEMLOG_H
#define STAGE_SYSTEMLOG_H

#include "stage/Record.h"

#include <string>

namespace stage {

/* The system log daemon of the private world: owns /dev/log and puts every message on the record,
   as "trayprobed: text" once its priority and date are taken off. A message that is not formed
   like that, or not of the daemon's priority, is recorded as it came. */
class SystemLog {
public:
    explicit SystemLog(Record& record);
    ~SystemLog();
    SystemLog(const SystemLog&) = delete;
    SystemLog& operator=(const SystemLog&) = delete;

    // Everything logged before this call is on the record after it.
    void CatchUp();

private:
    Record& record_;
};

/* "<9>Nov 21 02:00:00 trayprobed: text" without priority (user.alert) and date. */
std::string WithoutStamp(const std::string& message);

} // namespace stage

#endif
