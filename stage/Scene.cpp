#include "stage/Scene.h"

#include "stage/Failure.h"
#include "stage/Pattern.h"

#include <algorithm>
#include <csignal>
#include <sys/wait.h>

namespace stage {
namespace {

const std::string kIdent = "trayprobed: ";

bool IsLogged(const Line& line) {
    return line.voice == Voice::SystemLog;
}

bool IsOfTheDaemon(const Line& line) {
    return line.voice == Voice::SystemLog && line.text.starts_with(kIdent);
}

} // namespace

void Scene::StartServer() {
    server_.emplace(record_);
}

void Scene::KillServer() {
    Server().Kill();
    server_.reset();
}

void Scene::QuitServer() {
    Server().Quit();
    server_.reset();
}

void Scene::StartDaemon(const DaemonStart& start) {
    daemon_.emplace(record_, start);
}

int Scene::AwaitEndOfDaemon() {
    const int status = TheDaemon().AwaitEnd();
    daemon_.reset();
    return status;
}

void Scene::TakeBaseline() {
    baseline_ = TheDaemon().TakeFootprint();
}

std::string Scene::NextLogLine(const std::string& awaited) {
    return record_.Await(IsLogged, "log: " + awaited).text;
}

void Scene::AwaitLog(const std::vector<std::string>& patterns) {
    for (const std::string& pattern : patterns) {
        const std::string line = NextLogLine(pattern);
        if (!Pattern(kIdent + pattern).Matches(line))
            throw Failure("logged \"" + line + "\" where expected was \"" + pattern + "\"");
    }
}

void Scene::AwaitEndOfLog(const std::string& pattern) {
    const Pattern last(kIdent + pattern);
    while (!last.Matches(NextLogLine(pattern))) {
    }
}

std::vector<std::string> Scene::TakeLog() {
    log_.CatchUp();
    std::vector<std::string> lines;
    while (const auto line = record_.TakeIfThere(IsLogged))
        lines.push_back(line->text);
    return lines;
}

std::vector<std::string> Scene::End() {
    std::vector<std::string> complaints;
    EndDaemon(complaints);
    EndServer(complaints);
    log_.CatchUp();
    CheckLines(complaints);
    return complaints;
}

void Scene::CheckFootprint(std::vector<std::string>& complaints) {
    Footprint limit = baseline_.value();
    const auto lines = record_.Since(0);
    if (std::any_of(lines.begin(), lines.end(), IsOfTheDaemon)) {
        limit.descriptors.emplace_back("socket");
        std::sort(limit.descriptors.begin(), limit.descriptors.end());
    }
    const Footprint last = daemon_->AwaitFootprintWithin(limit);
    if (!last.IsWithin(limit)) {
        complaints.push_back("the daemon began with " + Describe(*baseline_));
        complaints.push_back("     and ended with " + Describe(last));
    }
}

void Scene::EndDaemon(std::vector<std::string>& complaints) {
    if (!daemon_)
        return;
    if (baseline_ && daemon_->IsRunning())
        CheckFootprint(complaints);
    const int status = daemon_->Stop();
    if (!WIFSIGNALED(status) || WTERMSIG(status) != SIGTERM)
        complaints.push_back("the daemon did not live until the end: " + DescribeEnd(status));
    daemon_.reset();
}

void Scene::EndServer(std::vector<std::string>& complaints) {
    if (!server_)
        return;
    try {
        QuitServer();
    } catch (const Failure& failure) {
        complaints.emplace_back(failure.what());
        server_.reset();
    }
}

// The server's events are there to be looked at or not; everybody else speaks when asked.
void Scene::CheckLines(std::vector<std::string>& complaints) {
    for (const Line& line : record_.Since(0)) {
        if (line.voice != Voice::Server && !line.taken) {
            complaints.push_back(std::string("unexpected, ") + NameOf(line.voice) + ": " +
                                 line.text);
        }
    }
}

} // namespace stage
