#ifndef PLATFORM_TIMERQUEUE_H
#define PLATFORM_TIMERQUEUE_H

#include "loop/RunLoopTimer.h"
#include "loop/TimerSet.h"

#include <cstdint>

namespace cf {

/* The timers of a loop that wait to fire: all but those that are calling out. For the thread of the
   loop. */
class TimerQueue {
public:
    // Inserts a timer that is in no set, by its date and clock. Allocates nothing.
    void Insert(Timer& timer) noexcept;

    // The timer that has been due longest at `now`, of equally late ones the one added first;
    // nullptr: none is due. The timer stays in the queue. A due timer that was added or called out
    // in this iteration or a later one does not count: it is deferred until RequeueDeferred().
    Timer* FirstDue(std::uint64_t iteration, const ClockTimes& now) noexcept;

    // Puts the deferred timers back into the queue. Call at the beginning of an iteration.
    void RequeueDeferred() noexcept;

    // The first fire date on one of the clocks, without the deferred timers; kNever: there is none.
    Nanoseconds FirstMonotonicDate() const noexcept;
    Nanoseconds FirstWallClockDate() const noexcept;

private:
    TimerSet monotonic_;
    TimerSet wallClock_;
    TimerSet deferred_; // of both clocks; the order is not used
};

/* Inserts a timer that is in no set. Allocates nothing. */
void InsertInto(TimerSet& set, Timer& timer) noexcept;
/* Removes the timer from the set of the queue that it is in, if any. */
void RemoveFromQueue(Timer& timer) noexcept;

} // namespace cf

#endif
