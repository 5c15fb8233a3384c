/*
 * The run loops.
 *
 * GLib's main context does the waiting: it polls the descriptors, sleeps until the next deadline
 * and is woken by other threads. What it dispatches only notes that something is ready. The
 * iteration below then does the calling out, since GLib orders, nests and stops its dispatching
 * otherwise.
 *
 * Threads: a loop and all that is in it belong to one thread, which makes the loop with its first
 * look at it and frees it at its end. Other threads may do two things: stop the innermost run
 * (runMutex guards the chain of runs) and signal a source (Source::wakeMutex guards the way from
 * the source to its loop). No lock is held while anything is called out.
 *
 * GLib ends the process when it is out of memory. It allocates while a loop is made or first
 * sleeps and when a descriptor joins, but not for a timer, a socket or a signal.
 */

#include "loop/RunLoopSource.h"
#include "loop/RunLoopState.h"
#include "loop/RunLoopTimer.h"

#include <pthread.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <mutex>
#include <new>

namespace cf {
namespace {

// How often the wall clock is looked at when no alarm is to be had.
constexpr Nanoseconds kMinute = 60 * kSecond;

void DestroyRunLoop(Object* object) noexcept {
    delete static_cast<RunLoop*>(object);
}

void EndLoop(void* ended) noexcept {
    auto* loop = static_cast<RunLoop*>(ended);
    while (!loop->sources.Empty())
        RemoveFromLoop(static_cast<Source&>(*loop->sources.First()));
    while (!loop->timers.Empty())
        RemoveFromLoop(static_cast<Timer&>(*loop->timers.First()));
    Release(loop);
}

// The key under which each thread keeps its loop, freed with the thread. Not a thread_local object
// with a destructor: registering one ends the process when memory is out.
class LoopKey {
public:
    LoopKey() noexcept : isCreated_(pthread_key_create(&key_, EndLoop) == 0) {}
    LoopKey(const LoopKey&) = delete;
    LoopKey& operator=(const LoopKey&) = delete;
    // At exit, which calls no destructor of the exiting thread's values. Other threads may still
    // use the key.
    ~LoopKey() {
        RunLoop* const loop = Get();
        if (loop == nullptr)
            return;
        Set(nullptr);
        EndLoop(loop);
    }

    RunLoop* Get() const noexcept {
        return isCreated_ ? static_cast<RunLoop*>(pthread_getspecific(key_)) : nullptr;
    }
    bool Set(RunLoop* loop) const noexcept {
        return isCreated_ && pthread_setspecific(key_, loop) == 0;
    }

private:
    pthread_key_t key_ = 0;
    const bool isCreated_;
};

// GLib needs a descriptor for a context and ends the process without. Of those that there are,
// somebody may take one or the other before GLib takes its own.
bool AreDescriptorsAvailable() noexcept {
    std::array<int, 4> descriptors;
    for (int& descriptor : descriptors)
        descriptor = eventfd(0, EFD_CLOEXEC);
    const bool found = std::ranges::all_of(descriptors, [](int made) { return made >= 0; });
    for (const int descriptor : descriptors)
        if (descriptor >= 0)
            close(descriptor);
    return found;
}

// Threads that begin at the same time do so one after another, lest each count on the same ones.
RunLoop* CreateLoop() noexcept {
    static constinit std::mutex making;
    const std::lock_guard lock(making);
    return AreDescriptorsAvailable() ? new (std::nothrow) RunLoop : nullptr;
}

RunLoop* CurrentLoop() noexcept {
    static const LoopKey key;
    if (RunLoop* const known = key.Get())
        return known;
    RunLoop* const made = CreateLoop();
    if (made == nullptr || key.Set(made))
        return made;
    Release(made);
    return nullptr;
}

// Puts a run into the loop's chain of runs while it lasts.
class RunScope {
public:
    explicit RunScope(RunLoop& loop) noexcept : loop_(loop), run_{loop.innermost} {
        Enter(&run_);
    }
    RunScope(const RunScope&) = delete;
    RunScope& operator=(const RunScope&) = delete;
    ~RunScope() {
        Enter(run_.outer);
    }

    const Run& Get() const noexcept {
        return run_;
    }

private:
    void Enter(Run* run) noexcept {
        const std::lock_guard lock(loop_.runMutex);
        loop_.innermost = run;
    }

    RunLoop& loop_;
    Run run_;
};

bool ShouldContinue(const RunLoop& loop, const Run& run) noexcept {
    return !run.stopped && !(loop.sources.Empty() && loop.timers.Empty());
}

Source* FirstReady(const RunLoop& loop, std::uint64_t iteration, bool nested) noexcept {
    for (Member* member = loop.sources.First(); member != nullptr; member = member->next) {
        auto* source = static_cast<Source*>(member);
        if (source->lastIteration < iteration && IsReady(*source, nested))
            return source;
    }
    return nullptr;
}

// A source with input that had come when the timer became due.
Source* FirstReadyBefore(const RunLoop& loop, const Timer& timer, const ClockTimes& now,
                         bool nested) noexcept {
    for (Member* member = loop.sources.First(); member != nullptr; member = member->next) {
        auto* source = static_cast<Source*>(member);
        if (HasInputBy(*source, nested, DueTime(timer, now)))
            return source;
    }
    return nullptr;
}

template<auto function, typename T>
void CallOut(T& member, std::uint64_t iteration) noexcept {
    const auto alive = Owned<T>::Share(&member);
    member.lastIteration = iteration;
    member.callingOut = true;
    function(member);
    member.callingOut = false;
}

// Fires the timers that are due, each after the sources' input that had come by then: a loop that
// comes late, because the process stood still or a callout took long, still takes a reply that came
// in time. True when anything was called out.
bool FireTimers(RunLoop& loop, const Run& run, std::uint64_t iteration,
                const ClockTimes& now) noexcept {
    const bool nested = run.outer != nullptr;
    bool calledOut = false;
    Timer* timer = nullptr;
    while (!run.stopped && (timer = loop.queue.FirstDue(iteration, now)) != nullptr) {
        if (!calledOut)
            HandleArrivals();
        if (Source* source = FirstReadyBefore(loop, *timer, now, nested))
            CallOut<Perform>(*source, iteration);
        else
            CallOut<Fire>(*timer, iteration);
        calledOut = true;
    }
    return calledOut;
}

bool PerformSources(RunLoop& loop, const Run& run, std::uint64_t iteration) noexcept {
    const bool nested = run.outer != nullptr;
    bool calledOut = false;
    Source* source = nullptr;
    while (!run.stopped && (source = FirstReady(loop, iteration, nested)) != nullptr) {
        CallOut<Perform>(*source, iteration);
        calledOut = true;
    }
    return calledOut;
}

// One iteration: the timers that are due as it begins, then the sources. Each gets one callout at
// most, so that none can keep the others waiting; input before a due timer may take more, and is as
// much as had come. True when anything was called out.
bool RunOnce(RunLoop& loop, const Run& run) noexcept {
    const std::uint64_t iteration = ++loop.iteration;
    loop.queue.RequeueDeferred();
    const bool fired = FireTimers(loop, run, iteration, ReadClocks());
    const bool performed = PerformSources(loop, run, iteration);
    return fired || performed;
}

// Until when the loop may sleep, by the monotonic clock. For a date the alarm will wake it.
// A timer that is put aside is not asked about: an iteration that put one aside has called out.
Nanoseconds PrepareSleep(RunLoop& loop) noexcept {
    const Nanoseconds monotonic = loop.queue.FirstMonotonicDate();
    if (loop.alarm.Set(loop.context.Get(), loop.queue.FirstWallClockDate()))
        return monotonic;
    return std::min(monotonic, MonotonicNow() + kMinute);
}

void RealignTimers(RunLoop& loop) noexcept {
    const ClockTimes now = ReadClocks();
    for (Member* member = loop.timers.First(); member != nullptr; member = member->next)
        Realign(static_cast<Timer&>(*member), now);
    loop.alarm.ClearStepped();
}

// Learns what became ready; with nothing to do, sleeps until something does or a timer is due.
void Wait(RunLoop& loop, bool idle) noexcept {
    const Nanoseconds until = idle ? PrepareSleep(loop) : kNever;
    if (idle && !loop.alarm.WasStepped())
        loop.context.Sleep(until);
    else
        loop.context.Poll();
    if (loop.alarm.WasStepped())
        RealignTimers(loop);
}

void RunUntilStopped(RunLoop& loop) noexcept {
    const RunScope scope(loop);
    while (ShouldContinue(loop, scope.Get())) {
        const bool idle = !RunOnce(loop, scope.Get());
        if (ShouldContinue(loop, scope.Get()))
            Wait(loop, idle);
    }
}

void StopInnermost(RunLoop& loop) noexcept {
    const std::lock_guard lock(loop.runMutex);
    if (loop.innermost == nullptr)
        return;
    loop.innermost->stopped = true;
    loop.context.Wake();
}

} // namespace

} // namespace cf

constinit const cf::Class __CFRunLoop::kClass = {cf::DestroyRunLoop, nullptr, nullptr};

CFRunLoopRef CFRunLoopGetCurrent(void) {
    return cf::CurrentLoop();
}

void CFRunLoopRun(void) {
    if (cf::RunLoop* loop = cf::CurrentLoop())
        cf::RunUntilStopped(*loop);
}

void CFRunLoopStop(CFRunLoopRef runLoop) {
    if (auto* loop = cf::As<cf::RunLoop>(runLoop))
        cf::StopInnermost(*loop);
}
