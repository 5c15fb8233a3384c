#ifndef PLATFORM_RANGE_H
#define PLATFORM_RANGE_H

#include <CoreFoundation/CFBase.h>

#include <cstddef>

namespace cf {

/* True if the range, which is unchecked input of a caller, lies inside `count` members. */
inline bool LiesWithin(CFRange range, std::size_t count) noexcept {
    const auto end = static_cast<CFIndex>(count);
    return range.location >= 0 && range.length >= 0 && range.length <= end - range.location;
}

} // namespace cf

#endif
