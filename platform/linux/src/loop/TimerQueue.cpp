#include "loop/TimerQueue.h"

#include <algorithm>

namespace cf {
namespace {

Timer* DueLonger(Timer* first, Timer* second, const Moment& now) noexcept {
    if (first == nullptr || second == nullptr)
        return first != nullptr ? first : second;
    const Nanoseconds late = Lateness(*first, now);
    const Nanoseconds otherLate = Lateness(*second, now);
    const bool comesFirst = late != otherLate ? late > otherLate : first->order < second->order;
    return comesFirst ? first : second;
}

Nanoseconds FirstDate(const TimerHeap& heap) noexcept {
    return heap.First() != nullptr ? std::min(heap.First()->date, kNever) : kNever;
}

} // namespace

void TimerQueue::Insert(Timer& timer) noexcept {
    (timer.onWallClock ? wallClock_ : monotonic_).Insert(timer);
}

Timer* TimerQueue::FirstDue(std::uint64_t turn, const Moment& now) noexcept {
    for (;;) {
        Timer* const first = DueLonger(monotonic_.First(), wallClock_.First(), now);
        if (first == nullptr || Lateness(*first, now) < 0)
            return nullptr;
        if (first->lastTurn < turn)
            return first;
        RemoveFromQueue(*first);
        deferred_.Insert(*first);
    }
}

void TimerQueue::AdmitDeferred() noexcept {
    while (Timer* const timer = deferred_.First()) {
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

void RemoveFromQueue(Timer& timer) noexcept {
    if (timer.links.heap != nullptr)
        timer.links.heap->Remove(timer);
}

} // namespace cf
