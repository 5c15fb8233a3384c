#include "BenchServer.h"
#include "Comparison.h"
#include "EndAndCheck.h"
#include "Figures.h"
#include "Memory.h"
#include "Notification.h"
#include "ProcessMemory.h"
#include "testbed/Failure.h"
#include "testbed/TestRun.h"
#include "trayprobed/MediaIdManager.h"
#include "trayprobed/MediaIdState.h"

#include <CoreFoundation/CoreFoundation.h>

#include <chrono>
#include <future>
#include <string>

namespace bench {
namespace {

// Accepts the daemon's connection and closes it, `count` times.
void CloseConnections(const BenchServer& server, int count) {
    for (; count > 0; --count)
        server.AwaitSubscriber();
}

void MeasureConnections(Report& report) {
    constexpr int kWarmUp = 1000;
    constexpr int kConnections = 50'000;
    testbed::TestRun run;
    const BenchServer server;
    run.StartDaemon();
    CloseConnections(server, kWarmUp);
    const pid_t daemon = run.Daemon().Pid();
    const double before = ReadDirtyMemory(daemon);
    const auto start = std::chrono::steady_clock::now();
    CloseConnections(server, kConnections);
    const std::chrono::duration<double> passed = std::chrono::steady_clock::now() - start;
    const double growth = ReadDirtyMemory(daemon) - before;
    report.AddWithoutGoal("a server that closes each connection: connections per second",
                          kConnections / passed.count(), "", "");
    report.AddWithoutGoal("memory left by each of these connections", growth / kConnections,
                          "bytes", "");
    EndAndCheck(run);
}

// Adds and removes a changer with a schedule, `count` times. Each removal leaves a timer in memory.
void LeakTimers(int count) {
    constexpr UInt64 kChanger = 0xB1;
    for (; count > 0; --count) {
        if (AddChangerToList(kChanger) != nullptr ||
            ScheduleChangerFSCacheTimer(kChanger, 3, 30) != nullptr ||
            RemoveChangerFromList(kChanger) != nullptr) {
            throw testbed::Failure("a changer cannot be added and removed");
        }
    }
}

void MeasureTimers(Report& report) {
    constexpr int kWarmUp = 100;
    constexpr int kTimers = 10'000;
    LeakTimers(kWarmUp);
    const long before = HeapInUse();
    LeakTimers(kTimers);
    report.AddWithoutGoal("memory left by the timer of a removed changer with a schedule",
                          static_cast<double>(HeapInUse() - before) / kTimers, "bytes", "");
}

constexpr UInt64 kFirstOfMany = 0x10'0000;

CFArrayRef CreateChangerList(UInt64 changers) {
    std::string text = "<plist><array>";
    for (UInt64 i = 0; i < changers; ++i)
        text += "<integer>" + std::to_string(kFirstOfMany + i) + "</integer>";
    text += "</array></plist>";
    return static_cast<CFArrayRef>(Notification(text).Create());
}

// HandleRemovedChangers() compares each known changer with all entries of the list before it.
void MeasureRemovals(Report& report) {
    constexpr UInt64 kListed = 100'000;
    constexpr UInt64 kKnown = 100;
    CFArrayRef list = CreateChangerList(kListed);
    for (UInt64 i = kListed - kKnown; i < kListed; ++i)
        testbed::Require(AddChangerToList(kFirstOfMany + i) == nullptr,
                         "a changer cannot be added");
    Comparison comparison;
    comparison.Add("all", [list] {
        testbed::Require(HandleRemovedChangers(list) == nullptr, "HandleRemovedChangers failed");
    });
    comparison.Run();
    CFRelease(list);
    SInt32 isKnown = 0;
    testbed::Require(IsChangerInList(kFirstOfMany + kListed - 1, &isKnown) == nullptr && isKnown,
                     "a listed changer was removed");
    report.AddWithoutGoal("comparison of a known changer with one of a \"changer list\"",
                          comparison.Time("all").Times(1e9 / (kListed * kKnown)), "ns", "");
}

} // namespace

void MeasureHostileGrowth(Report& report) {
    MeasureConnections(report);
    // On a new thread: its run loop, with the timers, is freed at the end of the thread.
    std::async(std::launch::async, [&] { MeasureTimers(report); }).get();
    MeasureRemovals(report);
}

} // namespace bench
