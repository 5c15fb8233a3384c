#ifndef PLATFORM_ARRIVALS_H
#define PLATFORM_ARRIVALS_H

#include "loop/Clock.h"

#include <mutex>

namespace cf {

/*
 * Input at descriptors, noticed in the background, and whether it came before a deadline.
 *
 * One thread waits for all watched descriptors of the process. It is started once and then stays:
 * with nothing to read it makes no system call. It learns of input at once unless the whole process
 * stood still (stopped, frozen); then only the kernel knows what came when. So a deadline is
 * watched as well, as a timer descriptor, and the kernel hands both out in the order of their
 * coming.
 */

/* Starts the thread, unless it runs. False when there is no descriptor, thread or memory for it. */
bool StartArrivals() noexcept;

/* Whether it was started. The caller holds the mutex. */
bool AreArrivalsStarted() noexcept;

/* Handles, on the calling thread, all that the kernel has noted so far. Any thread. */
void HandleArrivals() noexcept;

/* Guards every WatchedDescriptor and what its handler changes. Held while a handler runs. */
std::mutex& ArrivalsMutex() noexcept;

/* A descriptor that may be watched. The caller of each member holds the mutex. */
class WatchedDescriptor {
public:
    // Called when the descriptor is readable, at its end or in error, until it is unwatched. The
    // input came no later than `by` on the monotonic clock; kNever: no deadline has passed since.
    // A call may come without input, after a descriptor's number was used again. Unwatches no
    // other than its own.
    using Handler = void (*)(WatchedDescriptor& watched, Nanoseconds arrivedBy) noexcept;

    explicit WatchedDescriptor(Handler handler) noexcept : handler_(handler) {}
    WatchedDescriptor(const WatchedDescriptor&) = delete;
    WatchedDescriptor& operator=(const WatchedDescriptor&) = delete;

    // The descriptor remains the caller's and open until Unwatch. `date`: for a deadline, when the
    // descriptor becomes readable. False, with errno, when the kernel does not watch it.
    bool Watch(int descriptor, Nanoseconds date = kNever) noexcept;
    void Unwatch() noexcept;
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
