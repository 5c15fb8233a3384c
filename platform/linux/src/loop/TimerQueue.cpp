#include "loop/TimerQueue.h"

#include <algorithm>
#include <utility>

namespace cf {
namespace {

// The timer that has been due longer, of equally late ones the one added first. Either may be null.
Timer* MoreOverdue(Timer* first, Timer* second, const ClockTimes& now) noexcept {
    if (first == nullptr || second == nullptr)
        return first != nullptr ? first : second;
    const Nanoseconds late = Lateness(*first, now);
    const Nanoseconds otherLate = Lateness(*second, now);
    const bool comesFirst = late != otherLate ? late > otherLate : first->order < second->order;
    return comesFirst ? first : second;
}

Timer* First(const TimerSet& set) noexcept {
    return set.empty() ? nullptr : *set.begin();
}

Nanoseconds FirstDate(const TimerSet& set) noexcept {
    return set.empty() ? kNever : std::min(First(set)->date, kNever);
}

} // namespace

bool FiresBefore::operator()(const Timer* first, const Timer* second) const noexcept {
    return first->date != second->date ? first->date < second->date : first->order < second->order;
}

void TimerQueue::Insert(Timer& timer) noexcept {
    InsertInto(timer.onWallClock ? wallClock_ : monotonic_, timer);
}

Timer* TimerQueue::FirstDue(std::uint64_t iteration, const ClockTimes& now) noexcept {
    for (;;) {
        Timer* const first = MoreOverdue(First(monotonic_), First(wallClock_), now);
        if (first == nullptr || Lateness(*first, now) < 0)
            return nullptr;
        if (first->lastIteration < iteration)
            return first;
        RemoveFromQueue(*first);
        InsertInto(deferred_, *first);
    }
}

void TimerQueue::RequeueDeferred() noexcept {
    while (Timer* const timer = First(deferred_)) {
        RemoveFromQueue(*timer);
        Insert(*timer);
    }
}

Nanoseconds TimerQueue::FirstMonotonicDate() const noexcept {
    return FirstDate(monotonic_);
}

Nanoseconds TimerQueue::FirstWallClockDate() const noexcept {
    return FirstDate(wallClock_);
}

void InsertInto(TimerSet& set, Timer& timer) noexcept {
    set.insert(std::move(timer.node));
    timer.set = &set;
}

void RemoveFromQueue(Timer& timer) noexcept {
    if (timer.set != nullptr)
        timer.node = std::exchange(timer.set, nullptr)->extract(&timer);
}

} // namespace cf
