#ifndef PLATFORM_LOOPCONTEXT_H
#define PLATFORM_LOOPCONTEXT_H

#include "loop/Clock.h"
#include "loop/GLibPointers.h"

#include <thread>

namespace cf {

/*
 * A GLib main context, in which the thread that creates it waits for descriptors, for a date and
 * for Wake(). All functions but Wake() are for that thread. On a shortage of memory or descriptors
 * GLib ends the process.
 */
class LoopContext {
public:
    // Creates the context for the calling thread.
    LoopContext() noexcept;

    // Dispatches the descriptors that are readable now. Does not block.
    void Poll() noexcept;
    // Blocks until a descriptor is readable, until the monotonic time `until` (kNever: no limit) or
    // until Wake(); then dispatches like Poll().
    void Sleep(Nanoseconds until) noexcept;

    // Ends the current Sleep(), or the next one if there is none. Any thread; does nothing on the
    // context's own thread, which does not sleep then.
    void Wake() noexcept;

    // The context, borrowed.
    GMainContext* Get() const noexcept {
        return context_.get();
    }

private:
    const std::thread::id thread_ = std::this_thread::get_id();
    const ContextPointer context_;
    const SourcePointer sleepLimit_;
};

} // namespace cf

#endif
