#include "loop/LoopContext.h"

#include <algorithm>
#include <limits>

namespace cf {
namespace {

// A source that is never ready and only limits the time-out of the context's poll.
// g_source_set_ready_time() would do so too, but would wake the calling thread.
struct SleepLimit {
    GSource source;
    Nanoseconds date;
};

gboolean BoundSleep(GSource* source, gint* milliseconds) {
    constexpr Nanoseconds kMillisecond = kSecond / 1000;
    constexpr Nanoseconds kLongest = std::numeric_limits<gint>::max();
    const Nanoseconds date = reinterpret_cast<SleepLimit*>(source)->date;
    const Nanoseconds left = std::max<Nanoseconds>(date - MonotonicNow(), 0);
    *milliseconds =
        date == kNever
            ? -1
            : static_cast<gint>(std::min((left + kMillisecond - 1) / kMillisecond, kLongest));
    return FALSE;
}

GSource* CreateSleepLimit(GMainContext* context) noexcept {
    static GSourceFuncs functions = {BoundSleep, nullptr, nullptr, nullptr, nullptr, nullptr};
    GSource* source = g_source_new(&functions, sizeof(SleepLimit));
    g_source_attach(source, context);
    return source;
}

} // namespace

LoopContext::LoopContext() noexcept
    : context_(g_main_context_new()), sleepLimit_(CreateSleepLimit(context_.get())) {}

void LoopContext::Poll() noexcept {
    g_main_context_iteration(context_.get(), FALSE);
}

void LoopContext::Sleep(Nanoseconds until) noexcept {
    reinterpret_cast<SleepLimit*>(sleepLimit_.get())->date = until;
    g_main_context_iteration(context_.get(), TRUE);
}

void LoopContext::Wake() noexcept {
    if (std::this_thread::get_id() != thread_)
        g_main_context_wakeup(context_.get());
}

} // namespace cf
