#include "testbed/Daemon.h"

#include "testbed/Failure.h"
#include "testbed/ProcessState.h"
#include "testbed/Sandbox.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <sstream>
#include <thread>
#include <utility>

namespace testbed {
namespace {

std::string TestedProgram() {
    return g_testedDaemon.program.empty() ? ProgramPath("trayprobed") : g_testedDaemon.program;
}

// The arguments of a program that starts another one are followed by those of the other.
void StartBy(const std::string& program, std::vector<std::string> arguments, Command& command) {
    arguments.insert(arguments.end(), command.arguments.begin(), command.arguments.end());
    command.program = program;
    command.arguments = std::move(arguments);
}

Command CommandOf(const DaemonStart& start) {
    Command command{TestedProgram(), start.arguments, MinimalEnvironment()};
    command.environment.insert(command.environment.begin(), start.environment.begin(),
                               start.environment.end());
    if (g_testedDaemon.isConfined)
        StartBy(ProgramPath("confine"), {"confine", command.program}, command);
    if (start.descriptorLimit > 0) {
        const std::string limit = "--nofile=" + std::to_string(start.descriptorLimit);
        command.arguments.front() = command.program; // prlimit takes no separate argv[0]
        StartBy("/usr/bin/prlimit", {"prlimit", limit}, command);
    }
    return command;
}

} // namespace

bool ResourceUsage::IsWithin(const ResourceUsage& limit) const {
    return threads <= limit.threads &&
           std::includes(limit.descriptors.begin(), limit.descriptors.end(), descriptors.begin(),
                         descriptors.end());
}

Daemon::Daemon(OutputLog& outputLog, const DaemonStart& start)
    : process_(CommandOf(start), outputLog, Stream::DaemonOutput, Stream::DaemonOutput) {
    process_.CloseInput();
}

ResourceUsage Daemon::ReadResourceUsage() const {
    return {ListThreads(Pid()).size(), ListDescriptors(Pid())};
}

// The kernel does not notify of the end of another process's thread; poll /proc.
ResourceUsage Daemon::AwaitResourceUsageWithin(const ResourceUsage& limit) const {
    const auto deadline = std::chrono::steady_clock::now() + kTimeOut;
    ResourceUsage current = ReadResourceUsage();
    while (!current.IsWithin(limit) && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
        current = ReadResourceUsage();
    }
    return current;
}

int Daemon::Stop() {
    if (IsRunning())
        Signal(SIGTERM);
    return AwaitEnd();
}

std::string Describe(const ResourceUsage& usage) {
    std::ostringstream text;
    text << usage.threads << " threads; descriptors:";
    for (const std::string& target : usage.descriptors)
        text << ' ' << target;
    return text.str();
}

} // namespace testbed
