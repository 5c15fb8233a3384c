/*
 * The run loops.
 *
 * A GLib main context waits: it polls the descriptors, sleeps until the next fire date and is woken
 * by other threads. The GLib callbacks only mark a source as ready. RunOnce() then fires the timers
 * and performs the sources, because the order, nesting and stopping of GLib's own dispatch differ
 * from those of CFRunLoop.h.
 *
 * Threads: a loop, its sources and its timers belong to one thread. CFRunLoopGetCurrent() creates
 * the loop on first use; the end of the thread destroys the loop. Other threads may do two things:
 * stop the innermost run (runMutex guards the chain of runs) and signal a source (the source's
 * wakeMutex guards its pointer to the loop's context). No lock is held during a callout.
 *
 * Memory: GLib ends the process when memory is short. GLib allocates when a loop is created or
 * sleeps for the first time and when a source with a descriptor is added, but not for a timer, a
 * socket or a signal.
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

// The longest sleep when the alarm has no descriptor: the wall clock is then read once a minute.
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

// The key under which each thread stores its loop; EndLoop() runs at the end of the thread. Not a
// thread_local object: registering its destructor ends the process when memory is short.
class LoopKey {
public:
    LoopKey() noexcept : isCreated_(pthread_key_create(&key_, EndLoop) == 0) {}
    LoopKey(const LoopKey&) = delete;
    LoopKey& operator=(const LoopKey&) = delete;
    // exit() does not call EndLoop() for the exiting thread, so the destructor does. The key is not
    // deleted, because other threads may still use it.
    ~LoopKey() {
        RunLoop* const loop = Get();
        if (loop == nullptr)
            return;
        Set(nullptr);
        EndLoop(loop);
    }

    // The calling thread's loop, or nullptr.
    RunLoop* Get() const noexcept {
        return isCreated_ ? static_cast<RunLoop*>(pthread_getspecific(key_)) : nullptr;
    }
    // False on a shortage of memory or keys.
    bool Set(RunLoop* loop) const noexcept {
        return isCreated_ && pthread_setspecific(key_, loop) == 0;
    }

private:
    pthread_key_t key_ = 0;
    const bool isCreated_;
};

// GLib ends the process if it gets no descriptor for a context. Opens more descriptors than GLib
// needs, because other threads may take some before GLib opens its own.
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

// nullptr on a shortage of memory or descriptors. Threads create their loops one after another;
// otherwise several could count on the same free descriptors.
RunLoop* CreateLoop() noexcept {
    static constinit std::mutex making;
    const std::lock_guard lock(making);
    return AreDescriptorsAvailable() ? new (std::nothrow) RunLoop : nullptr;
}

// The calling thread's loop, created on first use; nullptr if that fails.
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

// Adds a run to the loop's chain of runs for the lifetime of the scope.
class RunScope {
public:
    explicit RunScope(RunLoop& loop) noexcept : loop_(loop), run_{loop.innermost} {
        SetInnermost(&run_);
    }
    RunScope(const RunScope&) = delete;
    RunScope& operator=(const RunScope&) = delete;
    ~RunScope() {
        SetInnermost(run_.outer);
    }

    const Run& Get() const noexcept {
        return run_;
    }

private:
    void SetInnermost(Run* run) noexcept {
        const std::lock_guard lock(loop_.runMutex);
        loop_.innermost = run;
    }

    RunLoop& loop_;
    Run run_;
};

// CFRunLoopRun() returns once the run is stopped or the loop has no source and no timer.
bool ShouldContinue(const RunLoop& loop, const Run& run) noexcept {
    return !run.stopped && !(loop.sources.Empty() && loop.timers.Empty());
}

// The first source that is ready and has not performed in this iteration, or nullptr.
Source* FirstReady(const RunLoop& loop, std::uint64_t iteration, bool nested) noexcept {
    for (Member* member = loop.sources.First(); member != nullptr; member = member->next) {
        auto* source = static_cast<Source*>(member);
        if (source->lastIteration < iteration && IsReady(*source, nested))
            return source;
    }
    return nullptr;
}

// The first source whose input had arrived when the timer became due, or nullptr.
Source* FirstReadyBefore(const RunLoop& loop, const Timer& timer, const ClockTimes& now,
                         bool nested) noexcept {
    for (Member* member = loop.sources.First(); member != nullptr; member = member->next) {
        auto* source = static_cast<Source*>(member);
        if (HasInputBy(*source, nested, DueTime(timer, now)))
            return source;
    }
    return nullptr;
}

// Calls function(member), which may release the last reference but this one.
template<auto function, typename T>
void CallOut(T& member, std::uint64_t iteration) noexcept {
    const auto alive = Owned<T>::Share(&member);
    member.lastIteration = iteration;
    member.callingOut = true;
    function(member);
    member.callingOut = false;
}

// Fires the timers that are due. Before each of them, performs the sources whose input had arrived
// when that timer became due: a loop that is late, because the process was stopped or a callout
// took long, must not let a time-out overtake a reply that arrived in time. True if there was a
// callout.
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

// Performs each ready source once. True if there was a callout.
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

// One iteration: fires the timers that are due at its start, then performs the sources. Each gets
// at most one callout, so none can starve the others. Input that precedes a due timer may take more
// callouts, but only for input that had arrived by the timer's date. True if there was a callout.
bool RunOnce(RunLoop& loop, const Run& run) noexcept {
    const std::uint64_t iteration = ++loop.iteration;
    loop.queue.RequeueDeferred();
    const bool fired = FireTimers(loop, run, iteration, ReadClocks());
    const bool performed = PerformSources(loop, run, iteration);
    return fired || performed;
}

// Sets the alarm for the wall clock. The result is the monotonic time until which the loop may
// sleep. Deferred timers need no date here: an iteration that defers a timer has a callout, so the
// loop does not sleep after it.
Nanoseconds PrepareSleep(RunLoop& loop) noexcept {
    const Nanoseconds monotonic = loop.queue.FirstMonotonicDate();
    if (loop.alarm.Set(loop.context.Get(), loop.queue.FirstWallClockDate()))
        return monotonic;
    return std::min(monotonic, MonotonicNow() + kMinute);
}

// Moves the dates of the timers after a step of the wall clock.
void RealignTimers(RunLoop& loop) noexcept {
    const ClockTimes now = ReadClocks();
    for (Member* member = loop.timers.First(); member != nullptr; member = member->next)
        Realign(static_cast<Timer&>(*member), now);
    loop.alarm.ClearStepped();
}

// Marks the sources that became ready. If `idle`, first sleeps until a source is ready or a timer
// is due.
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

// Any thread. Does nothing if the loop has no run.
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
