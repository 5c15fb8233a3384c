#include "EndAndCheck.h"
#include "Figures.h"
#include "ProcessorTime.h"
#include "testbed/Failure.h"
#include "testbed/ReadWatch.h"
#include "testbed/TestRun.h"

#include <sys/types.h>

#include <algorithm>
#include <chrono>
#include <string>
#include <thread>

using testbed::Event;
using testbed::TestRun;

namespace bench {
namespace {

// ---- concurrent work ----

constexpr int kManyChangers = 16;
constexpr int kDrives = 4; // per changer; each can identify a disc at the same time
constexpr int kIdentifications = kManyChangers * kDrives;

std::string ChangerNamed(int number) {
    return " changer=" + std::to_string(10 + number); // the server parses hexadecimal digits
}

// The discs take three seconds to spin up: all identifications run at the same time.
void Fill(testbed::Simulator& server, int changer) {
    const std::string name = ChangerNamed(changer);
    server.Do("add-changer" + name + " slots=5 drives=4 spin-up=3000 mount=/tmp/changer-" +
              std::to_string(changer));
    server.Do("put" + name + " slot=4 identified=yes directories=50");
    for (int slot = 0; slot < kDrives; ++slot)
        server.Do("put" + name + " slot=" + std::to_string(slot));
}

// Waits until the daemon has `count` threads, at most testbed::kTimeOut; returns the highest number
// seen.
std::size_t AwaitThreads(const testbed::Daemon& daemon, std::size_t count) {
    std::size_t most = 0;
    const auto deadline = std::chrono::steady_clock::now() + testbed::kTimeOut;
    while (most < count && std::chrono::steady_clock::now() < deadline) {
        most = std::max(most, daemon.ReadResourceUsage().threads);
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return most;
}

// The server holds its notifications back until the command "resume".
void StartPaused(testbed::TestRun& run) {
    run.StartServer();
    testbed::Simulator& server = run.Server();
    server.Do("events kinds=request,reply,identified,info-open");
    for (int i = 0; i < kManyChangers; ++i)
        Fill(server, i);
    server.Do("pause");
    server.Do("start");
    run.StartDaemon();
    for (int i = 0; i < 2 * kManyChangers; ++i)
        server.Await("info-open");
    std::this_thread::sleep_for(
        std::chrono::seconds(1)); // threads of the start-up may still be ending
}

// Returns the highest number of threads.
std::size_t RunConcurrently(testbed::TestRun& run, std::size_t threadsBefore) {
    testbed::Simulator& server = run.Server();
    for (int i = 0; i < kManyChangers; ++i)
        server.Do("identify" + ChangerNamed(i));
    server.Do("resume");
    const std::size_t most =
        AwaitThreads(run.Daemon(), threadsBefore + kIdentifications + kManyChangers);
    for (int i = 0; i < kIdentifications; ++i)
        server.Await("identified");
    return most;
}

double Increase(std::size_t before, std::size_t after) {
    return static_cast<double>(after) - static_cast<double>(before);
}

void MeasureConcurrent(Report& report) {
    testbed::TestRun run;
    StartPaused(run);
    const testbed::ResourceUsage before = run.Daemon().ReadResourceUsage();
    const std::size_t most = RunConcurrently(run, before.threads);
    const testbed::ResourceUsage after = run.Daemon().AwaitResourceUsageWithin(before);
    const std::size_t requests = run.Server().AllSoFar("request").size();
    const std::size_t replies = run.Server().AllSoFar("reply").size();

    report.AddAtLeast("64 identifications and 16 builds at the same time: threads", 80,
                      Increase(before.threads, most), "", "");
    report.AddAtMost("their requests without a reply", 0, Increase(replies, requests), "",
                     InUnits(static_cast<double>(requests), "requests"));
    report.AddAtMost("threads left over when all are done", 0,
                     Increase(before.threads, after.threads), "", "");
    report.AddAtMost("descriptors left over when all are done", 0,
                     Increase(before.descriptors.size(), after.descriptors.size()), "", "");
    EndAndCheck(run);
}

// ---- sequential work ----

constexpr int kDiscs = 100;

struct Cost {
    double seconds;
    double processor; // processor time of the daemon, seconds
};

// Measures the identification of all discs of a changer, which are empty, with a server whose robot
// takes no time: from the first notification to the end of the last connection.
Cost IdentifyDiscs(const std::string& mount) {
    testbed::TestRun run;
    run.StartServer();
    testbed::Simulator& server = run.Server();
    server.Do("events kinds=request,subscriber,info-open,disconnect");
    server.Do("add-changer changer=A1 slots=100 drives=2" + mount);
    for (int slot = 0; slot < kDiscs; ++slot)
        server.Do("put changer=A1 directories=0 files=0 slot=" + std::to_string(slot));
    server.Do("pause");
    server.Do("start");
    run.StartDaemon();
    server.Await("subscriber");
    for (int reads = mount.empty() ? 0 : 2; reads > 0; --reads)
        server.Await("info-open");
    const pid_t daemon = run.Daemon().Pid();
    const double before = ProcessorTimeOf(daemon);
    const auto start = std::chrono::steady_clock::now();
    server.Do("resume");
    testbed::Event last;
    for (int i = 0; i < 2 * kDiscs; ++i)
        last = server.Await("request", {{"command", "request identification"}});
    server.Await("disconnect", {{"connection", last["connection"]}});
    const std::chrono::duration<double> passed = std::chrono::steady_clock::now() - start;
    const Cost cost = {passed.count(), ProcessorTimeOf(daemon) - before};
    EndAndCheck(run);
    return cost;
}

void MeasureSequential(Report& report) {
    const Cost withWalk = IdentifyDiscs(" mount=/tmp/carousel");
    const Cost withoutWalk = IdentifyDiscs("");
    report.AddWithoutGoal(
        "a changer of 100 discs: discs identified per second", kDiscs / withWalk.seconds, "",
        InUnits(kDiscs / withoutWalk.seconds, "") + " without a file system to walk");
    report.AddAtMost(
        "processor time per disc, without a walk", 1, withoutWalk.processor * 1e3 / kDiscs, "ms",
        InTime(withWalk.processor / kDiscs) + " with the walk, which visits all discs");
}

} // namespace

void MeasureGrowth(Report& report) {
    report.BeginSection(
        "Growth",
        "The benchmark process handles notifications of 1, 4, 16 and 64 changers with 1,000 "
        "slots each, without changes. The daemon as installed identifies discs and builds "
        "caches once, with the simulator, whose robot takes no time. The memory that a "
        "connection leaves is measured in the daemon as installed, after the server has "
        "closed 50,000 connections; that of a removed changer in the benchmark process, "
        "after 10,000 removals. The benchmark process compares its changers with a \"changer "
        "list\" of 100,000 changers, of which the last 100 are known.");
    MeasureNotificationGrowth(report);
    MeasureConcurrent(report);
    MeasureSequential(report);
    MeasureHostileGrowth(report);
}

} // namespace bench
