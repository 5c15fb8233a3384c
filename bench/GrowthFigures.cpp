#include "Figures.h"

#include "InOrder.h"
#include "ProcessorTime.h"

#include "testbed/Failure.h"
#include "testbed/ReadWatch.h"
#include "testbed/TestRun.h"

#include <algorithm>
#include <chrono>
#include <string>
#include <sys/types.h>
#include <thread>

using testbed::Event;
using testbed::TestRun;

namespace bench {
namespace {

// ---- much at once ----

constexpr int kManyChangers = 16;
constexpr int kDrives = 4; // of each, so many identifications run there at one time
constexpr int kIdentifications = kManyChangers * kDrives;

std::string ChangerNamed(int number) {
    return " changer=" + std::to_string(10 + number); // which the server takes as hexadecimal
}

// The discs take three seconds to spin up, so that all identifications are under way at one time.
void Fill(testbed::Simulator& server, int changer) {
    const std::string name = ChangerNamed(changer);
    server.Do("add-changer" + name + " slots=5 drives=4 spin-up=3000 mount=/tmp/changer-" +
              std::to_string(changer));
    server.Do("put" + name + " slot=4 identified=yes directories=50");
    for (int slot = 0; slot < kDrives; ++slot)
        server.Do("put" + name + " slot=" + std::to_string(slot));
}

// Returns how many threads there were at most, as soon as there are so many, or after
// testbed::kTimeOut.
std::size_t AwaitThreads(const testbed::Daemon& daemon, std::size_t count) {
    std::size_t most = 0;
    const auto deadline = std::chrono::steady_clock::now() + testbed::kTimeOut;
    while (most < count && std::chrono::steady_clock::now() < deadline) {
        most = std::max(most, daemon.ReadResourceUsage().threads);
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return most;
}

// The server holds back its notifications until it is told to release them.
void StartHeld(testbed::TestRun& run) {
    run.StartServer();
    testbed::Simulator& server = run.Server();
    server.Do("events kinds=request,reply,identified,info-open");
    for (int i = 0; i < kManyChangers; ++i)
        Fill(server, i);
    server.Do("hold");
    server.Do("start");
    run.StartDaemon();
    for (int i = 0; i < 2 * kManyChangers; ++i)
        server.Await("info-open");
    std::this_thread::sleep_for(
        std::chrono::seconds(1)); // threads of the start may still be ending
}

// Returns how many threads there were at most.
std::size_t RunAll(testbed::TestRun& run, std::size_t threadsBefore) {
    testbed::Simulator& server = run.Server();
    for (int i = 0; i < kManyChangers; ++i)
        server.Do("identify" + ChangerNamed(i));
    server.Do("release");
    const std::size_t most =
        AwaitThreads(run.Daemon(), threadsBefore + kIdentifications + kManyChangers);
    for (int i = 0; i < kIdentifications; ++i)
        server.Await("identified");
    return most;
}

double MoreThan(std::size_t before, std::size_t after) {
    return static_cast<double>(after) - static_cast<double>(before);
}

void MeasureAtOnce(Report& report) {
    testbed::TestRun run;
    StartHeld(run);
    const testbed::ResourceUsage before = run.Daemon().ReadResourceUsage();
    const std::size_t most = RunAll(run, before.threads);
    const testbed::ResourceUsage after = run.Daemon().AwaitResourceUsageWithin(before);
    const std::size_t requests = run.Server().AllSoFar("request").size();
    const std::size_t replies = run.Server().AllSoFar("reply").size();

    report.AddAtLeast("64 identifications and 16 builds at once: threads for them", 80,
                      MoreThan(before.threads, most), "", "");
    report.AddAtMost("their requests without a reply", 0, MoreThan(replies, requests), "",
                     InUnits(static_cast<double>(requests), "requests"));
    report.AddAtMost("threads more than before, when all is done", 0,
                     MoreThan(before.threads, after.threads), "", "");
    report.AddAtMost("descriptors more than before, when all is done", 0,
                     MoreThan(before.descriptors.size(), after.descriptors.size()), "", "");
    EndCleanly(run);
}

// ---- one after the other ----

constexpr int kDiscs = 100;

struct Cost {
    double seconds;
    double processor; // seconds of the daemon
};

// Has the empty discs of a changer identified by a server whose robot takes no time. The seconds
// are from the first notification to the end of the last connection.
Cost IdentifyDiscs(const std::string& mount) {
    testbed::TestRun run;
    run.StartServer();
    testbed::Simulator& server = run.Server();
    server.Do("events kinds=request,subscriber,info-open,disconnect");
    server.Do("add-changer changer=A1 slots=100 drives=2" + mount);
    for (int slot = 0; slot < kDiscs; ++slot)
        server.Do("put changer=A1 directories=0 files=0 slot=" + std::to_string(slot));
    server.Do("hold");
    server.Do("start");
    run.StartDaemon();
    server.Await("subscriber");
    for (int reads = mount.empty() ? 0 : 2; reads > 0; --reads)
        server.Await("info-open");
    const pid_t daemon = run.Daemon().Pid();
    const double before = ProcessorTimeOf(daemon);
    const auto start = std::chrono::steady_clock::now();
    server.Do("release");
    testbed::Event last;
    for (int i = 0; i < 2 * kDiscs; ++i)
        last = server.Await("request", {{"command", "request identification"}});
    server.Await("disconnect", {{"connection", last["connection"]}});
    const std::chrono::duration<double> passed = std::chrono::steady_clock::now() - start;
    const Cost cost = {passed.count(), ProcessorTimeOf(daemon) - before};
    EndCleanly(run);
    return cost;
}

void MeasureOneAfterTheOther(Report& report) {
    const Cost listed = IdentifyDiscs(" mount=/tmp/carousel");
    const Cost unlisted = IdentifyDiscs("");
    report.AddUnjudged("a changer of 100 discs: discs identified per second",
                       kDiscs / listed.seconds, "",
                       "without a file system to list " + InUnits(kDiscs / unlisted.seconds, ""));
    report.AddAtMost(
        "processor time for a disc without its walk", 1, unlisted.processor * 1e3 / kDiscs, "ms",
        "with it, for which all discs are looked at, " + InTime(listed.processor / kDiscs));
}

} // namespace

void MeasureGrowth(Report& report) {
    report.BeginSection(
        "Growth",
        "Notifications of 1, 4, 16 and 64 changers with 1,000 slots each, which have not changed, "
        "in this process; identifications and builds by the daemon as installed, with the "
        "simulator, whose robot takes no time, once each. What is left behind by 50,000 "
        "connections that the server closes, in the daemon as installed, and by a changer that "
        "goes 10,000 times, in this process. A \"changer list\" of 100,000 changers of which the "
        "last 100 are known, in this process.");
    MeasureNotificationGrowth(report);
    MeasureAtOnce(report);
    MeasureOneAfterTheOther(report);
    MeasureHostileGrowth(report);
}

} // namespace bench
