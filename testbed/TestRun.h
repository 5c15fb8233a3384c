#ifndef TESTBED_TESTRUN_H
#define TESTBED_TESTRUN_H

/* One run of the daemon against one server, inside a private world. It keeps account of what must
   be true at the end of every run, whatever the run was about: the daemon lives, holds no more than
   before, logged nothing that was not awaited, and no sanitizer spoke up. */

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

    testbed::OutputLog& OutputLog() {
        return outputLog_;
    }
    Simulator& Server() {
        return server_.value();
    }
    testbed::Daemon& Daemon() {
        return daemon_.value();
    }

    void StartServer();
    void KillServer();
    void QuitServer(); // throws when it does not end in good order
    void StartDaemon(const DaemonStart& start = {});

    // For a daemon that is to end by itself: waits for it, returns the wait status.
    int AwaitEndOfDaemon();

    // At the end the daemon is to hold no more than now, but for its connection to the system log
    // if it has said something.
    void TakeBaseline();

    // Waits for the next lines of the system log, which must be these, in this order: each a
    // pattern for a whole line without the ident.
    void AwaitLog(const std::vector<std::string>& patterns);

    // Takes the next lines of the system log, whatever they are, until one matches the pattern.
    void SkipLogUntil(const std::string& pattern);

    // Takes what was logged so far, whatever it is.
    std::vector<std::string> TakeLog();

    // Ends the run, politely where possible; returns what was wrong, one line each.
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
