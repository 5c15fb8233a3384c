#ifndef PLATFORM_DEADLINE_H
#define PLATFORM_DEADLINE_H

#include "loop/Arrivals.h"

namespace cf {

/* A monotonic date that is watched together with the descriptors of Arrivals.h: input that arrived
   before the date is then known to have arrived before it. Owns a timer descriptor while set. Any
   thread, one at a time; the functions take ArrivalsMutex(). */
class Deadline {
public:
    // Not set.
    Deadline() noexcept;
    Deadline(const Deadline&) = delete;
    Deadline& operator=(const Deadline&) = delete;
    ~Deadline();

    // Sets a deadline that is not set. Does nothing before StartArrivals(), and on a shortage of
    // descriptors or memory: the order of input and date is then unknown.
    void Set(Nanoseconds date) noexcept;
    // Closes the timer descriptor. Does nothing if the deadline is not set.
    void Clear() noexcept;

private:
    WatchedDescriptor watched_;
    int timer_ = -1;
};

} // namespace cf

#endif
