#include "BenchServer.h"
#include "EndAndCheck.h"
#include "Figures.h"
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
    std::vector<TracedCall> calls;     // ended within the measured time
    std::vector<TracedCall> triggered; // ended after it
};

// Traces the system calls of a process by strace for `time`; then calls trigger() and traces for
// one more second. Calls that do not return before the end are left out.
Trace TraceFor(testbed::OutputLog& outputLog, pid_t process, seconds time, const std::string& calls,
               const std::function<void()>& trigger) {
    const std::string file = "/tmp/strace";
    testbed::Process strace(
        {"/usr/bin/strace",
         {"strace", "-f", "-ttt", "-T", "-e", calls, "-o", file, "-p", std::to_string(process)},
         {}},
        outputLog, testbed::Stream::Helper, testbed::Stream::Helper);
    outputLog.Await(testbed::Stream::Helper, ".*attached.*");
    std::this_thread::sleep_for(time);
    const duration<double> end = std::chrono::system_clock::now().time_since_epoch();
    trigger();
    std::this_thread::sleep_for(seconds(1));
    strace.Signal(SIGINT);
    strace.AwaitEnd();
    outputLog.Discard(testbed::Stream::Helper);
    std::ifstream output(file);
    testbed::Require(output.is_open(), "strace wrote nothing");
    Trace trace;
    for (std::string line; std::getline(output, line);) {
        if (HasReturned(line)) {
            TracedCall call(std::move(line));
            (call.end < end.count() ? trace.calls : trace.triggered).push_back(std::move(call));
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
    std::this_thread::sleep_for(seconds(1)); // threads of the start-up may still be ending
}

void MeasureConnected(Report& report) {
    testbed::TestRun run;
    StartConnected(run);
    const pid_t daemon = run.Daemon().Pid();
    report.AddAtMost("private memory after start-up", 5, ReadPrivateMemory(daemon) / kMebibyte,
                     "MiB", "");
    // The calls after the trigger prove that strace was attached.
    const Trace trace = TraceFor(run.OutputLog(), daemon, seconds(60), "trace=all",
                                 [&] { run.Server().Do("push"); });
    if (trace.triggered.empty())
        throw testbed::Failure("strace reported no calls for a notification");
    report.AddAtMost("connected: system calls in 60 s", 0, static_cast<double>(trace.calls.size()),
                     "", trace.calls.empty() ? "" : trace.calls.front().line);
    EndAndCheck(run);
}

// Returns the processor time in percent of a core, over several intervals.
Spread MeasureShareOfCore(pid_t process) {
    constexpr int kIntervals = 5;
    std::vector<double> shares;
    for (int i = 0; i < kIntervals; ++i) {
        const double before = ProcessorTimeOf(process);
        const auto start = steady_clock::now();
        std::this_thread::sleep_for(seconds(5));
        const duration<double> passed = steady_clock::now() - start;
        shares.push_back((ProcessorTimeOf(process) - before) / passed.count() * 100);
    }
    return Spread(std::move(shares));
}

// Counts from the first to the last attempt: the trace may begin and end anywhere between two of
// them. An attempt reads the name of each process once, also that of process 1.
double AttemptsPerSecond(const std::vector<TracedCall>& calls) {
    std::vector<double> times;
    for (const TracedCall& call : calls)
        if (call.line.find("\"1/comm\"") != call.line.npos)
            times.push_back(call.begin);
    if (times.size() < 2)
        throw testbed::Failure("strace reported no attempts");
    return static_cast<double>(times.size() - 1) / (times.back() - times.front());
}

void MeasureDisconnected(Report& report) {
    const Sleepers others(kOtherProcesses);
    testbed::TestRun run;
    run.StartDaemon();
    std::this_thread::sleep_for(seconds(2));
    const pid_t daemon = run.Daemon().Pid();
    report.AddAtMost("disconnected, 500 other processes: share of a core", 0.5,
                     MeasureShareOfCore(daemon), "%", "");
    const Trace trace = TraceFor(run.OutputLog(), daemon, seconds(20), "trace=openat,open", [] {});
    const double attempts = AttemptsPerSecond(trace.calls);
    report.AddAtMost("disconnected: attempts per second, difference from 1", 0.05,
                     std::abs(attempts - 1), "", InUnits(attempts, "per second"));
    EndAndCheck(run);
}

void MeasureStart(Report& report) {
    constexpr int kStarts = 21;
    std::vector<double> times;
    for (int i = 0; i < kStarts; ++i) {
        const BenchServer server;
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
        "The daemon as installed is connected to the simulator with one changer and its file "
        "system, or is disconnected: there is no server. System calls are counted by strace; "
        "processor time is measured in n intervals of 5 s. The start is measured from before "
        "the fork to the accepted connection.");
    MeasureStart(report);
    MeasureDisconnected(report);
    MeasureConnected(report);
}

} // namespace bench
