#ifndef PLATFORM_RUNLOOPMEMBER_H
#define PLATFORM_RUNLOOPMEMBER_H

/* What sources and timers have in common: membership in a loop, under a mode. All of this is for
   the thread of the loop. */

#include "objects/Object.h"

#include <CoreFoundation/CFRunLoop.h>

#include <cstdint>

namespace cf {

using RunLoop = ::__CFRunLoop;

struct Member : Object {
    using Object::Object;

    Member* next = nullptr;
    Member* previous = nullptr;
    RunLoop* loop = nullptr; // borrowed; the loop removes its members before it is destroyed
    std::uint64_t lastIteration = 0; // the last one with an addition or a callout of the member;
                                     // the next callout is in a later iteration
    bool inCommonModes = false;      // added in the common modes, not in the default mode alone
    bool callingOut = false;
    bool valid = true;
};

/* The sources or the timers of a loop, in the order in which they were added, each retained. */
class MemberList {
public:
    // The head of the list, which Member::next continues; nullptr: the list is empty.
    Member* First() const noexcept {
        return first_;
    }
    // True without members.
    bool Empty() const noexcept {
        return first_ == nullptr;
    }

    // Appends and retains the member. False, and nothing changes, if it is invalid or in a loop, or
    // if the mode is unknown.
    bool Add(RunLoop& loop, Member& member, CFStringRef mode) noexcept;
    // Removes the member, which is in this list, and releases it.
    void Remove(Member& member) noexcept;

private:
    Member* first_ = nullptr;
    Member* last_ = nullptr;
};

/* True if removing the member from that loop and mode has an effect. */
bool IsInMode(const Member& member, const RunLoop& loop, CFStringRef mode) noexcept;

} // namespace cf

#endif
