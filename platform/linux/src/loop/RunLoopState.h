#ifndef PLATFORM_RUNLOOPSTATE_H
#define PLATFORM_RUNLOOPSTATE_H

/* The inside of a run loop, for its sources and timers. */

#include "loop/LoopContext.h"
#include "loop/RunLoopMember.h"
#include "loop/TimerQueue.h"
#include "loop/WallClockAlarm.h"

#include <atomic>
#include <cstdint>
#include <mutex>

namespace cf {

/* One call of CFRunLoopRun, on its stack. */
struct Run {
    Run* const outer;
    std::atomic<bool> stopped = false;
};

} // namespace cf

struct __CFRunLoop : cf::Object {
    static const cf::Class kClass;
    __CFRunLoop() noexcept : cf::Object(&kClass) {}

    cf::LoopContext context;
    cf::WallClockAlarm alarm; // ends its sleep for the timers on the wall clock
    cf::MemberList sources;
    cf::MemberList timers;
    cf::TimerQueue queue;          // of the timers
    std::uint64_t timersAdded = 0; // so far
    std::uint64_t iteration = 0;   // counts the iterations of all runs

    std::mutex runMutex;
    cf::Run* innermost = nullptr; // guarded by runMutex
};

namespace cf {

/* CFRunLoopRemoveSource and CFRunLoopRemoveTimer: T is the class of the member. */
template<typename T>
void RemoveMember(CFRunLoopRef runLoop, CFTypeRef reference, CFStringRef mode) noexcept {
    auto* loop = As<RunLoop>(runLoop);
    auto* member = As<T>(reference);
    if (loop != nullptr && member != nullptr && IsInMode(*member, *loop, mode))
        RemoveFromLoop(*member);
}

} // namespace cf

#endif
