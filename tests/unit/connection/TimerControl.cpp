#include "TimerControl.h"

#include "Seams.h"

#include <utility>

static constexpr CFAbsoluteTime kFarFuture = 1e10;
static constexpr CFTimeInterval kEachIteration = 0.001;

static thread_local RecordedTimer t_last;
static thread_local int t_count = 0;
static thread_local CFAbsoluteTime t_now = kNow;
static thread_local std::function<bool()> t_condition;

extern "C" {
CFAbsoluteTime __wrap_CFAbsoluteTimeGetCurrent(void);
}

static void FireIfTrue(CFRunLoopTimerRef timer, void* info) {
    if (t_condition())
        t_last.callout(timer, info);
}

CFAbsoluteTime __wrap_CFAbsoluteTimeGetCurrent(void) {
    return t_now;
}

extern "C" CFRunLoopTimerRef
__wrap_CFRunLoopTimerCreate(CFAllocatorRef allocator, CFAbsoluteTime fireDate,
                            CFTimeInterval interval, CFOptionFlags flags, CFIndex order,
                            CFRunLoopTimerCallBack callout, CFRunLoopTimerContext* context) {
    if (Failing::Is("CFRunLoopTimerCreate"))
        return nullptr;
    t_last = {nullptr, fireDate, interval, flags, order, callout, *context};
    ++t_count;
    if (t_condition)
        return __real_CFRunLoopTimerCreate(allocator, 0, kEachIteration, 0, 0, FireIfTrue, context);
    return __real_CFRunLoopTimerCreate(allocator, kFarFuture, 0, 0, 0, callout, context);
}

TimersFireWhile::TimersFireWhile(std::function<bool()> condition) {
    t_condition = std::move(condition);
}

TimersFireWhile::~TimersFireWhile() {
    t_condition = nullptr;
}

void SetClock(CFAbsoluteTime now) {
    t_now = now;
}

const RecordedTimer& LastTimer() {
    return t_last;
}

int CountTimers() {
    return t_count;
}

Tick::Tick(std::function<void()> function) : function_(std::move(function)) {
    const auto callout = [](CFRunLoopTimerRef, void* info) {
        static_cast<Tick*>(info)->function_();
    };
    CFRunLoopTimerContext context = {0, this, nullptr, nullptr, nullptr};
    timer_ = __real_CFRunLoopTimerCreate(nullptr, 0, kEachIteration, 0, 0, callout, &context);
    CFRunLoopAddTimer(CFRunLoopGetCurrent(), timer_, kCFRunLoopDefaultMode);
}

Tick::~Tick() {
    CFRunLoopTimerInvalidate(timer_);
    CFRelease(timer_);
}

void RunUntil(const std::function<bool()>& isDone) {
    const Tick check([&] {
        if (isDone())
            CFRunLoopStop(CFRunLoopGetCurrent());
    });
    CFRunLoopRun();
}
