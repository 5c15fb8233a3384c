#include "loop/WallClockAlarm.h"

#include <glib-unix.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <ctime>

namespace cf {

WallClockAlarm::~WallClockAlarm() {
    if (descriptor_ < 0)
        return;
    watch_.reset();
    close(descriptor_);
}

bool WallClockAlarm::Open(GMainContext* context) noexcept {
    descriptor_ = timerfd_create(CLOCK_REALTIME, TFD_NONBLOCK | TFD_CLOEXEC);
    if (descriptor_ < 0)
        return false;
    watch_.reset(g_unix_fd_source_new(descriptor_, G_IO_IN));
    g_source_set_callback(watch_.get(), G_SOURCE_FUNC(&WallClockAlarm::OnExpiry), this, nullptr);
    g_source_attach(watch_.get(), context);
    return true;
}

bool WallClockAlarm::Set(GMainContext* context, Nanoseconds date) noexcept {
    if (date == date_)
        return true;
    if (descriptor_ < 0 && !Open(context))
        return false;
    itimerspec setting = {};
    if (date != kNever) {
        // Plus kTick, because timers compare with WallClockTick(). A date in the past expires at
        // once. A time of 0 would disarm the descriptor.
        const Nanoseconds expiry = date + kTick + kSecondsSince1970 * kSecond;
        setting.it_value.tv_sec = expiry / kSecond;
        setting.it_value.tv_nsec = expiry % kSecond;
    }
    // ECANCELED: the clock was stepped meanwhile; the descriptor is set nevertheless.
    if (timerfd_settime(descriptor_, TFD_TIMER_ABSTIME | TFD_TIMER_CANCEL_ON_SET, &setting,
                        nullptr) != 0)
        stepped_ = true;
    date_ = date;
    return true;
}

gboolean WallClockAlarm::OnExpiry(gint descriptor, GIOCondition, gpointer self) noexcept {
    auto& alarm = *static_cast<WallClockAlarm*>(self);
    std::uint64_t expirations = 0;
    if (read(descriptor, &expirations, sizeof expirations) < 0 && errno == ECANCELED)
        alarm.stepped_ = true;
    alarm.date_ = kNever;
    return G_SOURCE_CONTINUE;
}

} // namespace cf
