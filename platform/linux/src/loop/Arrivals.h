#ifndef PLATFORM_ARRIVALS_H
#define PLATFORM_ARRIVALS_H

#include "loop/Clock.h"

#include <mutex>

namespace cf {

/*
 * Input at descriptors, read in the background, and its order relative to deadlines.
 *
 * One background thread, the arrivals thread, waits in epoll_wait() for all watched descriptors of
 * the process and calls their handlers. It starts once and never ends; without input it makes no
 * system call.
 *
 * A deadline is a timer descriptor (Deadline.h) in the same epoll instance. The kernel reports
 * descriptors in the order in which they became ready. So even after the whole process was stopped
 * or frozen, input that arrived before a deadline is recognized by its place before the timer.
 *
 * Locks: ArrivalsMutex() guards every WatchedDescriptor and what its handler changes. Either the
 * arrivals thread or a caller of HandleArrivals() holds the mutex while handlers run.
 */

/* Starts the arrivals thread unless it is running. False on a shortage of descriptors, threads or
   memory. Any thread; takes the mutex. */
bool StartArrivals() noexcept;

/* True once StartArrivals() has succeeded. The caller holds the mutex. */
bool AreArrivalsStarted() noexcept;

/* Calls the handlers, on the calling thread, for all that the kernel has reported so far. Does
   nothing before StartArrivals(). Any thread; takes the mutex and does not wait for input. */
void HandleArrivals() noexcept;

/* The mutex that guards every WatchedDescriptor and what its handler changes. */
std::mutex& ArrivalsMutex() noexcept;

/* A descriptor that the arrivals thread may watch. The caller of every member function holds the
   mutex. */
class WatchedDescriptor {
public:
    // Called with the mutex held while the descriptor is readable, at its end or in error, until
    // Unwatch(). The input arrived no later than `arrivedBy` on the monotonic clock; kNever: no
    // deadline is known to have followed the input. A call without input is possible when the
    // descriptor's number was reused. A handler may unwatch its own descriptor only.
    using Handler = void (*)(WatchedDescriptor& watched, Nanoseconds arrivedBy) noexcept;

    // Watches nothing yet.
    explicit WatchedDescriptor(Handler handler) noexcept : handler_(handler) {}
    WatchedDescriptor(const WatchedDescriptor&) = delete;
    WatchedDescriptor& operator=(const WatchedDescriptor&) = delete;

    // Starts watching. The caller owns the descriptor and keeps it open until Unwatch(). `date`: of
    // a deadline, the monotonic time at which the descriptor becomes readable. False, with errno,
    // if the kernel refuses. StartArrivals() must have succeeded.
    bool Watch(int descriptor, Nanoseconds date = kNever) noexcept;
    // Stops watching: no call of the handler follows. Does nothing if nothing is watched.
    void Unwatch() noexcept;
    // True between Watch() and Unwatch().
    bool IsWatched() const noexcept {
        return descriptor_ >= 0;
    }

private:
    friend class EventBatch;

    const Handler handler_;
    int descriptor_ = -1;
    Nanoseconds date_ = kNever;
    WatchedDescriptor* next_ = nullptr;
};

} // namespace cf

#endif
