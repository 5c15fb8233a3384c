#ifndef COREFOUNDATION_CFRUNLOOP_H
#define COREFOUNDATION_CFRUNLOOP_H

/*
 * Run loops: one per thread, made when first asked for and freed with the thread. A run serves
 * the timers and sources of the default mode. Runs nest; a source or timer whose callout is still
 * running is not called out again by a nested run.
 *
 * One turn of a run: first the timers that were due when the turn began, by fire date, then the
 * sources that are ready. Once a stop is asked for, no further callout of that run follows.
 */

#include <CoreFoundation/CFBase.h>
#include <CoreFoundation/CFDate.h>
#include <CoreFoundation/CFString.h>

CF_EXTERN_C_BEGIN

typedef struct __CFRunLoop* CFRunLoopRef;
typedef struct __CFRunLoopSource* CFRunLoopSourceRef;
typedef struct __CFRunLoopTimer* CFRunLoopTimerRef;

/*
 * Sources and timers are added to one of these. Removing from the common modes what was added in
 * the default mode removes nothing.
 */
extern const CFStringRef kCFRunLoopDefaultMode;
extern const CFStringRef kCFRunLoopCommonModes;

/* The calling thread's own loop, borrowed. NULL when it cannot be made. */
CFRunLoopRef CFRunLoopGetCurrent(void);

/* Serves the calling thread's loop until it is stopped or its default mode holds nothing more. */
void CFRunLoopRun(void);

/* Ends the innermost run of that loop, from any thread. Ignored when it does not run. */
void CFRunLoopStop(CFRunLoopRef runLoop);

/* The loop retains what is added, once; adding what is there, or what is invalid, does nothing. */
void CFRunLoopAddSource(CFRunLoopRef runLoop, CFRunLoopSourceRef source, CFStringRef mode);
void CFRunLoopRemoveSource(CFRunLoopRef runLoop, CFRunLoopSourceRef source, CFStringRef mode);

/* Takes the source out of its loop for good; allowed inside its own callout. */
void CFRunLoopSourceInvalidate(CFRunLoopSourceRef source);

typedef void (*CFRunLoopTimerCallBack)(CFRunLoopTimerRef timer, void* info);

/* retain is called when the timer is made, release when it is invalidated; either may be NULL. */
typedef struct {
    CFIndex version;
    void* info;
    const void* (*retain)(const void* info);
    void (*release)(const void* info);
    CFStringRef (*copyDescription)(const void* info);
} CFRunLoopTimerContext;

/*
 * A timer that fires at fireDate and then, when interval is above 0, at every whole multiple of
 * it after that; a date that passed while the loop was busy or the machine slept is made up for
 * by one callout, never by several. A fire date in the past is due now and starts the grid there.
 * A one-shot timer is invalidated after its callout. Fire dates are wall clock: when the clock is
 * set, the timer keeps its date.
 */
CFRunLoopTimerRef CFRunLoopTimerCreate(CFAllocatorRef allocator, CFAbsoluteTime fireDate,
                                       CFTimeInterval interval, CFOptionFlags flags, CFIndex order,
                                       CFRunLoopTimerCallBack callout,
                                       CFRunLoopTimerContext* context);

void CFRunLoopAddTimer(CFRunLoopRef runLoop, CFRunLoopTimerRef timer, CFStringRef mode);
void CFRunLoopRemoveTimer(CFRunLoopRef runLoop, CFRunLoopTimerRef timer, CFStringRef mode);

/* Takes the timer out of its loop for good; allowed inside its own callout. */
void CFRunLoopTimerInvalidate(CFRunLoopTimerRef timer);

CF_EXTERN_C_END

#endif
