#ifndef TESTBED_TESTRUN_H
#define TESTBED_TESTRUN_H

/*
 * One run of the daemon against simulated servers, inside a sandbox. End() checks what every test
 * requires: the daemon still runs, uses no more kernel resources than at TakeBaseline(), and logged
 * and printed no line that the test did not await (reports of sanitizers are such lines).
 *
 * Functions throw Failure on errors and after kTimeOut.
 */

#include "testbed/Daemon.h"
#include "testbed/OutputLog.h"
#include "testbed/Simulator.h"
#include "testbed/SystemLog.h"

#include <optional>
#include <string>
#include <vector>

namespace testbed {

class TestRun {
public:
    TestRun() : log_(outputLog_) {}

    // All output of this run.
    testbed::OutputLog& OutputLog() {
        return outputLog_;
    }
    // The running server, the running daemon. Throw std::bad_optional_access if there is none.
    Simulator& Server() {
        return server_.value();
    }
    testbed::Daemon& Daemon() {
        return daemon_.value();
    }

    // Starts a server; see Simulator.
    void StartServer();
    // Ends the server by SIGKILL.
    void KillServer();
    // Ends the server by its command "quit"; throws Failure if it does not exit with 0.
    void QuitServer();
    // Starts a daemon; see Daemon.
    void StartDaemon(const DaemonStart& start = {});

    // Waits for the end of a daemon that ends by itself; returns the wait status.
    int AwaitEndOfDaemon();

    // Records the daemon's resource usage, which End() compares with the final one. The socket of
    // the daemon's first log message is permitted in addition.
    void TakeBaseline();

    // Waits for the next lines of the system log and takes them. They must match these patterns in
    // this order, each pattern a whole line without the ident "trayprobed: ".
    void AwaitLog(const std::vector<std::string>& patterns);

    // Takes the next lines of the system log up to the first one that matches the pattern; waits
    // for it.
    void SkipLogUntil(const std::string& pattern);

    // Takes and returns all lines that were logged before this call.
    std::vector<std::string> TakeLog();

    // Ends the daemon and the server; returns a list of problems, one line each, empty if there
    // were none.
    std::vector<std::string> End();

private:
    std::string NextLogLine(const std::string& awaited);
    void CheckResourceUsage(std::vector<std::string>& problems);
    void EndDaemon(std::vector<std::string>& problems);
    void EndServer(std::vector<std::string>& problems);
    void CheckLines(std::vector<std::string>& problems);

    testbed::OutputLog outputLog_;
    SystemLog log_;
    std::optional<Simulator> server_;
    std::optional<testbed::Daemon> daemon_;
    std::optional<ResourceUsage> baseline_;
};

} // namespace testbed

#endif
