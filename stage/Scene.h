#ifndef STAGE_SCENE_H
#define STAGE_SCENE_H

// One run of the daemon against one server, inside a private world. It keeps account of what must
// be true at the end of every run, whatever the run was about: the daemon lives, holds no more than
// before, logged nothing that was not awaited, and no sanitizer spoke up.

#include "stage/Daemon.h"
#include "stage/Record.h"
#include "stage/Simulator.h"
#include "stage/SystemLog.h"

#include <optional>
#include <string>
#include <vector>

namespace stage {

class Scene {
public:
    Scene() : m_log(m_record) {}

    Record& TheRecord() {
        return m_record;
    }
    Simulator& Server() {
        return m_server.value();
    }
    Daemon& TheDaemon() {
        return m_daemon.value();
    }

    void StartServer();
    void KillServer();
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
    void AwaitEndOfLog(const std::string& pattern);

    // Ends the run, politely where possible; returns what was wrong, one line each.
    std::vector<std::string> End();

private:
    std::string NextLogLine(const std::string& awaited);
    void CheckFootprint(std::vector<std::string>& complaints);
    void EndDaemon(std::vector<std::string>& complaints);
    void EndServer(std::vector<std::string>& complaints);
    void CheckLines(std::vector<std::string>& complaints);

    Record m_record;
    SystemLog m_log;
    std::optional<Simulator> m_server;
    std::optional<Daemon> m_daemon;
    std::optional<Footprint> m_baseline;
};

} // namespace stage

#endif
