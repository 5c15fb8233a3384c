#ifndef TESTS_UNIT_SUPPORT_RECORDEDTIMER_H
#define TESTS_UNIT_SUPPORT_RECORDEDTIMER_H

/* One call of CFRunLoopTimerCreate, and the real function for sources that wrap it. */

#include <CoreFoundation/CoreFoundation.h>

#include <ctime>

struct RecordedTimer {
    CFRunLoopTimerRef timer; // the timer created
    CFAbsoluteTime fireDate;
    CFTimeInterval interval;
    CFOptionFlags flags;
    CFIndex order;
    CFRunLoopTimerCallBack callout;
    CFRunLoopTimerContext context;

    // The fire date in seconds since 1970.
    time_t FireTime() const {
        return static_cast<time_t>(fireDate + kCFAbsoluteTimeIntervalSince1970);
    }
};

extern "C" {
CFRunLoopTimerRef __real_CFRunLoopTimerCreate(CFAllocatorRef allocator, CFAbsoluteTime fireDate,
                                              CFTimeInterval interval, CFOptionFlags flags,
                                              CFIndex order, CFRunLoopTimerCallBack callout,
                                              CFRunLoopTimerContext* context);
}

#endif
