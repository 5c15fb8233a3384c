#ifndef PLATFORM_RUNLOOPSOURCE_H
#define PLATFORM_RUNLOOPSOURCE_H

#include "loop/LoopContext.h"
#include "loop/RunLoop.h"
#include "loop/RunLoopMember.h"

#include <atomic>
#include <mutex>

namespace cf {

/* The callbacks of a source, called on the thread of its loop. All but perform may be nullptr. */
struct SourceCallouts {
    PerformCallback perform;
    PerformCallback added;       // the source was added to a loop
    PerformCallback removed;     // the source was removed from its loop, or the loop was destroyed
    PerformCallback invalidated; // the source was invalidated or freed: info is not used again
    // True if the input that made the source ready had arrived by `time` of the monotonic clock.
    bool (*hasArrivedBy)(void* info, Nanoseconds time) = nullptr;
};

} // namespace cf

struct __CFRunLoopSource : cf::Member {
    static const cf::Class kClass;
    // See CreateSource().
    __CFRunLoopSource(const cf::SourceCallouts& sourceCallouts, void* sourceInfo,
                      cf::RunLevel runLevel, int sourceDescriptor) noexcept
        : cf::Member(&kClass), callouts(sourceCallouts), info(sourceInfo), level(runLevel),
          descriptor(sourceDescriptor) {}

    const cf::SourceCallouts callouts;
    void* const info;
    const cf::RunLevel level;

    const int descriptor;    // -1: only Signal() makes the source ready
    cf::SourcePointer watch; // of the descriptor, while the source is in a loop and not ready

    std::atomic<bool> signalled = false;
    std::mutex wakeMutex;
    cf::LoopContext* wakeContext = nullptr; // of the source's loop; guarded by wakeMutex
};

namespace cf {

using Source = ::__CFRunLoopSource;

/* Creates a source; the caller owns the reference, and `info` and `descriptor` as in RunLoop.h.
   nullptr on a shortage of memory. Any thread. */
Source* CreateSource(const SourceCallouts& callouts, void* info, RunLevel level,
                     int descriptor = -1) noexcept;

/* Makes the source ready and wakes its loop. Any thread; takes wakeMutex. */
void Signal(Source& source) noexcept;

/* Removes the source from its loop and makes it invalid for ever. Does nothing the second time. */
void Invalidate(Source& source) noexcept;

/* True if a run may perform the source now. `nested`: the run is not the outermost one. */
bool IsReady(const Source& source, bool nested) noexcept;
/* True if IsReady() and the source's input had arrived by `time` of the monotonic clock. Always
   false for a source without hasArrivedBy. */
bool HasInputBy(const Source& source, bool nested, Nanoseconds time) noexcept;
/* Calls perform, then watches the descriptor again. The caller owns a reference. */
void Perform(Source& source) noexcept;

/* Removes the source, which is in a loop, from that loop and releases the loop's reference. */
void RemoveFromLoop(Source& source) noexcept;

} // namespace cf

#endif
