#ifndef TESTS_CALLOUTS_H
#define TESTS_CALLOUTS_H

/* Timers and sources whose callouts are functions of the test. */

#include "loop/RunLoop.h"
#include "support/NotCopyable.h"

#include <functional>
#include <utility>

/* A timer in the calling thread's loop, invalidated by the destructor. */
class TestTimer : NotCopyable {
public:
    TestTimer(CFAbsoluteTime fireDate, CFTimeInterval interval, std::function<void()> callout,
              CFStringRef mode = kCFRunLoopDefaultMode)
        : callout_(std::move(callout)) {
        CFRunLoopTimerContext context = {0, this, nullptr, nullptr, nullptr};
        timer_ =
            CFRunLoopTimerCreate(kCFAllocatorDefault, fireDate, interval, 0, 0, Fire, &context);
        CFRunLoopAddTimer(CFRunLoopGetCurrent(), timer_, mode);
    }
    ~TestTimer() {
        Invalidate();
        CFRelease(timer_);
    }

    CFRunLoopTimerRef Get() const {
        return timer_;
    }
    void Invalidate() {
        CFRunLoopTimerInvalidate(timer_);
    }
    int Count() const {
        return count_;
    }

private:
    static void Fire(CFRunLoopTimerRef, void* info) {
        auto* self = static_cast<TestTimer*>(info);
        ++self->count_;
        self->callout_();
    }

    std::function<void()> callout_;
    CFRunLoopTimerRef timer_;
    int count_ = 0;
};

/* A source in the calling thread's loop: ready when signalled, or while a descriptor is readable.
 */
class TestSource : NotCopyable {
public:
    explicit TestSource(std::function<void()> callout, cf::RunLevel level = cf::RunLevel::kAny,
                        int descriptor = -1)
        : callout_(std::move(callout)),
          source_(descriptor < 0 ? cf::CreateSignalSource(level, Perform, this)
                                 : cf::CreateDescriptorSource(descriptor, level, Perform, this)) {
        Add();
    }
    ~TestSource() {
        Invalidate();
        CFRelease(source_);
    }

    CFRunLoopSourceRef Get() const {
        return source_;
    }
    void Add(CFStringRef mode = kCFRunLoopDefaultMode) {
        CFRunLoopAddSource(CFRunLoopGetCurrent(), source_, mode);
    }
    void Remove(CFStringRef mode = kCFRunLoopDefaultMode) {
        CFRunLoopRemoveSource(CFRunLoopGetCurrent(), source_, mode);
    }
    void Signal() {
        cf::SignalSource(source_);
    }
    void Invalidate() {
        CFRunLoopSourceInvalidate(source_);
    }
    int Count() const {
        return count_;
    }

private:
    static void Perform(void* info) {
        auto* self = static_cast<TestSource*>(info);
        ++self->count_;
        self->callout_();
    }

    std::function<void()> callout_;
    CFRunLoopSourceRef source_;
    int count_ = 0;
};

inline void StopCurrentRun() {
    CFRunLoopStop(CFRunLoopGetCurrent());
}

#endif
