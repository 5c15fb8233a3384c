#ifndef PLATFORM_CLOCK_H
#define PLATFORM_CLOCK_H

/*
 * The two clocks of the run loops, in whole nanoseconds. The wall clock counts from the reference
 * date of CFDate.h and may be stepped. The monotonic clock counts from an unspecified start and
 * does not count while the machine is suspended. All functions may be called from any thread.
 */

#include <CoreFoundation/CFDate.h>

#include <cstdint>

namespace cf {

using Nanoseconds = std::int64_t;

inline constexpr Nanoseconds kSecond = 1'000'000'000;

/* Later than any date: a time that never comes. A sum of two such values does not overflow. */
inline constexpr Nanoseconds kNever = INT64_MAX / 4;

/* The present time of one of the clocks. */
Nanoseconds MonotonicNow() noexcept;
Nanoseconds WallClockNow() noexcept;

/* The wall clock as time() returns it. It advances with the kernel's tick, so it may be up to kTick
   behind WallClockNow(). */
Nanoseconds WallClockTick() noexcept;
inline constexpr Nanoseconds kTick = kSecond / 100;

/* `seconds`, rounded up because a timer must not fire early, and limited to -kNever and kNever. NaN
   gives kNever. */
Nanoseconds ToNanoseconds(CFTimeInterval seconds) noexcept;

/* Seconds from 1970 to the reference date. */
inline constexpr Nanoseconds kSecondsSince1970 = 978'307'200;

} // namespace cf

#endif
