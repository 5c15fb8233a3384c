#ifndef COREFOUNDATION_CFCONSTANTSTRING_H
#define COREFOUNDATION_CFCONSTANTSTRING_H

/*
 * What CFSTR leaves in the program: the head that every object begins with, the string's sizes and
 * its text, laid out by the compiler. Nothing runs and nothing is allocated, so the strings can be
 * used while globals are still being initialised. Equal literals are one object.
 */

#include <CoreFoundation/CFBase.h>

#ifdef __cplusplus

#include <atomic>
#include <cstddef>
#include <cstdint>

namespace cf {

struct Class;

/* The reference count of an object that lives as long as the program. */
inline constexpr std::int32_t kStaticReferences = INT32_MIN;

struct Object {
    const Class* type;
    mutable std::atomic<std::int32_t> references;
    std::uint32_t hashValue : 24;
    std::uint32_t hasHash : 1;  // hashValue is what Hash() gives
    std::uint32_t isShared : 1; // stands in the table of shared values, under hashValue
    std::uint32_t kind : 6;     // for the class's own use

    constexpr explicit Object(const Class* objectType, std::int32_t count = 1,
                              unsigned objectKind = 0) noexcept
        : type(objectType), references(count), hashValue(0), hasHash(0), isShared(0),
          kind(objectKind & 0x3FU) {}

    void SetHashValue(std::uint32_t value) noexcept {
        hashValue = value & 0xFFFFFFU;
    }
};

} // namespace cf

/*
 * The text follows the object: UTF-8, in which unpaired surrogates are encoded like any other unit.
 */
struct __CFString : cf::Object {
    static const cf::Class kClass;

    std::uint32_t byteCount;
    std::uint32_t unitCount; // UTF-16 units

    constexpr __CFString(std::uint32_t bytes, std::uint32_t units, unsigned stringKind = 0,
                         std::int32_t count = 1) noexcept
        : Object(&kClass, count, stringKind), byteCount(bytes), unitCount(units) {}
};

namespace cf {

/* A string literal as a template argument. The terminator is kept. */
template<std::size_t Size>
struct Literal {
    char text[Size] = {};

    consteval Literal(const char (&literal)[Size]) {
        for (std::size_t i = 0; i < Size; ++i)
            text[i] = literal[i];
    }

    // Every character begins with a byte that is no continuation; those of four bytes are two
    // units.
    consteval std::uint32_t UnitCount() const {
        std::uint32_t units = 0;
        for (std::size_t i = 0; i + 1 < Size; ++i) {
            const auto byte = static_cast<unsigned char>(text[i]);
            units += (byte & 0xC0U) != 0x80U ? 1U : 0U;
            units += byte >= 0xF0U ? 1U : 0U;
        }
        return units;
    }
};

template<Literal kLiteral>
struct ConstantString : __CFString {
    char text[sizeof kLiteral.text] = {};

    consteval ConstantString()
        : __CFString(sizeof kLiteral.text - 1, kLiteral.UnitCount(), 0, kStaticReferences) {
        for (std::size_t i = 0; i < sizeof text; ++i)
            text[i] = kLiteral.text[i];
    }
};

template<Literal kLiteral>
inline constinit ConstantString<kLiteral> constantString{};

} // namespace cf

#define CFSTR(literal) (static_cast<CFStringRef>(&::cf::constantString<literal>))

#endif

#endif
