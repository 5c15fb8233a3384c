#include "disks/RetryTimer.h"

#include <sys/timerfd.h>
#include <unistd.h>

#include <ctime>

namespace disks {

RetryTimer::RetryTimer() noexcept
    : descriptor_(timerfd_create(CLOCK_MONOTONIC, TFD_NONBLOCK | TFD_CLOEXEC)) {}

RetryTimer::~RetryTimer() {
    if (descriptor_ >= 0)
        close(descriptor_);
}

void RetryTimer::Set() noexcept {
    const itimerspec once = {{0, 0}, {1, 0}};
    timerfd_settime(descriptor_, 0, &once, nullptr);
}

void RetryTimer::Clear() noexcept {
    const itimerspec never = {};
    timerfd_settime(descriptor_, 0, &never, nullptr);
}

} // namespace disks
