#ifndef PLATFORM_TIMERQUEUE_H
#define PLATFORM_TIMERQUEUE_H

#include "loop/RunLoopTimer.h"
#include "loop/TimerSet.h"

#include <cstdint>

namespace cf {

/* The timers of a loop that wait to fire: all but those that are calling out. */
class TimerQueue {
public:
    void Insert(Timer& timer) noexcept;

    // Of the timers that joined the loop and fired last before that iteration, the one that has
    // been due longest at that time; of equally late ones the one that joined first. nullptr when
    // none is due. It remains in the queue. Due timers that must wait for a later iteration are put
    // aside.
    Timer* FirstDue(std::uint64_t iteration, const ClockTimes& now) noexcept;

    // Takes back what was put aside, at the beginning of an iteration.
    void RequeueDeferred() noexcept;

    // The first date on one of the clocks, but for what is put aside; kNever: there is none.
    Nanoseconds FirstMonotonicDate() const noexcept;
    Nanoseconds FirstWallClockDate() const noexcept;

private:
    TimerSet monotonic_;
    TimerSet wallClock_;
    TimerSet deferred_; // of both clocks: only that they are in it counts
};

/* Of a timer that is in no set. */
void InsertInto(TimerSet& set, Timer& timer) noexcept;
/* Takes the timer out of the set of a queue that it is in, if any. */
void RemoveFromQueue(Timer& timer) noexcept;

} // namespace cf

#endif
