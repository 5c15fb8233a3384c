#ifndef PLATFORM_RUNLOOPSTATE_H
#define PLATFORM_RUNLOOPSTATE_H

/* The state of a run loop, for RunLoop.cpp, its sources and its timers. Other threads than the
   loop's use only what runMutex guards, and context.Wake(). */

#include "loop/LoopContext.h"
#include "loop/RunLoopMember.h"
#include "loop/TimerQueue.h"
#include "loop/WallClockAlarm.h"

#include <atomic>
#include <cstdint>
#include <mutex>

namespace cf {

/* One call of CFRunLoopRun; lives on the stack of that call. */
struct Run {
    Run* const outer; // nullptr: the outermost run
    std::atomic<bool> stopped = false;
};

} // namespace cf

struct __CFRunLoop : cf::Object {
    static const cf::Class kClass;
    // Creates the loop of the calling thread.
    __CFRunLoop() noexcept : cf::Object(&kClass) {}

    cf::LoopContext context;
    cf::WallClockAlarm alarm; // ends the sleep for the timers on the wall clock
    cf::MemberList sources;
    cf::MemberList timers;
    cf::TimerQueue queue;          // of the timers
    std::uint64_t timersAdded = 0; // since the loop was created
    std::uint64_t iteration = 0;   // the number of iterations of all runs

    std::mutex runMutex;
    cf::Run* innermost = nullptr; // guarded by runMutex
};

namespace cf {

/* Implements CFRunLoopRemoveSource and CFRunLoopRemoveTimer: T is the class of the member. Ignores
   a member that is not in that loop and mode. */
template<typename T>
void RemoveMember(CFRunLoopRef runLoop, CFTypeRef reference, CFStringRef mode) noexcept {
    auto* loop = As<RunLoop>(runLoop);
    auto* member = As<T>(reference);
    if (loop != nullptr && member != nullptr && IsInMode(*member, *loop, mode))
        RemoveFromLoop(*member);
}

} // namespace cf

#endif
