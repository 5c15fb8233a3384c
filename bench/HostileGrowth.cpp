#include "Figures.h"

#include "AwaitedServer.h"
#include "Comparison.h"
#include "InOrder.h"
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

// Accepts the daemon's connection and closes it, so many times.
void CloseConnections(const AwaitedServer& server, int count) {
    for (; count > 0; --count)
        server.AwaitSubscriber();
}

void MeasureConnections(Report& report) {
    constexpr int kToWarmUp = 1000;
    constexpr int kConnections = 50'000;
    testbed::TestRun run;
    const AwaitedServer server;
    run.StartDaemon();
    CloseConnections(server, kToWarmUp);
    const pid_t daemon = run.Daemon().Pid();
    const double before = ReadDirtyMemory(daemon);
    const auto start = std::chrono::steady_clock::now();
    CloseConnections(server, kConnections);
    const std::chrono::duration<double> passed = std::chrono::steady_clock::now() - start;
    const double growth = ReadDirtyMemory(daemon) - before;
    report.AddUnjudged("a server that closes each connection: connections a second",
                       kConnections / passed.count(), "", "");
    report.AddUnjudged("memory that each of these connections leaves", growth / kConnections,
                       "bytes", "");
    EndCleanly(run);
}

// A changer with a schedule goes and comes back, so many times.
void LeaveTimers(int count) {
    constexpr UInt64 kChanger = 0xB1;
    for (; count > 0; --count) {
        if (AddChangerToList(kChanger) != nullptr ||
            ScheduleChangerFSCacheTimer(kChanger, 3, 30) != nullptr ||
            RemoveChangerFromList(kChanger) != nullptr) {
            throw testbed::Failure("a changer cannot come and go");
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

constexpr UInt64 kFirstOfMany = 0x10'0000;

CFArrayRef CreateChangerList(UInt64 changers) {
    std::string text = "<plist><array>";
    for (UInt64 i = 0; i < changers; ++i)
        text += "<integer>" + std::to_string(kFirstOfMany + i) + "</integer>";
    text += "</array></plist>";
    return static_cast<CFArrayRef>(Notification(text).Create());
}

// Each known changer is compared with all that the list names before it.
void MeasureRemovals(Report& report) {
    constexpr UInt64 kListed = 100'000;
    constexpr UInt64 kKnown = 100;
    CFArrayRef list = CreateChangerList(kListed);
    for (UInt64 i = kListed - kKnown; i < kListed; ++i)
        testbed::Require(AddChangerToList(kFirstOfMany + i) == nullptr,
                         "a changer cannot be known");
    Comparison comparison;
    comparison.Add("all", [list] {
        testbed::Require(HandleRemovedChangers(list) == nullptr,
                         "a list of changers is not handled");
    });
    comparison.Run();
    CFRelease(list);
    SInt32 isKnown = 0;
    testbed::Require(IsChangerInList(kFirstOfMany + kListed - 1, &isKnown) == nullptr && isKnown,
                     "a changer that is listed is gone");
    report.AddUnjudged("a known changer compared with one of a \"changer list\"",
                       comparison.Time("all").Times(1e9 / (kListed * kKnown)), "ns", "");
}

} // namespace

void MeasureHostileGrowth(Report& report) {
    MeasureConnections(report);
    // On a thread, with which its run loop and the timers end.
    std::async(std::launch::async, [&] { MeasureTimers(report); }).get();
    MeasureRemovals(report);
}

} // namespace bench
