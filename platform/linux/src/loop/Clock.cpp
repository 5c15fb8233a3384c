#include "loop/Clock.h"

#include <cmath>
#include <ctime>

const CFTimeInterval kCFAbsoluteTimeIntervalSince1970 = cf::kSecondsSince1970;

namespace cf {
namespace {

Nanoseconds Read(clockid_t clock) noexcept {
    timespec now = {};
    clock_gettime(clock, &now);
    return now.tv_sec * kSecond + now.tv_nsec;
}

} // namespace

Nanoseconds MonotonicNow() noexcept {
    return Read(CLOCK_MONOTONIC);
}

Nanoseconds WallClockNow() noexcept {
    return Read(CLOCK_REALTIME) - kSecondsSince1970 * kSecond;
}

Nanoseconds WallClockTick() noexcept {
    return Read(CLOCK_REALTIME_COARSE) - kSecondsSince1970 * kSecond;
}

Nanoseconds ToNanoseconds(CFTimeInterval seconds) noexcept {
    const double nanoseconds = std::ceil(seconds * static_cast<double>(kSecond));
    if (!(nanoseconds < static_cast<double>(kNever)))
        return kNever;
    if (nanoseconds < -static_cast<double>(kNever))
        return -kNever;
    return static_cast<Nanoseconds>(nanoseconds);
}

} // namespace cf

CFAbsoluteTime CFAbsoluteTimeGetCurrent(void) {
    return static_cast<double>(cf::WallClockNow()) / static_cast<double>(cf::kSecond);
}
