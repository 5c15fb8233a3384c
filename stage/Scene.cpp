#include "stage/Scene.h"

#include "stage/Failure.h"
#include "stage/Pattern.h"

#include <algorithm>
#include <csignal>
#include <sys/wait.h>

namespace stage {
namespace {

const std::string kIdent = "trayprobed: ";

bool IsOfTheDaemon(const Line& line) {
    return line.voice == Voice::SystemLog && line.text.starts_with(kIdent);
}

} // namespace

void Scene::StartServer() {
    m_server.emplace(m_record);
}

void Scene::KillServer() {
    Server().Kill();
    m_server.reset();
}

void Scene::StartDaemon(const DaemonStart& start) {
    m_daemon.emplace(m_record, start);
}

int Scene::AwaitEndOfDaemon() {
    const int status = TheDaemon().AwaitEnd();
    m_daemon.reset();
    return status;
}

void Scene::TakeBaseline() {
    m_baseline = TheDaemon().TakeFootprint();
}

std::string Scene::NextLogLine(const std::string& awaited) {
    const auto isLogged = [](const Line& line) { return line.voice == Voice::SystemLog; };
    return m_record.Await(isLogged, "log: " + awaited).text;
}

void Scene::AwaitLog(const std::vector<std::string>& patterns) {
    for (const std::string& pattern : patterns) {
        const std::string line = NextLogLine(pattern);
        if (!Pattern(kIdent + pattern).Matches(line)) {
            throw Failure("logged \"" + line + "\" where expected was \"" + pattern + "\"");
        }
    }
}

void Scene::AwaitEndOfLog(const std::string& pattern) {
    const Pattern last(kIdent + pattern);
    while (!last.Matches(NextLogLine(pattern))) {
    }
}

std::vector<std::string> Scene::End() {
    std::vector<std::string> complaints;
    EndDaemon(complaints);
    EndServer(complaints);
    m_log.CatchUp();
    CheckLines(complaints);
    return complaints;
}

void Scene::CheckFootprint(std::vector<std::string>& complaints) {
    Footprint limit = m_baseline.value();
    const auto lines = m_record.Since(0);
    if (std::any_of(lines.begin(), lines.end(), IsOfTheDaemon)) {
        limit.descriptors.emplace_back("socket");
        std::sort(limit.descriptors.begin(), limit.descriptors.end());
    }
    const Footprint last = m_daemon->AwaitFootprintWithin(limit);
    if (!last.IsWithin(limit)) {
        complaints.push_back("the daemon began with " + Describe(*m_baseline));
        complaints.push_back("     and ended with " + Describe(last));
    }
}

void Scene::EndDaemon(std::vector<std::string>& complaints) {
    if (!m_daemon) {
        return;
    }
    if (m_baseline && m_daemon->IsRunning()) {
        CheckFootprint(complaints);
    }
    const int status = m_daemon->Stop();
    if (!WIFSIGNALED(status) || WTERMSIG(status) != SIGTERM) {
        complaints.push_back("the daemon did not live until the end: " + DescribeEnd(status));
    }
    m_daemon.reset();
}

void Scene::EndServer(std::vector<std::string>& complaints) {
    if (!m_server) {
        return;
    }
    try {
        m_server->Quit();
    } catch (const Failure& failure) {
        complaints.emplace_back(failure.what());
    }
    m_server.reset();
}

// The server's events are there to be looked at or not; everybody else speaks when asked.
void Scene::CheckLines(std::vector<std::string>& complaints) {
    for (const Line& line : m_record.Since(0)) {
        if (line.voice != Voice::Server && !line.taken) {
            complaints.push_back(std::string("unexpected, ") + NameOf(line.voice) + ": " +
                                 line.text);
        }
    }
}

} // namespace stage
