#ifndef PLATFORM_RUNLOOPMEMBER_H
#define PLATFORM_RUNLOOPMEMBER_H

/* What sources and timers have in common: being in a loop, under a mode. */

#include "objects/Object.h"

#include <CoreFoundation/CFRunLoop.h>

#include <cstdint>

namespace cf {

using RunLoop = ::__CFRunLoop;

struct Member : Object {
    using Object::Object;

    Member* next = nullptr;
    Member* previous = nullptr;
    RunLoop* loop = nullptr;         // the one that it is in, which lets go of it before it ends
    std::uint64_t lastIteration = 0; // the last one that called the member out, or was too early
    bool inCommonModes = false;      // rather than in the default mode alone
    bool callingOut = false;
    bool valid = true;
};

/* The members of one kind in a loop, in the order of their coming, each retained. */
class MemberList {
public:
    Member* First() const noexcept {
        return first_;
    }
    bool Empty() const noexcept {
        return first_ == nullptr;
    }

    // False when the member stays out: it is invalid, in a loop already, or the mode is unknown.
    bool Add(RunLoop& loop, Member& member, CFStringRef mode) noexcept;
    void Remove(Member& member) noexcept;

private:
    Member* first_ = nullptr;
    Member* last_ = nullptr;
};

/* Whether removing the member from that loop and mode takes it out. */
bool IsInMode(const Member& member, const RunLoop& loop, CFStringRef mode) noexcept;

} // namespace cf

#endif
