#ifndef COREFOUNDATION_CFRUNLOOP_H
#define COREFOUNDATION_CFRUNLOOP_H

/*
 * Run loops. Each thread has one, which is created on first use. The end of the thread removes the
 * loop's sources and timers and releases the loop. A run fires the timers and performs the sources
 * of the default mode. Runs nest: a nested run does not call out a source or timer whose callout
 * has not yet returned.
 *
 * An iteration of a run first fires the timers that were due when it began, in the order of their
 * fire dates, and then performs the sources that are ready, in the order in which they were added;
 * each at most once. After a stop, no further callout of that run follows.
 *
 * Threads: only a loop's own thread may add, remove or invalidate its sources and timers. Any
 * thread may create a timer, call CFRunLoopStop while the loop exists, and call CFRetain and
 * CFRelease. A source or timer that is in no loop may be used by one thread at a time.
 */

#include <CoreFoundation/CFBase.h>
#include <CoreFoundation/CFDate.h>
#include <CoreFoundation/CFString.h>

CF_EXTERN_C_BEGIN

typedef struct __CFRunLoop* CFRunLoopRef;
typedef struct __CFRunLoopSource* CFRunLoopSourceRef;
typedef struct __CFRunLoopTimer* CFRunLoopTimerRef;

/*
 * The modes to which sources and timers are added; any other mode is ignored. A source or timer of
 * the default mode can only be removed by that name, one of the common modes by either name.
 */
extern const CFStringRef kCFRunLoopDefaultMode;
extern const CFStringRef kCFRunLoopCommonModes;

/* The calling thread's loop, borrowed. NULL if it cannot be created. */
CFRunLoopRef CFRunLoopGetCurrent(void);

/* Runs the calling thread's loop. Blocks until the run is stopped or the default mode has neither
   sources nor timers. */
void CFRunLoopRun(void);

/* Stops the innermost run of the loop. Does nothing if the loop does not run. Any thread; the
   caller must ensure that the loop exists: its thread has not ended, or the loop is retained. */
void CFRunLoopStop(CFRunLoopRef runLoop);

/* Add retains the source; it does nothing if the source is invalid or already in a loop. Remove
   releases it; it does nothing if the source is not in that loop and mode. */
void CFRunLoopAddSource(CFRunLoopRef runLoop, CFRunLoopSourceRef source, CFStringRef mode);
void CFRunLoopRemoveSource(CFRunLoopRef runLoop, CFRunLoopSourceRef source, CFStringRef mode);

/* Removes the source from its loop and makes it invalid for ever. Allowed in its own callout. */
void CFRunLoopSourceInvalidate(CFRunLoopSourceRef source);

/* The callout of a timer, on the thread of its loop. `info` is that of the context. */
typedef void (*CFRunLoopTimerCallBack)(CFRunLoopTimerRef timer, void* info);

/*
 * `retain` is called when the timer is created, and what it returns is the info of the callouts;
 * `release` is called when the timer is invalidated or freed. If `retain` is not NULL, each callout
 * is also between a call of both. Either may be NULL.
 */
typedef struct {
    CFIndex version;
    void* info;
    const void* (*retain)(const void* info);
    void (*release)(const void* info);
    CFStringRef (*copyDescription)(const void* info);
} CFRunLoopTimerContext;

/*
 * A timer that fires at fireDate and, if the interval is above 0, at fireDate plus every whole
 * multiple of the interval. However many dates passed while the loop was busy or the machine was
 * suspended, one callout follows. A fire date in the past fires at once and is the first date. A
 * one-shot timer is invalidated after its callout. No timer fires early. `order` is ignored. The
 * caller owns the timer.
 *
 * A timer that waits an hour or more (its interval or, for a one-shot timer, the time until its
 * fire date) follows the wall clock. If that clock is set, the timer fires when the new time
 * reaches the date. If it is set back so far that a repeating timer would wait for more than two
 * intervals, the timer uses an earlier date of its series. A timer that waits less uses the
 * monotonic clock, which cannot be set.
 */
CFRunLoopTimerRef CFRunLoopTimerCreate(CFAllocatorRef allocator, CFAbsoluteTime fireDate,
                                       CFTimeInterval interval, CFOptionFlags flags, CFIndex order,
                                       CFRunLoopTimerCallBack callout,
                                       CFRunLoopTimerContext* context);

/* Add retains the timer; it does nothing if the timer is invalid or already in a loop. Remove
   releases it; it does nothing if the timer is not in that loop and mode. */
void CFRunLoopAddTimer(CFRunLoopRef runLoop, CFRunLoopTimerRef timer, CFStringRef mode);
void CFRunLoopRemoveTimer(CFRunLoopRef runLoop, CFRunLoopTimerRef timer, CFStringRef mode);

/* Removes the timer from its loop and makes it invalid for ever. Allowed in its own callout. */
void CFRunLoopTimerInvalidate(CFRunLoopTimerRef timer);

CF_EXTERN_C_END

#endif
