#include "FakeClock.h"

#include <glib.h>
#include <gtest/gtest.h>

#include <poll.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cmath>
#include <cstdint>
#include <ctime>
#include <map>
#include <mutex>
#include <utility>

namespace {

constexpr std::int64_t kSecond = 1'000'000'000;
constexpr std::int64_t kTick = 4'000'000; // of the coarse clock
constexpr std::int64_t kMonotonicStart = 1000 * kSecond;
constexpr std::int64_t kWallClockStart = 1'700'000'000 * kSecond;
constexpr std::int64_t kNotSet = INT64_MAX;

std::atomic<bool> g_fake = false;
std::atomic<std::int64_t> g_monotonic;
std::atomic<std::int64_t> g_wallClock;
std::mutex g_deadlinesMutex;
std::multimap<std::int64_t, int> g_deadlines; // monotonic timers: date and descriptor
std::int64_t g_alarmTime;                     // of the expiry, on the wall clock
int g_alarm = -1; // the timer descriptor that also reports steps; -1: none was set yet
bool g_stepped;
std::atomic<int> g_sleeps;
bool g_refuseAlarms;

std::int64_t Nanoseconds(CFTimeInterval seconds) {
    return std::llround(seconds * static_cast<double>(kSecond));
}

// The time in nanoseconds until the context would wake up by itself.
std::int64_t SleepOf(GMainContext* context) {
    EXPECT_TRUE(g_main_context_acquire(context));
    gint priority = 0;
    gint milliseconds = -1;
    g_main_context_prepare(context, &priority);
    g_main_context_query(context, priority, &milliseconds, nullptr, 0);
    g_main_context_release(context);
    return milliseconds < 0 ? kNotSet : milliseconds * (kSecond / 1000);
}

} // namespace

extern "C" {
int __real_clock_gettime(clockid_t clock, timespec* time);
int __real_timerfd_create(int clock, int flags);
int __real_timerfd_settime(int timer, int flags, const itimerspec* setting, itimerspec* old);
ssize_t __real_read(int descriptor, void* buffer, size_t size);
gboolean __real_g_main_context_iteration(GMainContext* context, gboolean mayBlock);
}

namespace {

// Makes the timer descriptor expire now. False if the descriptor is closed.
bool Expire(int timer) {
    const itimerspec atOnce = {{}, {0, 1}};
    return __real_timerfd_settime(timer, 0, &atOnce, nullptr) == 0;
}

// Makes the monotonic timers whose dates have passed expire, one after the other. Closed
// descriptors are ignored.
void ExpireDeadlines() {
    const std::lock_guard lock(g_deadlinesMutex);
    while (!g_deadlines.empty() && g_deadlines.begin()->first <= g_monotonic) {
        const int timer = g_deadlines.begin()->second;
        g_deadlines.erase(g_deadlines.begin());
        pollfd expiry = {timer, POLLIN, 0};
        if (Expire(timer))
            poll(&expiry, 1, -1);
    }
}

} // namespace

extern "C" {
int __wrap_clock_gettime(clockid_t clock, timespec* time) {
    if (!g_fake)
        return __real_clock_gettime(clock, time);
    std::int64_t now = clock == CLOCK_MONOTONIC ? g_monotonic : g_wallClock;
    if (clock == CLOCK_REALTIME_COARSE)
        now -= now % kTick;
    *time = {now / kSecond, now % kSecond};
    return 0;
}

int __wrap_timerfd_create(int clock, int flags) {
    if (g_refuseAlarms) {
        errno = EMFILE;
        return -1;
    }
    return __real_timerfd_create(clock, flags);
}

int __wrap_timerfd_settime(int timer, int flags, const itimerspec* setting, itimerspec* old) {
    if (!g_fake)
        return __real_timerfd_settime(timer, flags, setting, old);
    const timespec& date = setting->it_value;
    if (flags == TFD_TIMER_ABSTIME) {
        const std::lock_guard lock(g_deadlinesMutex);
        std::erase_if(g_deadlines, [timer](const auto& each) { return each.second == timer; });
        g_deadlines.emplace(date.tv_sec * kSecond + date.tv_nsec, timer);
        return 0;
    }
    EXPECT_EQ(flags, TFD_TIMER_ABSTIME | TFD_TIMER_CANCEL_ON_SET);
    g_alarm = timer;
    g_alarmTime =
        date.tv_sec == 0 && date.tv_nsec == 0 ? kNotSet : date.tv_sec * kSecond + date.tv_nsec;
    if (!std::exchange(g_stepped, false))
        return 0;
    errno = ECANCELED; // reported once: here, or when the descriptor is read
    return -1;
}

ssize_t __wrap_read(int descriptor, void* buffer, size_t size) {
    const ssize_t count = __real_read(descriptor, buffer, size);
    if (!g_fake || descriptor != g_alarm || !g_stepped)
        return count;
    g_stepped = false;
    errno = ECANCELED;
    return -1;
}

gboolean __wrap_g_main_context_iteration(GMainContext* context, gboolean mayBlock) {
    if (!g_fake || !mayBlock || g_main_context_pending(context))
        return __real_g_main_context_iteration(context, mayBlock);
    const std::int64_t untilReady = SleepOf(context);
    const std::int64_t untilAlarm = g_alarmTime == kNotSet ? kNotSet : g_alarmTime - g_wallClock;
    const std::int64_t sleep =
        g_stepped ? 0 : std::max<std::int64_t>(std::min(untilReady, untilAlarm), 0);
    if (sleep == kNotSet)
        return __real_g_main_context_iteration(context, mayBlock);
    ++g_sleeps;
    g_monotonic += sleep;
    g_wallClock += sleep;
    ExpireDeadlines();
    if (!g_stepped && untilAlarm > sleep)
        return FALSE;
    g_alarmTime = kNotSet;
    EXPECT_TRUE(Expire(g_alarm));
    return __real_g_main_context_iteration(context, TRUE);
}
}

FakeClock::FakeClock() {
    g_fake = true;
    g_deadlines.clear();
    g_monotonic = kMonotonicStart;
    g_wallClock = kWallClockStart;
    g_alarmTime = kNotSet;
    g_alarm = -1;
    g_stepped = false;
    g_sleeps = 0;
    g_refuseAlarms = false;
}

FakeClock::~FakeClock() {
    g_fake = false;
    g_refuseAlarms = false;
}

void FakeClock::Advance(CFTimeInterval seconds) {
    g_monotonic += Nanoseconds(seconds);
    g_wallClock += Nanoseconds(seconds);
    ExpireDeadlines();
}

void FakeClock::Step(CFTimeInterval seconds) {
    g_wallClock += Nanoseconds(seconds);
    g_stepped = g_alarm >= 0;
}

void FakeClock::Suspend(CFTimeInterval seconds) {
    g_wallClock += Nanoseconds(seconds);
}

CFTimeInterval FakeClock::Elapsed() const {
    return static_cast<double>(g_monotonic - kMonotonicStart) / static_cast<double>(kSecond);
}

int FakeClock::Sleeps() const {
    return g_sleeps;
}

bool FakeClock::HasAlarm() const {
    return g_alarmTime != kNotSet;
}

void FakeClock::RefuseAlarms(bool refuse) {
    g_refuseAlarms = refuse;
}
