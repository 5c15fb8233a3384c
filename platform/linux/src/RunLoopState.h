#ifndef PLATFORM_RUNLOOPSTATE_H
#define PLATFORM_RUNLOOPSTATE_H

/* The inside of a run loop, for its sources and timers. */

#include "GLibPointers.h"
#include "RunLoopMember.h"
#include "WallClockAlarm.h"

#include <atomic>
#include <mutex>

namespace cf {

// One call of CFRunLoopRun, on its stack.
struct Run {
    Run* const outer;
    std::atomic<bool> stopped = false;
};

struct RunLoop : Object {
    static const Class kClass;
    RunLoop() noexcept;

    const ContextPointer context; // acquired by the loop's thread as long as that lives
    const SourcePointer deadline; // wakes the thread for the next timer
    WallClockAlarm alarm;         // the same for timers on the wall clock
    MemberList sources;
    MemberList timers;
    std::uint64_t turn = 0; // counts the turns of all runs

    std::mutex runMutex;
    Run* innermost = nullptr; // guarded by runMutex
};

// Ends the sleep of the context's loop, or keeps it from the next one. The loop's own thread is
// awake and needs none.
void Wake(GMainContext* context) noexcept;

} // namespace cf

#endif
