#include "Figures.h"

#include "AwaitedServer.h"
#include "InOrder.h"
#include "ProcessMemory.h"
#include "ProcessorTime.h"
#include "Program.h"
#include "TracedCall.h"

#include "testbed/Failure.h"
#include "testbed/ReadWatch.h"
#include "testbed/TestRun.h"

#include <chrono>
#include <cmath>
#include <csignal>
#include <fstream>
#include <functional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace bench {
namespace {

using std::chrono::duration;
using std::chrono::seconds;
using std::chrono::steady_clock;

struct Trace {
    std::vector<TracedCall> calls;    // that ended in the time traced
    std::vector<TracedCall> provoked; // that ended behind it
};

// The system calls of a process as strace shows them, during that time and while what is provoked
// behind it is dealt with: a line each, but for those that do not return before the end.
Trace TraceFor(testbed::OutputLog& outputLog, pid_t process, seconds time, const std::string& calls,
               const std::function<void()>& provoke) {
    const std::string file = "/tmp/strace";
    testbed::Process strace(
        {"/usr/bin/strace",
         {"strace", "-f", "-ttt", "-T", "-e", calls, "-o", file, "-p", std::to_string(process)},
         {}},
        outputLog, testbed::Stream::Helper, testbed::Stream::Helper);
    outputLog.Await(testbed::Stream::Helper, ".*attached.*");
    std::this_thread::sleep_for(time);
    const duration<double> end = std::chrono::system_clock::now().time_since_epoch();
    provoke();
    std::this_thread::sleep_for(seconds(1));
    strace.Signal(SIGINT);
    strace.AwaitEnd();
    outputLog.Discard(testbed::Stream::Helper);
    std::ifstream told(file);
    testbed::Require(told.is_open(), "strace wrote nothing");
    Trace trace;
    for (std::string line; std::getline(told, line);) {
        if (HasReturned(line)) {
            TracedCall call(std::move(line));
            (call.end < end.count() ? trace.calls : trace.provoked).push_back(std::move(call));
        }
    }
    return trace;
}

void StartConnected(testbed::TestRun& run) {
    run.StartServer();
    run.Server().Do("add-changer changer=A1 slots=50 drives=2 mount=/tmp/carousel");
    run.Server().Do("pulse every=0");
    run.Server().Do("start");
    testbed::ReadWatch infoFile("/tmp/carousel/.changer_info.plist");
    run.StartDaemon();
    infoFile.AwaitReads(2);
    run.Server().Await("request", {{"command", "set client status"}});
    std::this_thread::sleep_for(seconds(1)); // threads of the start may still be ending
}

void MeasureConnected(Report& report) {
    testbed::TestRun run;
    StartConnected(run);
    const pid_t daemon = run.Daemon().Pid();
    report.AddAtMost("private memory after start-up", 5, ReadPrivateMemory(daemon) / kMebibyte,
                     "MiB", "");
    // What follows shows that strace was looking.
    const Trace trace = TraceFor(run.OutputLog(), daemon, seconds(60), "trace=all",
                                 [&] { run.Server().Do("push"); });
    if (trace.provoked.empty())
        throw testbed::Failure("strace saw nothing of a notification");
    report.AddAtMost("connected: system calls in 60 s", 0, static_cast<double>(trace.calls.size()),
                     "", trace.calls.empty() ? "" : trace.calls.front().line);
    EndCleanly(run);
}

// In percent of a core, over several stretches of time.
Spread MeasureShareOfCore(pid_t process) {
    constexpr int kStretches = 5;
    std::vector<double> shares;
    for (int i = 0; i < kStretches; ++i) {
        const double before = ProcessorTimeOf(process);
        const auto start = steady_clock::now();
        std::this_thread::sleep_for(seconds(5));
        const duration<double> passed = steady_clock::now() - start;
        shares.push_back((ProcessorTimeOf(process) - before) / passed.count() * 100);
    }
    return Spread(std::move(shares));
}

// From the first attempt to the last one, so that it does not matter where between two attempts the
// trace begins and ends. An attempt looks once at each process, so also at process 1.
double AttemptsPerSecond(const std::vector<TracedCall>& calls) {
    std::vector<double> times;
    for (const TracedCall& call : calls)
        if (call.line.find("\"1/comm\"") != call.line.npos)
            times.push_back(call.begin);
    if (times.size() < 2)
        throw testbed::Failure("strace saw no attempts");
    return static_cast<double>(times.size() - 1) / (times.back() - times.front());
}

void MeasureDisconnected(Report& report) {
    const Sleepers others(kOthers);
    testbed::TestRun run;
    run.StartDaemon();
    std::this_thread::sleep_for(seconds(2));
    const pid_t daemon = run.Daemon().Pid();
    report.AddAtMost("disconnected, 500 others: share of a core", 0.5, MeasureShareOfCore(daemon),
                     "%", "");
    const Trace trace = TraceFor(run.OutputLog(), daemon, seconds(20), "trace=openat,open", [] {});
    const double attempts = AttemptsPerSecond(trace.calls);
    report.AddAtMost("disconnected: attempts a second, difference from one", 0.05,
                     std::abs(attempts - 1), "", InUnits(attempts, "a second"));
    EndCleanly(run);
}

void MeasureStart(Report& report) {
    constexpr int kStarts = 21;
    std::vector<double> times;
    for (int i = 0; i < kStarts; ++i) {
        const AwaitedServer server;
        testbed::OutputLog outputLog;
        const auto start = steady_clock::now();
        testbed::Daemon daemon(outputLog, {});
        server.AwaitSubscriber();
        times.push_back(duration<double>(steady_clock::now() - start).count());
        daemon.Stop();
    }
    report.AddAtMost("start to first connection", 15, Spread(std::move(times)).Times(1e3), "ms",
                     "");
}

} // namespace

void MeasureIdleAndStart(Report& report) {
    report.BeginSection(
        "Idle and start",
        "The daemon as installed, connected to the simulator with one changer, its file system "
        "mounted, and without a server. System calls by strace, processor time in n times 5 s. A "
        "start is from before the fork to the accepted connection.");
    MeasureStart(report);
    MeasureDisconnected(report);
    MeasureConnected(report);
}

} // namespace bench
