#ifndef PLATFORM_NUMBER_H
#define PLATFORM_NUMBER_H

/*
 * Numbers, stored in the widest type of their kind. An integer that fits into a pointer less one
 * bit is stored in the reference itself: it needs neither memory nor counting nor a table.
 */

#include "objects/Object.h"

#include <CoreFoundation/CFNumber.h>

#include <bit>
#include <cstdint>
#include <limits>
#include <optional>

namespace cf {

/* Unsigned numbers are those above the range of a signed 64-bit integer. */
enum NumberKind : unsigned char { kSignedNumber, kUnsignedNumber, kRealNumber };

struct NumberValue {
    NumberKind kind;
    std::uint64_t bits;

    // The value. Precondition: the kind is the one that the name says.
    std::int64_t Signed() const noexcept {
        return static_cast<std::int64_t>(bits);
    }
    // As Signed().
    std::uint64_t Unsigned() const noexcept {
        return bits;
    }
    // As Signed().
    double Real() const noexcept {
        return std::bit_cast<double>(bits);
    }
    bool operator==(const NumberValue&) const noexcept = default;
};

} // namespace cf

struct __CFNumber : cf::Object {
    static const cf::Class kClass;

    std::uint64_t bits;

    // A number with that value.
    explicit __CFNumber(cf::NumberValue value) noexcept
        : Object(&kClass, 1, value.kind), bits(value.bits) {}
};

namespace cf {

using Number = ::__CFNumber;

template<>
Number*
As<Number>(CFTypeRef reference) noexcept = delete; // a number may be no object: use NumberIn

/* The value of a reference, or nothing if the reference is NULL or not a number. */
std::optional<NumberValue> NumberIn(CFTypeRef reference) noexcept;

/* The value of a number object, which is not an immediate reference. */
inline NumberValue ValueOf(const Number* number) noexcept {
    return {static_cast<NumberKind>(number->kind), number->bits};
}

/* The immediate reference with that value, or nullptr if the integer needs an object. */
inline const Object* ImmediateInteger(std::int64_t value) noexcept {
    constexpr std::intptr_t kMost = std::numeric_limits<std::intptr_t>::max() / 2;
    if (value > kMost || value < -kMost - 1)
        return nullptr;
    return reinterpret_cast<const Object*>(static_cast<std::uintptr_t>(value) << 1 | 1U);
}

/* A number object, which the caller owns; nullptr if memory is short. */
Number* CreateNumber(NumberValue value) noexcept;

} // namespace cf

#endif
