#ifndef PLATFORM_LOOPCONTEXT_H
#define PLATFORM_LOOPCONTEXT_H

#include "loop/Clock.h"
#include "loop/GLibPointers.h"

#include <thread>

namespace cf {

/*
 * GLib's main context, as the thread that makes it waits in it: for descriptors, for a date and
 * for being woken. The process ends when GLib finds no memory or no descriptor for it.
 */
class LoopContext {
public:
    LoopContext() noexcept;

    // Dispatches the descriptors that are readable.
    void Poll() noexcept;
    // The same, after having slept until there is one, the date of the monotonic clock comes, or
    // somebody calls Wake.
    void Sleep(Nanoseconds until) noexcept;

    // Ends the sleep, or keeps the next one from beginning. Any thread; on the context's own,
    // which is awake, it does nothing.
    void Wake() noexcept;

    GMainContext* Get() const noexcept {
        return context_.get();
    }

private:
    const std::thread::id thread_ = std::this_thread::get_id();
    const ContextPointer context_;
    const SourcePointer deadline_;
};

} // namespace cf

#endif
