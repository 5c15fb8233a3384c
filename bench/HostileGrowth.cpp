#include "Figures.h"

#include "AwaitedServer.h"
#include "InOrder.h"
#include "Memory.h"
#include "ProcessMemory.h"

#include "stage/Failure.h"
#include "stage/Scene.h"
#include "trayprobed/MediaIdState.h"

#include <chrono>
#include <future>

namespace bench {
namespace {

// Accepts the daemon's connection and closes it, so many times.
void CloseConnections(const AwaitedServer& server, int count) {
    for (; count > 0; --count) {
        server.AwaitSubscriber();
    }
}

void MeasureConnections(Report& report) {
    constexpr int kToWarmUp = 1000;
    constexpr int kConnections = 50'000;
    stage::Scene scene;
    const AwaitedServer server;
    scene.StartDaemon();
    CloseConnections(server, kToWarmUp);
    const pid_t daemon = scene.TheDaemon().Pid();
    const double before = ReadDirtyMemory(daemon);
    const auto start = std::chrono::steady_clock::now();
    CloseConnections(server, kConnections);
    const std::chrono::duration<double> passed = std::chrono::steady_clock::now() - start;
    const double growth = ReadDirtyMemory(daemon) - before;
    report.AddUnjudged("a server that closes each connection: connections a second",
                       kConnections / passed.count(), "", "");
    report.AddUnjudged("memory that each of these connections leaves", growth / kConnections,
                       "bytes", "");
    EndInOrder(scene);
}

// A changer with a schedule goes and comes back, so many times.
void LeaveTimers(int count) {
    constexpr UInt64 kChanger = 0xB1;
    for (; count > 0; --count) {
        if (AddChangerToList(kChanger) != nullptr ||
            ScheduleChangerFSCacheTimer(kChanger, 3, 30) != nullptr ||
            RemoveChangerFromList(kChanger) != nullptr) {
            throw stage::Failure("a changer cannot come and go");
        }
    }
}

void MeasureTimers(Report& report) {
    constexpr int kToWarmUp = 100;
    constexpr int kTimers = 10'000;
    LeaveTimers(kToWarmUp);
    const long before = HeapInUse();
    LeaveTimers(kTimers);
    report.AddUnjudged("memory of a timer that a changer with a schedule leaves behind",
                       static_cast<double>(HeapInUse() - before) / kTimers, "bytes", "");
}

} // namespace

void MeasureHostileGrowth(Report& report) {
    MeasureConnections(report);
    // On a thread, with which its run loop and the timers end.
    std::async(std::launch::async, [&] { MeasureTimers(report); }).get();
}

} // namespace bench
