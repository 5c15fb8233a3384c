#ifndef PLATFORM_RUNLOOP_H
#define PLATFORM_RUNLOOP_H

/*
 * Sources for the other rooms of the platform. They are added, removed and invalidated with the
 * calls of CFRunLoop.h, on their loop's own thread; all of that is allowed inside a callout too.
 *
 * A source's perform runs on that thread, at most once an iteration, and never while it runs
 * already: what becomes ready meanwhile is kept for after its return. Ready sources are called out
 * in the order in which they were added, after the timers that are due. A socket's input that had
 * arrived when a timer became due goes before that timer, all of it.
 */

#include <CoreFoundation/CFRunLoop.h>

namespace cf {

/* The runs of its loop that call a source out. In the outermost only: readiness waits while a
   nested run lasts. */
enum class RunLevel { kAny, kOutermost };

using PerformCallback = void (*)(void* info);

/* A source that is ready once it is signalled, until its callout begins. Owned by the caller;
   nullptr when memory is short. */
CFRunLoopSourceRef CreateSignalSource(RunLevel level, PerformCallback perform, void* info) noexcept;

/* Makes the source ready and wakes its loop. Any thread; the caller holds a reference. */
void SignalSource(CFRunLoopSourceRef source) noexcept;

/* A source that is ready while the descriptor is readable (or at its end, or in error). The
   descriptor remains the caller's, who keeps it open until the source is removed or invalid. */
CFRunLoopSourceRef CreateDescriptorSource(int descriptor, RunLevel level, PerformCallback perform,
                                          void* info) noexcept;

} // namespace cf

#endif
