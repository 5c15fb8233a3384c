#ifndef PLATFORM_NUMBER_H
#define PLATFORM_NUMBER_H

/*
 * Numbers, kept in the widest form of their kind. An integer that leaves a bit free is held by the
 * reference itself: it needs no memory, no counting, and no search when equal ones are one.
 */

#include "objects/Object.h"

#include <CoreFoundation/CFNumber.h>

#include <bit>
#include <cstdint>
#include <limits>
#include <optional>

namespace cf {

/* Unsigned numbers are those above the signed range. */
enum NumberKind : unsigned char { kSignedNumber, kUnsignedNumber, kRealNumber };

struct NumberValue {
    NumberKind kind;
    std::uint64_t bits;

    std::int64_t Signed() const noexcept {
        return static_cast<std::int64_t>(bits);
    }
    std::uint64_t Unsigned() const noexcept {
        return bits;
    }
    double Real() const noexcept {
        return std::bit_cast<double>(bits);
    }
    bool operator==(const NumberValue&) const noexcept = default;
};

} // namespace cf

struct __CFNumber : cf::Object {
    static const cf::Class kClass;

    std::uint64_t bits;

    explicit __CFNumber(cf::NumberValue value) noexcept
        : Object(&kClass, 1, value.kind), bits(value.bits) {}
};

namespace cf {

using Number = ::__CFNumber;

template<>
Number* As<Number>(CFTypeRef reference) noexcept = delete; // may be none: NumberIn

/* The value of a reference, or nothing when that is no number. */
std::optional<NumberValue> NumberIn(CFTypeRef reference) noexcept;

/* The value of an object that is known to be a number. */
inline NumberValue ValueOf(const Number* number) noexcept {
    return {static_cast<NumberKind>(number->kind), number->bits};
}

/* The reference that holds the integer, or nullptr when that needs an object. */
inline const Object* ImmediateInteger(std::int64_t value) noexcept {
    constexpr std::intptr_t kMost = std::numeric_limits<std::intptr_t>::max() / 2;
    if (value > kMost || value < -kMost - 1)
        return nullptr;
    return reinterpret_cast<const Object*>(static_cast<std::uintptr_t>(value) << 1 | 1U);
}

/* Owned by the caller; nullptr when memory is short. */
Number* CreateNumber(NumberValue value) noexcept;

} // namespace cf

#endif
