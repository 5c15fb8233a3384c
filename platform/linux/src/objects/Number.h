#ifndef PLATFORM_NUMBER_H
#define PLATFORM_NUMBER_H

/* Numbers, kept in the widest form of their kind. The small integers are static objects. */

#include "objects/Object.h"

#include <CoreFoundation/CFNumber.h>

#include <bit>
#include <cstdint>

namespace cf {

// Unsigned numbers are those above the signed range.
enum NumberKind : unsigned char { kSignedNumber, kUnsignedNumber, kRealNumber };

} // namespace cf

struct __CFNumber : cf::Object {
    static const cf::Class kClass;

    std::uint64_t bits;

    constexpr __CFNumber(cf::NumberKind numberKind, std::uint64_t value,
                         std::int32_t count = 1) noexcept
        : Object(&kClass, count, numberKind), bits(value) {}

    std::int64_t Signed() const noexcept {
        return static_cast<std::int64_t>(bits);
    }
    std::uint64_t Unsigned() const noexcept {
        return bits;
    }
    double Real() const noexcept {
        return std::bit_cast<double>(bits);
    }
};

namespace cf {

using Number = ::__CFNumber;

// The static object for a small integer, or nullptr.
Number* SmallInteger(std::int64_t value) noexcept;

// Owned by the caller; nullptr when memory is short.
Number* CreateNumber(NumberKind kind, std::uint64_t bits) noexcept;

} // namespace cf

#endif
