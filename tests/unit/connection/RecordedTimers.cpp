#include "RecordedTimers.h"

#include "Seams.h"

#include <utility>

static constexpr CFAbsoluteTime kFarFuture = 1e10;
static constexpr CFTimeInterval kEachTurn = 0.001;

static thread_local AskedTimer t_asked;
static thread_local int t_count = 0;
static thread_local CFAbsoluteTime t_now = kNow;
static thread_local std::function<bool()> t_isTime;

extern "C" {
CFAbsoluteTime __wrap_CFAbsoluteTimeGetCurrent(void);
CFRunLoopTimerRef __real_CFRunLoopTimerCreate(CFAllocatorRef, CFAbsoluteTime, CFTimeInterval,
                                              CFOptionFlags, CFIndex, CFRunLoopTimerCallBack,
                                              CFRunLoopTimerContext*);
CFRunLoopTimerRef __wrap_CFRunLoopTimerCreate(CFAllocatorRef, CFAbsoluteTime, CFTimeInterval,
                                              CFOptionFlags, CFIndex, CFRunLoopTimerCallBack,
                                              CFRunLoopTimerContext*);
}

static void FireWhenItIsTime(CFRunLoopTimerRef timer, void* info) {
    if (t_isTime())
        t_asked.callout(timer, info);
}

CFAbsoluteTime __wrap_CFAbsoluteTimeGetCurrent(void) {
    return t_now;
}

CFRunLoopTimerRef __wrap_CFRunLoopTimerCreate(CFAllocatorRef allocator, CFAbsoluteTime fireDate,
                                              CFTimeInterval interval, CFOptionFlags flags,
                                              CFIndex order, CFRunLoopTimerCallBack callout,
                                              CFRunLoopTimerContext* context) {
    if (Failing::Is("CFRunLoopTimerCreate"))
        return nullptr;
    t_asked = {fireDate, interval, flags, order, callout};
    ++t_count;
    if (t_isTime)
        return __real_CFRunLoopTimerCreate(allocator, 0, kEachTurn, 0, 0, FireWhenItIsTime,
                                           context);
    return __real_CFRunLoopTimerCreate(allocator, kFarFuture, 0, 0, 0, callout, context);
}

TimersFireWhen::TimersFireWhen(std::function<bool()> condition) {
    t_isTime = std::move(condition);
}

TimersFireWhen::~TimersFireWhen() {
    t_isTime = nullptr;
}

void SetClock(CFAbsoluteTime now) {
    t_now = now;
}

AskedTimer LastAskedTimer() {
    return t_asked;
}

int CountAskedTimers() {
    return t_count;
}

Tick::Tick(std::function<void()> function) : function_(std::move(function)) {
    const auto callout = [](CFRunLoopTimerRef, void* info) {
        static_cast<Tick*>(info)->function_();
    };
    CFRunLoopTimerContext context = {0, this, nullptr, nullptr, nullptr};
    timer_ = __real_CFRunLoopTimerCreate(nullptr, 0, kEachTurn, 0, 0, callout, &context);
    CFRunLoopAddTimer(CFRunLoopGetCurrent(), timer_, kCFRunLoopDefaultMode);
}

Tick::~Tick() {
    CFRunLoopTimerInvalidate(timer_);
    CFRelease(timer_);
}

void RunUntil(const std::function<bool()>& isDone) {
    const Tick look([&] {
        if (isDone())
            CFRunLoopStop(CFRunLoopGetCurrent());
    });
    CFRunLoopRun();
}
