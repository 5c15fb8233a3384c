/* A run loop with whatever can fail around it failing, from its making on, which is each time on a
   thread of its own: it is not there, or what was put into it is called out. */

#include "FaultSweep.h"
#include "loop/RunLoop.h"

#include <CoreFoundation/CoreFoundation.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <thread>

namespace {

constexpr CFTimeInterval kSoon = 0.002; // after a sleep
constexpr CFTimeInterval kDay = 86400;  // by the alarm of the wall clock

struct Outcome {
    bool hasLoop = false;
    int made = 0; // the timers and sources that there was memory for
    int calledOut = 0;
};
thread_local Outcome t_outcome;

void NoteCallout() {
    if (++t_outcome.calledOut == t_outcome.made)
        CFRunLoopStop(CFRunLoopGetCurrent());
}

CFRunLoopTimerRef MakeTimer(CFTimeInterval wait, CFTimeInterval interval) {
    return CFRunLoopTimerCreate(
        kCFAllocatorDefault, CFAbsoluteTimeGetCurrent() + wait, interval, 0, 0,
        [](CFRunLoopTimerRef, void*) { NoteCallout(); }, nullptr);
}

Outcome UseLoop() {
    t_outcome = {};
    CFRunLoopRef loop = CFRunLoopGetCurrent();
    t_outcome.hasLoop = loop != nullptr;
    CFRunLoopTimerRef soon = MakeTimer(kSoon, 0);
    CFRunLoopTimerRef daily = MakeTimer(kDay, kDay);
    CFRunLoopSourceRef source = cf::CreateSignalSource(
        cf::Runs::kEvery, [](void*) { NoteCallout(); }, nullptr);
    for (CFRunLoopTimerRef timer : {soon, daily})
        CFRunLoopAddTimer(loop, timer, kCFRunLoopDefaultMode);
    CFRunLoopAddSource(loop, source, kCFRunLoopDefaultMode);
    cf::SignalSource(source);
    t_outcome.made = (soon != nullptr ? 1 : 0) + (source != nullptr ? 1 : 0);
    if (t_outcome.made > 0)
        CFRunLoopRun();
    for (CFTypeRef member : {CFTypeRef(soon), CFTypeRef(daily), CFTypeRef(source)})
        CFRelease(member);
    return t_outcome;
}

// Whether the fault happened, which is made of the arguments.
template<typename FaultKind, typename... Arguments>
bool UseLoopWith(const std::string& what, const Arguments&... arguments) {
    bool happened = false;
    std::thread([&] {
        Outcome outcome;
        {
            const FaultKind fault(arguments...);
            outcome = UseLoop();
            happened = FaultKind::Happened();
        }
        EXPECT_TRUE(happened || (outcome.hasLoop && outcome.made == 2)) << what;
        EXPECT_EQ(outcome.calledOut, outcome.hasLoop ? outcome.made : 0) << what;
    }).join();
    return happened;
}

TEST(RunLoopSweep, WithoutMemoryIsNotThereOrWorks) {
    for (const std::size_t count : {std::size_t{1}, SIZE_MAX}) {
        std::size_t nth = 1;
        while (UseLoopWith<AllocationFault>("allocation " + std::to_string(nth), nth, count))
            ++nth;
        EXPECT_GT(nth, 1U);
    }
}

TEST(RunLoopSweep, WithACallFailingIsNotThereOrWorks) {
    std::size_t calls = 0;
    for (const SystemCallFailure& failure : SystemCallFailures()) {
        std::size_t nth = 1;
        while (UseLoopWith<SystemCallFault>(Describe(failure, nth), failure, nth))
            ++nth;
        calls += nth - 1;
    }
    EXPECT_GT(calls, 0U);
}

} // namespace
