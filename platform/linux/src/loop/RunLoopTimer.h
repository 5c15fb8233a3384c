#ifndef PLATFORM_RUNLOOPTIMER_H
#define PLATFORM_RUNLOOPTIMER_H

#include "loop/Clock.h"
#include "loop/ContextInfo.h"
#include "loop/Deadline.h"
#include "loop/RunLoopMember.h"
#include "loop/TimerSet.h"

#include <cstdint>

struct __CFRunLoopTimer : cf::Member {
    static const cf::Class kClass;
    __CFRunLoopTimer(cf::Nanoseconds timerDate, cf::Nanoseconds timerInterval, bool wallClock,
                     CFRunLoopTimerCallBack timerCallout,
                     const CFRunLoopTimerContext* context) noexcept
        : cf::Member(&kClass), date(timerDate), interval(timerInterval), onWallClock(wallClock),
          callout(timerCallout), info(context) {}

    cf::Nanoseconds date;           // the next fire date, by the timer's own clock
    const cf::Nanoseconds interval; // 0: fires once
    const bool onWallClock;
    const CFRunLoopTimerCallBack callout;
    cf::ContextInfo info;
    cf::Deadline deadline; // of a delay that is waited for once, while it is in a loop

    std::uint64_t order = 0;     // among the timers that were added to its loop
    cf::TimerSet* set = nullptr; // of a queue, while it is in one; else it has its node here
    cf::TimerSet::node_type node;
};

namespace cf {

/* What the two clocks show. */
struct ClockTimes {
    Nanoseconds monotonic;
    Nanoseconds wallClock;
};
ClockTimes ReadClocks() noexcept;

/* How long the timer has been due; negative: how long it has to wait yet. */
Nanoseconds Lateness(const Timer& timer, const ClockTimes& now) noexcept;

/* When the timer became due, by the monotonic clock. */
Nanoseconds DueTime(const Timer& timer, const ClockTimes& now) noexcept;

/* Calls the timer out; meanwhile it is in no queue. */
void Fire(Timer& timer) noexcept;

/* After a step of the wall clock: a date that lies more than two intervals ahead moves to the
   timer's grid within them, so that a clock put right from years ahead does not silence it. */
void Realign(Timer& timer, const ClockTimes& now) noexcept;

/* Takes the timer out of its loop. */
void RemoveFromLoop(Timer& timer) noexcept;

} // namespace cf

#endif
