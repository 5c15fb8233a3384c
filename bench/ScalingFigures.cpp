#include "ChangerInfoGenerator.h"
#include "Comparison.h"
#include "Figures.h"
#include "ManyMounts.h"
#include "Notification.h"
#include "ProcessTable.h"
#include "Program.h"
#include "testbed/Failure.h"

#include <CoreFoundation/CoreFoundation.h>
#include <DiskArbitration/DiskArbitration.h>

#include <array>
#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace bench {
namespace {

// The highest permitted ratio of the time per item at 16n to that at n. O(n log n) and cache misses
// stay below it; O(n^2) gives 16.
constexpr double kGoal = 4;
constexpr std::size_t kRounds = 9;

using Sizes = std::array<std::size_t, 3>; // n, 4n, 16n
using Costs = std::vector<Spread>;        // seconds per item

void AddRow(Report& report, const std::string& what, const Sizes& sizes, const Costs& costs,
            const Spread& ratio) {
    std::string details;
    for (std::size_t i = 0; i < sizes.size(); ++i) {
        details += (details.empty() ? "" : ", ") + InUnits(static_cast<double>(sizes[i]), "") +
                   ": " + InTime(costs[i].median);
    }
    report.AddAtMost(what + ": time per item, 16n over n", kGoal, ratio, "", details);
}

Spread CostOfEach(const Spread& all, std::size_t size) {
    return all.Times(1 / static_cast<double>(size));
}

// For work that can be done with all sizes in the same rounds.
void CompareSizes(Report& report, const std::string& what, const Sizes& sizes,
                  const std::function<void(std::size_t)>& body) {
    Comparison comparison(kRounds);
    for (const std::size_t size : sizes)
        comparison.Add(std::to_string(size), [size, &body] { body(size); });
    comparison.Run();
    Costs costs;
    for (const std::size_t size : sizes)
        costs.push_back(CostOfEach(comparison.Time(std::to_string(size)), size));
    const Spread times = comparison.Ratio(std::to_string(sizes[2]), std::to_string(sizes[0]));
    const double growth = static_cast<double>(sizes[2]) / static_cast<double>(sizes[0]);
    AddRow(report, what, sizes, costs, times.Times(1 / growth));
}

// For work on items whose number only grows: grow(size) adds items up to the size.
void CompareGrowing(Report& report, const std::string& what, const Sizes& sizes,
                    const std::function<void(std::size_t)>& grow,
                    const std::function<void(std::size_t)>& body) {
    Costs costs;
    for (const std::size_t size : sizes) {
        grow(size);
        Comparison comparison(kRounds);
        comparison.Add("all", [&] { body(size); });
        comparison.Run();
        costs.push_back(CostOfEach(comparison.Time("all"), size));
    }
    AddRow(report, what, sizes, costs, Quotient(costs[2], costs[0]));
}

// ---- timers ----

void CountCallout(CFRunLoopTimerRef /* timer */, void* info) {
    ++*static_cast<std::size_t*>(info);
}

// All timers are due at the same time and fire once; the loop runs until none is left.
void RunDueTimers(std::size_t count) {
    std::size_t fired = 0;
    CFRunLoopTimerContext context = {};
    context.info = &fired;
    for (std::size_t i = 0; i < count; ++i) {
        CFRunLoopTimerRef timer = CFRunLoopTimerCreate(
            kCFAllocatorDefault, CFAbsoluteTimeGetCurrent() - 1, 0, 0, 0, CountCallout, &context);
        CFRunLoopAddTimer(CFRunLoopGetCurrent(), timer, kCFRunLoopDefaultMode);
        CFRelease(timer);
    }
    CFRunLoopRun();
    if (fired != count)
        throw testbed::Failure("some timers did not fire");
}

// ---- processes ----

void ReadProcesses(std::size_t atLeast) {
    if (ReadProcessTable() < atLeast)
        throw testbed::Failure("the process table has too few processes");
}

void MeasureProcesses(Report& report) {
    std::vector<std::unique_ptr<Sleepers>> sleepers;
    std::size_t count = 0;
    const auto grow = [&](std::size_t size) {
        sleepers.push_back(std::make_unique<Sleepers>(static_cast<int>(size - count)));
        count = size;
    };
    CompareGrowing(report, "processes in the process table", {250, 1000, 4000}, grow,
                   ReadProcesses);
}

// ---- volumes ----

struct Appearance {
    std::size_t awaited;
    CFRunLoopRef runLoop;
};

void CountDisk(DADiskRef /* disk */, void* context) {
    auto* appearance = static_cast<Appearance*>(context);
    if (--appearance->awaited == 0)
        CFRunLoopStop(appearance->runLoop);
}

void StopWaiting(CFRunLoopTimerRef /* timer */, void* info) {
    CFRunLoopStop(static_cast<Appearance*>(info)->runLoop);
}

// Runs the loop until all volumes have appeared. Throws Failure after testbed::kTimeOut.
void RunUntilAppeared(Appearance& appearance) {
    CFRunLoopTimerContext context = {};
    context.info = &appearance;
    const std::chrono::duration<double> timeOut = testbed::kTimeOut;
    CFRunLoopTimerRef timer =
        CFRunLoopTimerCreate(kCFAllocatorDefault, CFAbsoluteTimeGetCurrent() + timeOut.count(), 0,
                             0, 0, StopWaiting, &context);
    CFRunLoopAddTimer(appearance.runLoop, timer, kCFRunLoopDefaultMode);
    CFRunLoopRun();
    CFRunLoopTimerInvalidate(timer);
    CFRelease(timer);
    if (appearance.awaited > 0)
        throw testbed::Failure("volumes did not appear");
}

// Creates a session and waits until `count` volumes have appeared.
void AwaitVolumes(std::size_t count) {
    Appearance appearance = {count, CFRunLoopGetCurrent()};
    DASessionRef session = DASessionCreate(kCFAllocatorDefault);
    DARegisterDiskAppearedCallback(session, nullptr, CountDisk, &appearance);
    DASessionScheduleWithRunLoop(session, appearance.runLoop, kCFRunLoopDefaultMode);
    RunUntilAppeared(appearance);
    DASessionUnscheduleFromRunLoop(session, appearance.runLoop, kCFRunLoopDefaultMode);
    CFRelease(session);
}

void MeasureVolumes(Report& report) {
    ManyMounts mounts;
    CompareGrowing(
        report, "volumes mounted at the start", {625, 2500, 10'000},
        [&](std::size_t size) { mounts.GrowTo(size); }, AwaitVolumes);
}

// ---- clients ----

std::string MakeNotification(const ChangerInfoGenerator& generator, std::size_t clients) {
    std::string statuses = "<dict>";
    for (std::size_t i = 0; i < clients; ++i) {
        statuses += "<key>client " + std::to_string(i) +
                    "</key><dict><key>Message</key><string>Working</string><key>Current Step</key>"
                    "<integer>" +
                    std::to_string(i) + "</integer><key>Abort Requested</key><false/></dict>";
    }
    const std::string none = "<dict/>";
    std::string text = generator.MakeNotification();
    return text.replace(text.find(none), none.size(), statuses + "</dict>");
}

void MeasureClients(Report& report) {
    const ChangerInfoGenerator generator(1, 1);
    AddChangers(generator);
    const Sizes sizes = {64, 256, 1024};
    std::map<std::size_t, std::unique_ptr<Notification>> notifications;
    for (const std::size_t clients : sizes)
        notifications[clients] =
            std::make_unique<Notification>(MakeNotification(generator, clients));
    CompareSizes(report, "clients in a changer's status", sizes,
                 [&](std::size_t clients) { notifications.at(clients)->Deliver(); });
    RequireDelivered(generator);
}

} // namespace

void MeasureScaling(Report& report) {
    report.BeginSection(
        "Scaling",
        "The benchmark process works on n, 4n and 16n items: it creates timers that are due "
        "at the same time and waits for the last callout; reads the process table once; "
        "waits until all mounted volumes have appeared, as a starting daemon does; handles a "
        "notification with that number of clients in its status.");
    CompareSizes(report, "timers due at the same time", {10'000, 40'000, 160'000}, RunDueTimers);
    MeasureProcesses(report);
    MeasureVolumes(report);
    MeasureClients(report);
}

} // namespace bench
