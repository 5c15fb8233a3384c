#include "testbed/TestRun.h"

#include "testbed/Failure.h"
#include "testbed/Pattern.h"

#include <sys/wait.h>

#include <algorithm>
#include <csignal>

namespace testbed {
namespace {

const std::string kIdent = "trayprobed: ";

bool IsLogged(const Line& line) {
    return line.stream == Stream::SystemLog;
}

bool IsOfTheDaemon(const Line& line) {
    return line.stream == Stream::SystemLog && line.text.starts_with(kIdent);
}

} // namespace

void TestRun::StartServer() {
    server_.emplace(outputLog_);
}

void TestRun::KillServer() {
    Server().Kill();
    server_.reset();
}

void TestRun::QuitServer() {
    Server().Quit();
    server_.reset();
}

void TestRun::StartDaemon(const DaemonStart& start) {
    daemon_.emplace(outputLog_, start);
}

int TestRun::AwaitEndOfDaemon() {
    const int status = Daemon().AwaitEnd();
    daemon_.reset();
    return status;
}

void TestRun::TakeBaseline() {
    baseline_ = Daemon().ReadResourceUsage();
}

std::string TestRun::NextLogLine(const std::string& awaited) {
    return outputLog_.Await(IsLogged, "log: " + awaited).text;
}

void TestRun::AwaitLog(const std::vector<std::string>& patterns) {
    for (const std::string& pattern : patterns) {
        const std::string line = NextLogLine(pattern);
        if (!Pattern(kIdent + pattern).Matches(line))
            throw Failure("logged \"" + line + "\" where expected was \"" + pattern + "\"");
    }
}

void TestRun::SkipLogUntil(const std::string& pattern) {
    const Pattern last(kIdent + pattern);
    while (!last.Matches(NextLogLine(pattern))) {
    }
}

std::vector<std::string> TestRun::TakeLog() {
    log_.Flush();
    std::vector<std::string> lines;
    while (const auto line = outputLog_.TryTake(IsLogged))
        lines.push_back(line->text);
    return lines;
}

std::vector<std::string> TestRun::End() {
    std::vector<std::string> problems;
    EndDaemon(problems);
    EndServer(problems);
    log_.Flush();
    CheckLines(problems);
    return problems;
}

void TestRun::CheckResourceUsage(std::vector<std::string>& problems) {
    ResourceUsage limit = baseline_.value();
    const auto lines = outputLog_.LinesFrom(0);
    if (std::any_of(lines.begin(), lines.end(), IsOfTheDaemon)) {
        limit.descriptors.emplace_back("socket");
        std::sort(limit.descriptors.begin(), limit.descriptors.end());
    }
    const ResourceUsage last = daemon_->AwaitResourceUsageWithin(limit);
    if (!last.IsWithin(limit)) {
        problems.push_back("the daemon began with " + Describe(*baseline_));
        problems.push_back("     and ended with " + Describe(last));
    }
}

void TestRun::EndDaemon(std::vector<std::string>& problems) {
    if (!daemon_)
        return;
    if (baseline_ && daemon_->IsRunning())
        CheckResourceUsage(problems);
    const int status = daemon_->Stop();
    if (!WIFSIGNALED(status) || WTERMSIG(status) != SIGTERM)
        problems.push_back("the daemon did not live until the end: " + DescribeEnd(status));
    daemon_.reset();
}

void TestRun::EndServer(std::vector<std::string>& problems) {
    if (!server_)
        return;
    try {
        QuitServer();
    } catch (const Failure& failure) {
        problems.emplace_back(failure.what());
        server_.reset();
    }
}

// Lines of the server may remain unread; all other lines must have been awaited.
void TestRun::CheckLines(std::vector<std::string>& problems) {
    for (const Line& line : outputLog_.LinesFrom(0)) {
        if (line.stream != Stream::Server && !line.taken) {
            problems.push_back(std::string("unexpected, ") + NameOf(line.stream) + ": " +
                               line.text);
        }
    }
}

} // namespace testbed
