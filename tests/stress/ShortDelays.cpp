#include "ShortDelays.h"

#include "ChangerServerConnectionLib/ChangerServerMessages.h"
#include "ChangerServerConnectionLib/ChangerServerNotifications.h"
#include "EventCounts.h"
#include "RandomValues.h"
#include "RetainedObjects.h"
#include "support/RecordedTimer.h"
#include "trayprobed/MediaIdState.h"

#include <CoreFoundation/CoreFoundation.h>

#include <atomic>
#include <chrono>
#include <ctime>
#include <mutex>
#include <set>

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kClockSpeed = 40;
const Clock::time_point g_begin = Clock::now();
const time_t g_beginTime = std::chrono::system_clock::to_time_t(std::chrono::system_clock::now());

std::atomic<bool> g_shortReplyTimeouts = false;

std::mutex g_mutex;
std::set<CFRunLoopTimerRef> g_pendingDaily; // guarded by g_mutex

void RemovePending(CFRunLoopTimerRef timer) {
    const std::lock_guard lock(g_mutex);
    g_pendingDaily.erase(timer);
}

void FireDaily(CFRunLoopTimerRef timer, void* info) {
    event_counts::Count("daily timers fired");
    ChangerFSCache(timer, info);
    RemovePending(timer);
}

void FireConnect(CFRunLoopTimerRef timer, void* info) {
    event_counts::Count("connect timers fired");
    retained_objects::TryToConnect(timer, static_cast<ChangerNotificationSubscription*>(info));
}

void FireReply(CFRunLoopTimerRef timer, void* info) {
    event_counts::Count("replies timed out");
    HandleSocketTimeout(timer, info);
}

CFAbsoluteTime Soon(int mostMilliseconds) {
    return CFAbsoluteTimeGetCurrent() + random_values::Below(mostMilliseconds * 1000) / 1e6;
}

} // namespace

extern "C" {
void __real_CFRunLoopTimerInvalidate(CFRunLoopTimerRef timer);

CFRunLoopTimerRef __wrap_CFRunLoopTimerCreate(CFAllocatorRef allocator, CFAbsoluteTime fireDate,
                                              CFTimeInterval interval, CFOptionFlags flags,
                                              CFIndex order, CFRunLoopTimerCallBack callout,
                                              CFRunLoopTimerContext* context) {
    if (callout == TryNotificationConnect)
        return __real_CFRunLoopTimerCreate(allocator, fireDate, 0.002, flags, order, FireConnect,
                                           context);
    if (callout == HandleSocketTimeout)
        return __real_CFRunLoopTimerCreate(allocator, g_shortReplyTimeouts ? Soon(20) : fireDate, 0,
                                           flags, order, FireReply, context);
    CFRunLoopTimerRef timer =
        __real_CFRunLoopTimerCreate(allocator, Soon(4), interval, flags, order, FireDaily, context);
    const std::lock_guard lock(g_mutex);
    g_pendingDaily.insert(timer);
    return timer;
}

void __wrap_CFRunLoopTimerInvalidate(CFRunLoopTimerRef timer) {
    RemovePending(timer);
    __real_CFRunLoopTimerInvalidate(timer);
}

time_t __wrap_time(time_t* out) {
    using std::chrono::duration_cast;
    const auto passed = duration_cast<std::chrono::seconds>((Clock::now() - g_begin) * kClockSpeed);
    const time_t now = g_beginTime + passed.count();
    if (out != nullptr)
        *out = now;
    return now;
}

unsigned __wrap_sleep(unsigned seconds) {
    random_values::Sleep(static_cast<int>(seconds) * 1'000'000 / kClockSpeed);
    return 0;
}
}

void short_delays::ShortenReplyTimeouts(bool shorten) {
    g_shortReplyTimeouts = shorten;
}

bool short_delays::HasPendingDailyTimer() {
    const std::lock_guard lock(g_mutex);
    return !g_pendingDaily.empty();
}
