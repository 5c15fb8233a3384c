#include "loop/Deadline.h"

#include <sys/timerfd.h>
#include <unistd.h>

#include <utility>

namespace cf {
namespace {

void Unwatch(WatchedDescriptor& watched, Nanoseconds) noexcept {
    watched.Unwatch();
}

} // namespace

Deadline::Deadline() noexcept : watched_(Unwatch) {}

Deadline::~Deadline() {
    Clear();
}

void Deadline::Set(Nanoseconds date) noexcept {
    const std::lock_guard lock(ArrivalsMutex());
    if (!AreArrivalsStarted())
        return;
    timer_ = timerfd_create(CLOCK_MONOTONIC, TFD_NONBLOCK | TFD_CLOEXEC);
    if (timer_ < 0)
        return;
    itimerspec setting = {};
    setting.it_value = {date / kSecond, date % kSecond};
    if (timerfd_settime(timer_, TFD_TIMER_ABSTIME, &setting, nullptr) != 0 ||
        !watched_.Watch(timer_, date))
        close(std::exchange(timer_, -1));
}

void Deadline::Clear() noexcept {
    if (timer_ < 0)
        return;
    const std::lock_guard lock(ArrivalsMutex());
    watched_.Unwatch();
    close(std::exchange(timer_, -1));
}

} // namespace cf
