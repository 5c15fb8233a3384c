#ifndef PLATFORM_RUNLOOP_H
#define PLATFORM_RUNLOOP_H

/*
 * Run loop sources for the other modules of the platform. They are added, removed and invalidated
 * with the functions of CFRunLoop.h on their loop's thread, also inside a callout.
 *
 * A source's perform callback runs on that thread, at most once per iteration, and is never
 * reentered: a source that becomes ready during its own callout stays ready for a later one. Ready
 * sources perform in the order in which they were added, after the timers that are due. One
 * exception: socket input that had arrived when a timer became due is delivered before that timer
 * fires.
 */

#include <CoreFoundation/CFRunLoop.h>

namespace cf {

/* Which runs of the loop may perform a source: all of them, or the outermost only. A source of the
   latter kind stays ready while a nested run lasts. */
enum class RunLevel { kAny, kOutermost };

/* Called on the loop's thread with the source's info. */
using PerformCallback = void (*)(void* info);

/* Creates a source that SignalSource() makes ready, until its callout begins. The caller owns the
   reference and keeps `info` valid until the source is invalidated; nullptr on a shortage of
   memory. Any thread. */
CFRunLoopSourceRef CreateSignalSource(RunLevel level, PerformCallback perform, void* info) noexcept;

/* Makes the source ready and wakes its loop. Ignores nullptr. Any thread; the caller owns a
   reference. */
void SignalSource(CFRunLoopSourceRef source) noexcept;

/* Creates a source that is ready while `descriptor` is readable, at its end or in error; otherwise
   as CreateSignalSource(). The caller owns the descriptor and keeps it open until the source is
   removed or invalidated. */
CFRunLoopSourceRef CreateDescriptorSource(int descriptor, RunLevel level, PerformCallback perform,
                                          void* info) noexcept;

} // namespace cf

#endif
