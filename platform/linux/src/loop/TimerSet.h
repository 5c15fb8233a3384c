#ifndef PLATFORM_TIMERSET_H
#define PLATFORM_TIMERSET_H

#include <CoreFoundation/CFRunLoop.h>

#include <set>

namespace cf {

using Timer = ::__CFRunLoopTimer;

/* Orders timers by date, those of equal date in the order in which the loop received them. */
struct FiresBefore {
    // True if `first` fires before `second`.
    bool operator()(const Timer* first, const Timer* second) const noexcept;
};

/* A timer owns the node with which it is inserted, so an insertion allocates nothing. The date of a
   timer must not change while the timer is in a set. */
using TimerSet = std::set<Timer*, FiresBefore>;

} // namespace cf

#endif
