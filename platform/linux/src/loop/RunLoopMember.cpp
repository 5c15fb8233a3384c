#include "loop/RunLoopMember.h"

#include "loop/RunLoopState.h"

const CFStringRef kCFRunLoopDefaultMode = CFSTR("kCFRunLoopDefaultMode");
const CFStringRef kCFRunLoopCommonModes = CFSTR("kCFRunLoopCommonModes");

namespace cf {

bool MemberList::Join(RunLoop& loop, Member& member, CFStringRef mode) noexcept {
    if (!member.valid || member.loop != nullptr ||
        (mode != kCFRunLoopDefaultMode && mode != kCFRunLoopCommonModes))
        return false;
    Retain(&member);
    member.loop = &loop;
    member.mode = mode;
    member.lastTurn = loop.turn;
    Member** end = &first_;
    while (*end != nullptr)
        end = &(*end)->next;
    *end = &member;
    return true;
}

void MemberList::Leave(Member& member) noexcept {
    Member** link = &first_;
    while (*link != &member)
        link = &(*link)->next;
    *link = member.next;
    member.next = nullptr;
    member.loop = nullptr;
    Release(&member);
}

// The default mode is one of the common ones: what is in all of them leaves by either name.
bool IsRemovedBy(const Member& member, const RunLoop& loop, CFStringRef mode) noexcept {
    return member.loop == &loop &&
           (mode == kCFRunLoopDefaultMode ||
            (mode == kCFRunLoopCommonModes && member.mode == kCFRunLoopCommonModes));
}

} // namespace cf
