#include "loop/RunLoopTimer.h"

#include "loop/RunLoopState.h"

#include <algorithm>
#include <new>

namespace cf {
namespace {

// A timer that waits less than this measures a delay on the monotonic clock, which steps of the
// wall clock do not change. A timer that waits longer keeps a date of the wall clock.
constexpr Nanoseconds kLongestDelay = 3600 * kSecond;

void DestroyRunLoopTimer(Object* object) noexcept {
    delete static_cast<Timer*>(object);
}

void Invalidate(Timer& timer) noexcept {
    if (!timer.valid)
        return;
    timer.valid = false;
    const auto alive = Owned<Timer>::Share(&timer);
    if (timer.loop != nullptr)
        RemoveFromLoop(timer);
    timer.info.Release();
}

// Allocates the node with which the timer is inserted into sets.
bool CreateNode(Timer* timer) noexcept {
    try {
        TimerSet set;
        timer->node = set.extract(set.insert(timer).first);
        return true;
    } catch (const std::bad_alloc&) {
        return false;
    }
}

Nanoseconds Read(const ClockTimes& now, const Timer& timer) noexcept {
    return timer.onWallClock ? now.wallClock : now.monotonic;
}

} // namespace

ClockTimes ReadClocks() noexcept {
    // WallClockTick(), not WallClockNow(): a timer must not fire while time() is before its date.
    return {MonotonicNow(), WallClockTick()};
}

Nanoseconds Lateness(const Timer& timer, const ClockTimes& now) noexcept {
    return Read(now, timer) - timer.date;
}

Nanoseconds DueTime(const Timer& timer, const ClockTimes& now) noexcept {
    return now.monotonic - Lateness(timer, now);
}

// Finds the next date by division, because any number of dates may have passed.
void Fire(Timer& timer) noexcept {
    RemoveFromQueue(timer);
    timer.info.Use([&timer](void* info) { timer.callout(&timer, info); });
    if (timer.interval == 0) {
        Invalidate(timer);
        return;
    }
    const Nanoseconds late = std::max<Nanoseconds>(Lateness(timer, ReadClocks()), 0);
    timer.date += (late / timer.interval + 1) * timer.interval;
    if (timer.loop != nullptr)
        timer.loop->queue.Insert(timer);
}

void Realign(Timer& timer, const ClockTimes& now) noexcept {
    if (!timer.onWallClock || timer.interval == 0)
        return;
    const Nanoseconds wait = -Lateness(timer, now);
    TimerSet* const set = timer.set;
    RemoveFromQueue(timer);
    timer.date -= std::max<Nanoseconds>(wait / timer.interval - 1, 0) * timer.interval;
    if (set != nullptr)
        InsertInto(*set, timer);
}

void RemoveFromLoop(Timer& timer) noexcept {
    timer.deadline.Clear();
    RemoveFromQueue(timer);
    timer.loop->timers.Remove(timer);
}

} // namespace cf

constinit const cf::Class __CFRunLoopTimer::kClass = {cf::DestroyRunLoopTimer, nullptr, nullptr};

CFRunLoopTimerRef CFRunLoopTimerCreate(CFAllocatorRef, CFAbsoluteTime fireDate,
                                       CFTimeInterval interval, CFOptionFlags, CFIndex,
                                       CFRunLoopTimerCallBack callout,
                                       CFRunLoopTimerContext* context) {
    using namespace cf;
    const Nanoseconds wait = std::max<Nanoseconds>(ToNanoseconds(fireDate) - WallClockNow(), 0);
    const Nanoseconds period = std::max<Nanoseconds>(ToNanoseconds(interval), 0);
    const bool onWallClock = (period > 0 ? period : wait) >= kLongestDelay;
    const Nanoseconds date = wait + (onWallClock ? WallClockNow() : MonotonicNow());
    auto timer =
        Owned<Timer>::Adopt(new (std::nothrow) Timer(date, period, onWallClock, callout, context));
    if (!timer || !CreateNode(timer.Get()))
        return nullptr;
    return timer.Detach();
}

void CFRunLoopAddTimer(CFRunLoopRef runLoop, CFRunLoopTimerRef timer, CFStringRef mode) {
    auto* loop = cf::As<cf::RunLoop>(runLoop);
    auto* member = cf::As<cf::Timer>(timer);
    if (loop == nullptr || member == nullptr || !loop->timers.Add(*loop, *member, mode))
        return;
    member->order = ++loop->timersAdded;
    if (!member->callingOut) // else Fire() inserts the timer after its callout
        loop->queue.Insert(*member);
    if (member->interval == 0 && !member->onWallClock)
        member->deadline.Set(member->date);
}

void CFRunLoopRemoveTimer(CFRunLoopRef runLoop, CFRunLoopTimerRef timer, CFStringRef mode) {
    cf::RemoveMember<cf::Timer>(runLoop, timer, mode);
}

void CFRunLoopTimerInvalidate(CFRunLoopTimerRef timer) {
    if (auto* target = cf::As<cf::Timer>(timer))
        cf::Invalidate(*target);
}
