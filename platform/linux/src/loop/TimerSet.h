#ifndef PLATFORM_TIMERSET_H
#define PLATFORM_TIMERSET_H

#include <CoreFoundation/CFRunLoop.h>

#include <set>

namespace cf {

using Timer = ::__CFRunLoopTimer;

/* By date, those of equal date in the order in which they joined their loop. */
struct FiresBefore {
    bool operator()(const Timer* first, const Timer* second) const noexcept;
};

/* A timer brings the node with which it enters a set, so that entering one allocates nothing. While
   it is in a set its date does not change. */
using TimerSet = std::set<Timer*, FiresBefore>;

} // namespace cf

#endif
