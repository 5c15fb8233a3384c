#include "loop/RunLoopMember.h"

#include "loop/RunLoopState.h"

const CFStringRef kCFRunLoopDefaultMode = CFSTR("kCFRunLoopDefaultMode");
const CFStringRef kCFRunLoopCommonModes = CFSTR("kCFRunLoopCommonModes");

namespace cf {

bool MemberList::Add(RunLoop& loop, Member& member, CFStringRef mode) noexcept {
    if (!member.valid || member.loop != nullptr ||
        (mode != kCFRunLoopDefaultMode && mode != kCFRunLoopCommonModes))
        return false;
    Retain(&member);
    member.loop = &loop;
    member.inCommonModes = mode == kCFRunLoopCommonModes;
    member.lastIteration = loop.iteration;
    member.previous = last_;
    (last_ != nullptr ? last_->next : first_) = &member;
    last_ = &member;
    return true;
}

void MemberList::Remove(Member& member) noexcept {
    (member.previous != nullptr ? member.previous->next : first_) = member.next;
    (member.next != nullptr ? member.next->previous : last_) = member.previous;
    member.next = nullptr;
    member.loop = nullptr;
    Release(&member);
}

// The default mode is one of the common modes: a member of the common modes is in both.
bool IsInMode(const Member& member, const RunLoop& loop, CFStringRef mode) noexcept {
    return member.loop == &loop && (mode == kCFRunLoopDefaultMode ||
                                    (mode == kCFRunLoopCommonModes && member.inCommonModes));
}

} // namespace cf
