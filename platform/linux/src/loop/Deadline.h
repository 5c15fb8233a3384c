#ifndef PLATFORM_DEADLINE_H
#define PLATFORM_DEADLINE_H

#include "loop/Arrivals.h"

namespace cf {

/* A date that is watched together with the descriptors, so that input that came before it is known
   to have come before it. Takes a descriptor while it is set. Any thread, one at a time. */
class Deadline {
public:
    Deadline() noexcept;
    Deadline(const Deadline&) = delete;
    Deadline& operator=(const Deadline&) = delete;
    ~Deadline();

    // Once, for a date of the monotonic clock. Without a descriptor to spare, or with nothing
    // watched by the process yet, it does nothing.
    void Set(Nanoseconds date) noexcept;
    void Clear() noexcept;

private:
    WatchedDescriptor watched_;
    int timer_ = -1;
};

} // namespace cf

#endif
