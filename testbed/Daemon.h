#ifndef TESTBED_DAEMON_H
#define TESTBED_DAEMON_H

#include "testbed/Process.h"

#include <sys/types.h>

#include <string>
#include <vector>

namespace testbed {

/* How to start the daemon. */
struct DaemonStart {
    std::vector<std::string> arguments{"trayprobed"}; // from argv[0] on
    std::vector<std::string> environment;             // added to MinimalEnvironment()
    int descriptorLimit = 0; // 0: no limit; otherwise argv[0] is the program's path
};

/* Which daemon the Daemon objects of this process start, and how. */
struct TestedDaemon {
    std::string program;     // a path outside /tmp and /dev; empty: this build's daemon
    bool isConfined = false; // with what the systemd unit permits; requires ShareMounts()
};
inline TestedDaemon g_testedDaemon;

/* The kernel resources of a daemon, for a comparison before and after a test. */
struct ResourceUsage {
    std::size_t threads = 0;
    std::vector<std::string> descriptors; // see ListDescriptors()

    // True if the process has at most as many threads, and no descriptor that is not in `limit`.
    bool IsWithin(const ResourceUsage& limit) const;
};

/* Formats the number of threads and the targets of the descriptors, for a test's failure message.
 */
std::string Describe(const ResourceUsage& usage);

/* The real daemon as a child process. All functions throw Failure on errors. */
class Daemon {
public:
    // Starts the daemon; does not wait for its initialisation. Its standard input is closed, its
    // output goes to `outputLog`.
    Daemon(OutputLog& outputLog, const DaemonStart& start);

    // See Process.
    pid_t Pid() const {
        return process_.Pid();
    }
    bool IsRunning() const {
        return process_.IsRunning();
    }
    void Signal(int number) const {
        process_.Signal(number);
    }
    // Freeze() sends SIGSTOP and waits until all threads have stopped; Thaw() sends SIGCONT.
    void Freeze() const {
        process_.Stop();
    }
    void Thaw() const {
        process_.Continue();
    }
    // Reads the present usage from /proc.
    ResourceUsage ReadResourceUsage() const;

    // Waits until the usage is within `limit`, at most kTimeOut; returns the last usage read.
    ResourceUsage AwaitResourceUsageWithin(const ResourceUsage& limit) const;

    // Sends SIGTERM if the daemon runs, and waits for its end. Returns the wait status.
    int Stop();
    // Waits for the daemon's end; returns the wait status.
    int AwaitEnd() {
        return process_.AwaitEnd();
    }

private:
    Process process_;
};

} // namespace testbed

#endif
