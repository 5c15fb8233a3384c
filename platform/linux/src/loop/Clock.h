#ifndef PLATFORM_CLOCK_H
#define PLATFORM_CLOCK_H

/*
 * The two clocks of the run loops, in whole nanoseconds. The wall clock counts from the reference
 * date of CFDate.h and may be stepped; the monotonic one does not know when it began.
 */

#include <CoreFoundation/CFDate.h>

#include <cstdint>

namespace cf {

using Nanoseconds = std::int64_t;

inline constexpr Nanoseconds kSecond = 1'000'000'000;

/* Further than any date: a time that never comes. Sums of two such values do not overflow. */
inline constexpr Nanoseconds kNever = INT64_MAX / 4;

Nanoseconds MonotonicNow() noexcept;
Nanoseconds WallClockNow() noexcept;

/* The wall clock as time() shows it: it moves with the kernel's tick, so up to kTick behind. */
Nanoseconds WallClockTick() noexcept;
inline constexpr Nanoseconds kTick = kSecond / 100;

/* Rounded up, so that nothing comes early; held within -kNever and kNever, which is also what no
   number gives. */
Nanoseconds ToNanoseconds(CFTimeInterval seconds) noexcept;

/* From 1970 to the reference date. */
inline constexpr Nanoseconds kSecondsSince1970 = 978'307'200;

} // namespace cf

#endif
