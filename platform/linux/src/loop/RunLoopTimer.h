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
    // `timerDate` is of the timer's own clock. CFRunLoopTimerCreate() adds the node.
    __CFRunLoopTimer(cf::Nanoseconds timerDate, cf::Nanoseconds timerInterval, bool wallClock,
                     CFRunLoopTimerCallBack timerCallout,
                     const CFRunLoopTimerContext* context) noexcept
        : cf::Member(&kClass), date(timerDate), interval(timerInterval), onWallClock(wallClock),
          callout(timerCallout), info(context) {}

    cf::Nanoseconds date;           // the next fire date, on the timer's own clock
    const cf::Nanoseconds interval; // 0: the timer fires once
    const bool onWallClock;
    const CFRunLoopTimerCallBack callout;
    cf::ContextInfo info;
    cf::Deadline deadline; // set while a delay that fires once is in a loop

    std::uint64_t order = 0;     // the timer's number among those added to the loop
    cf::TimerSet* set = nullptr; // the queue's set that holds the timer; nullptr: `node` is here
    cf::TimerSet::node_type node;
};

namespace cf {

/* The present times of the two clocks. */
struct ClockTimes {
    Nanoseconds monotonic;
    Nanoseconds wallClock;
};
/* Reads both clocks; the wall clock with the resolution of WallClockTick(). */
ClockTimes ReadClocks() noexcept;

/* How long the timer has been due at `now`; negative: the time left until its fire date. */
Nanoseconds Lateness(const Timer& timer, const ClockTimes& now) noexcept;

/* The monotonic time at which the timer became due. */
Nanoseconds DueTime(const Timer& timer, const ClockTimes& now) noexcept;

/* Calls the timer's callout and sets its next fire date, or invalidates a timer that fires once.
   The timer is in no queue during the callout. The caller owns a reference. */
void Fire(Timer& timer) noexcept;

/* Call after a step of the wall clock. A fire date more than two intervals ahead moves back by
   whole intervals: a clock corrected from years ahead must not silence the timer. */
void Realign(Timer& timer, const ClockTimes& now) noexcept;

/* Removes the timer, which is in a loop, from that loop and releases the loop's reference. */
void RemoveFromLoop(Timer& timer) noexcept;

} // namespace cf

#endif
