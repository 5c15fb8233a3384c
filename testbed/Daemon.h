#ifndef TESTBED_DAEMON_H
#define TESTBED_DAEMON_H

#include "testbed/Process.h"

#include <string>
#include <sys/types.h>
#include <vector>

namespace testbed {

struct DaemonStart {
    std::vector<std::string> arguments{"trayprobed"}; // from argv[0] on
    std::vector<std::string> environment;             // besides the plain one
    int descriptorLimit = 0; // none unless set; arguments do not count then
};

/* What a daemon holds of the kernel's, to be compared before and after some work. */
struct ResourceUsage {
    std::size_t threads = 0;
    std::vector<std::string> descriptors; // sorted

    bool IsWithin(const ResourceUsage& limit) const;
};

std::string Describe(const ResourceUsage& usage);

/* The real daemon as a child process. */
class Daemon {
public:
    Daemon(OutputLog& outputLog, const DaemonStart& start);

    pid_t Pid() const {
        return process_.Pid();
    }
    bool IsRunning() const {
        return process_.IsRunning();
    }
    void Signal(int number) const {
        process_.Signal(number);
    }
    // By SIGSTOP and SIGCONT: after Freeze no thread of it runs, until Thaw.
    void Freeze() const {
        process_.Stop();
    }
    void Thaw() const {
        process_.Continue();
    }
    ResourceUsage ReadResourceUsage() const;

    // Waits until the daemon holds no more than that; returns what it holds then, or still.
    ResourceUsage AwaitResourceUsageWithin(const ResourceUsage& limit) const;

    // It runs until it is killed. Returns the wait status, of that death or of an earlier one.
    int Stop();
    int AwaitEnd() {
        return process_.AwaitEnd();
    }

private:
    Process process_;
};

} // namespace testbed

#endif
