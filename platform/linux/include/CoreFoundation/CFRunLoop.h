#ifndef COREFOUNDATION_CFRUNLOOP_H
#define COREFOUNDATION_CFRUNLOOP_H

/*
 * Run loops: one per thread, made when first asked for and freed with the thread. A run serves
 * the timers and sources of the default mode. Runs nest; a source or timer whose callout is still
 * running is not called out again by a nested run.
 *
 * One turn of a run: first the timers that were due when the turn began, by fire date, then the
 * sources that are ready, in the order in which they were added; each at most once. Once a stop is
 * asked for, no further callout of that run follows.
 *
 * A loop and what is in it belong to the loop's thread: adding, removing and invalidating happen
 * there. Any thread may stop a run.
 */

#include <CoreFoundation/CFBase.h>
#include <CoreFoundation/CFDate.h>
#include <CoreFoundation/CFString.h>

CF_EXTERN_C_BEGIN

typedef struct __CFRunLoop* CFRunLoopRef;
typedef struct __CFRunLoopSource* CFRunLoopSourceRef;
typedef struct __CFRunLoopTimer* CFRunLoopTimerRef;

/*
 * Sources and timers are added to one of these; any other mode is as good as none. Removing from
 * the common modes what was added in the default mode removes nothing; what was added in the
 * common modes leaves by either name.
 */
extern const CFStringRef kCFRunLoopDefaultMode;
extern const CFStringRef kCFRunLoopCommonModes;

/* The calling thread's own loop, borrowed. NULL when it cannot be made. */
CFRunLoopRef CFRunLoopGetCurrent(void);

/* Serves the calling thread's loop until it is stopped or its default mode holds nothing more. */
void CFRunLoopRun(void);

/* Ends the innermost run of that loop, from any thread. Ignored when it does not run. */
void CFRunLoopStop(CFRunLoopRef runLoop);

/* The loop retains what is added, once. Adding what is in a loop, or is invalid, does nothing. */
void CFRunLoopAddSource(CFRunLoopRef runLoop, CFRunLoopSourceRef source, CFStringRef mode);
void CFRunLoopRemoveSource(CFRunLoopRef runLoop, CFRunLoopSourceRef source, CFStringRef mode);

/* Takes the source out of its loop for good; allowed inside its own callout. */
void CFRunLoopSourceInvalidate(CFRunLoopSourceRef source);

typedef void (*CFRunLoopTimerCallBack)(CFRunLoopTimerRef timer, void* info);

/*
 * retain is called when the timer is made, and what it returns is the callout's info; release when
 * the timer is invalidated or freed. Each callout is between the two as well. Either may be NULL.
 */
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
 * A one-shot timer is invalidated after its callout. None fires early. order is of no account.
 *
 * A timer that waits an hour or more (its interval; for a one-shot timer, the time until its fire
 * date) keeps a date of the wall clock: when that clock is set, the timer goes by what it shows
 * now, and when it is set back so far that a repeating timer would wait for more than two
 * intervals, the timer takes an earlier date of its grid. A timer that waits less measures a
 * delay, on the monotonic clock, which nobody sets.
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
