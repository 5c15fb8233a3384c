#include "LoopSleep.h"

#include <glib.h>

#include <thread>
#include <utility>

namespace {

thread_local std::function<void()> g_atSleep;
thread_local bool g_idle = false; // the last iteration did nothing

} // namespace

extern "C" {
gboolean __real_g_main_context_iteration(GMainContext* context, gboolean mayBlock);

// An iteration may have consumed a wake-up: only one without work shows that the loop is idle.
gboolean __wrap_g_main_context_iteration(GMainContext* context, gboolean mayBlock) {
    if (!mayBlock || !g_atSleep) {
        g_idle = false;
        return __real_g_main_context_iteration(context, mayBlock);
    }
    if (!g_idle) {
        g_idle = !__real_g_main_context_iteration(context, FALSE);
        return !g_idle;
    }
    g_idle = false;
    std::exchange(g_atSleep, nullptr)();
    return __real_g_main_context_iteration(context, TRUE);
}
}

void AtNextSleep(std::function<void()> function) {
    g_atSleep = std::move(function);
}

void AtNextSleepElsewhere(std::function<void()> function) {
    AtNextSleep([function = std::move(function)] { std::thread(function).join(); });
}
