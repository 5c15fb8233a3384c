/* A run loop created on a new thread with each allocation and system call failing in turn. */

#include "FaultSweep.h"
#include "ResourceUsage.h"
#include "loop/Arrivals.h"
#include "loop/RunLoop.h"

#include <CoreFoundation/CoreFoundation.h>

#include <gtest/gtest.h>

#include <cstddef>
#include <set>
#include <string>

namespace {

constexpr CFTimeInterval kSoon = 0.002; // after a sleep
constexpr CFTimeInterval kDay = 86400;  // by the alarm of the wall clock

struct Outcome {
    bool hasLoop = false;
    int made = 0; // timers and sources that were created
    int calledOut = 0;
};
Outcome g_outcome; // of the last run

void NoteCallout() {
    if (++g_outcome.calledOut == g_outcome.made)
        CFRunLoopStop(CFRunLoopGetCurrent());
}

CFRunLoopTimerRef MakeTimer(CFTimeInterval wait, CFTimeInterval interval) {
    return CFRunLoopTimerCreate(
        kCFAllocatorDefault, CFAbsoluteTimeGetCurrent() + wait, interval, 0, 0,
        [](CFRunLoopTimerRef, void*) { NoteCallout(); }, nullptr);
}

void UseLoop() {
    g_outcome = {};
    CFRunLoopRef loop = CFRunLoopGetCurrent();
    g_outcome.hasLoop = loop != nullptr;
    CFRunLoopTimerRef soon = MakeTimer(kSoon, 0);
    CFRunLoopTimerRef daily = MakeTimer(kDay, kDay);
    CFRunLoopSourceRef source =
        cf::CreateSignalSource(cf::RunLevel::kAny, [](void*) { NoteCallout(); }, nullptr);
    for (CFRunLoopTimerRef timer : {soon, daily})
        CFRunLoopAddTimer(loop, timer, kCFRunLoopDefaultMode);
    CFRunLoopAddSource(loop, source, kCFRunLoopDefaultMode);
    cf::SignalSource(source);
    g_outcome.made = (soon != nullptr ? 1 : 0) + (source != nullptr ? 1 : 0);
    if (g_outcome.made > 0)
        CFRunLoopRun();
    for (CFTypeRef member : {CFTypeRef(soon), CFTypeRef(daily), CFTypeRef(source)})
        CFRelease(member);
}

TEST(RunLoopSweep, CreationFailsCleanlyOrLoopWorks) {
    ASSERT_TRUE(cf::StartArrivals()); // so that delays take a descriptor
    const std::size_t descriptors = CountDescriptors();
    const SweptFaults swept = SweepFaults(
        UseLoop,
        [descriptors](const Fault& fault) {
            const Outcome& outcome = g_outcome;
            EXPECT_TRUE(fault.happened || (outcome.hasLoop && outcome.made == 2)) << fault.what;
            EXPECT_EQ(outcome.calledOut, outcome.hasLoop ? outcome.made : 0) << fault.what;
            EXPECT_EQ(CountDescriptors(), descriptors) << fault.what;
        },
        SweptThread::kFresh);
    EXPECT_GT(swept.allocations, 0U);
    EXPECT_GT(swept.systemCalls, 0U);
}

TEST(RunLoopSweep, DelayThatCannotBeWatchedKeepsNoDescriptor) {
    ASSERT_TRUE(cf::StartArrivals());
    CFRunLoopRef loop = CFRunLoopGetCurrent();
    const std::size_t descriptors = CountDescriptors();
    std::set<std::string> failed;
    for (const SystemCallFailure& failure : SystemCallFailures()) {
        CFRunLoopTimerRef timer = MakeTimer(1000, 0);
        bool happened = false;
        {
            const SystemCallFault fault(failure, 1);
            CFRunLoopAddTimer(loop, timer, kCFRunLoopDefaultMode);
            happened = SystemCallFault::Happened();
        }
        if (happened) {
            failed.emplace(failure.function);
            EXPECT_EQ(CountDescriptors(), descriptors) << Describe(failure, 1);
        }
        CFRunLoopTimerInvalidate(timer);
        CFRelease(timer);
    }
    EXPECT_EQ(failed, (std::set<std::string>{"epoll_ctl", "timerfd_create"}));
}

} // namespace
