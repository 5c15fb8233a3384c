#include "ChangerServerConnectionLib/ChangerServerProcess.h"

#include <stddef.h>
#include <sys/sysctl.h>

void GetChangerServerProcess(SInt32 pid, ChangerServerProcess* process) {
    int name[] = {CTL_KERN, KERN_PROC, KERN_PROC_PID, pid};
    struct kinfo_proc record = {};
    size_t length = sizeof record;
    *process = {pid, {}};
    if (sysctl(name, 4, &record, &length, nullptr, 0) == 0 && length == sizeof record)
        process->startTime = record.kp_proc.p_starttime;
}

static bool IsStartTimeKnown(const ChangerServerProcess* process) {
    return process->startTime.tv_sec != 0 || process->startTime.tv_usec != 0;
}

bool IsSameChangerServerProcess(const ChangerServerProcess* one,
                                const ChangerServerProcess* other) {
    if (one->pid != other->pid)
        return false;
    return !IsStartTimeKnown(one) || !IsStartTimeKnown(other) ||
           (one->startTime.tv_sec == other->startTime.tv_sec &&
            one->startTime.tv_usec == other->startTime.tv_usec);
}
