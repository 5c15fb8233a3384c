#ifndef PLATFORM_RUNLOOPSOURCE_H
#define PLATFORM_RUNLOOPSOURCE_H

#include "loop/LoopContext.h"
#include "loop/RunLoop.h"
#include "loop/RunLoopMember.h"

#include <atomic>
#include <mutex>

namespace cf {

/* What a source tells its owner, on the thread of the loop. All but perform may be nullptr. */
struct SourceCallouts {
    PerformCallback perform;
    PerformCallback added;       // it was added to a loop
    PerformCallback removed;     // it was removed, or the loop ended
    PerformCallback invalidated; // it was invalidated or freed: info is not used again
    // Whether what it is ready for had arrived by that time of the monotonic clock.
    bool (*hasArrivedBy)(void* info, Nanoseconds time) = nullptr;
};

} // namespace cf

struct __CFRunLoopSource : cf::Member {
    static const cf::Class kClass;
    __CFRunLoopSource(const cf::SourceCallouts& sourceCallouts, void* sourceInfo,
                      cf::RunLevel runLevel, int sourceDescriptor) noexcept
        : cf::Member(&kClass), callouts(sourceCallouts), info(sourceInfo), level(runLevel),
          descriptor(sourceDescriptor) {}

    const cf::SourceCallouts callouts;
    void* const info;
    const cf::RunLevel level;

    const int descriptor;    // -1: becomes ready by being signalled only
    cf::SourcePointer watch; // on the descriptor, while the source is in a loop and not ready

    std::atomic<bool> signalled = false;
    std::mutex wakeMutex;
    cf::LoopContext* wakeContext = nullptr; // of the loop that it is in; guarded by wakeMutex
};

namespace cf {

using Source = ::__CFRunLoopSource;

Source* CreateSource(const SourceCallouts& callouts, void* info, RunLevel level,
                     int descriptor = -1) noexcept;

void Signal(Source& source) noexcept;
void Invalidate(Source& source) noexcept;

bool IsReady(const Source& source, bool nested) noexcept;
bool HasInputBy(const Source& source, bool nested, Nanoseconds time) noexcept;
void Perform(Source& source) noexcept;

/* Takes the source out of its loop. */
void RemoveFromLoop(Source& source) noexcept;

} // namespace cf

#endif
