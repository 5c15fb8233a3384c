#ifndef COREFOUNDATION_CFCONSTANTSTRING_H
#define COREFOUNDATION_CFCONSTANTSTRING_H

/*
 * The objects that CFSTR creates at compile time: the header of every object, the string's sizes
 * and its text. They need no code and no memory at run time, so the initialisers of globals may use
 * them. Equal literals are one object.
 */

#include <CoreFoundation/CFBase.h>

#ifdef __cplusplus

#include <atomic>
#include <cstddef>
#include <cstdint>

namespace cf {

struct Class;

/* The reference count of a static object, which is never freed. Negative counts do not change. */
inline constexpr std::int32_t kStaticReferences = INT32_MIN;

/* The header of every object. */
struct Object {
    const Class* type;
    mutable std::atomic<std::int32_t> references;
    std::uint32_t hashValue : 24;
    std::uint32_t hasHash : 1;  // hashValue is valid
    std::uint32_t isShared : 1; // the table of shared values has it under hashValue
    std::uint32_t kind : 6;     // the class defines its values

    // The header of an object of that class. `objectKind` has 6 bits.
    constexpr explicit Object(const Class* objectType, std::int32_t count = 1,
                              unsigned objectKind = 0) noexcept
        : type(objectType), references(count), hashValue(0), hasHash(0), isShared(0),
          kind(objectKind & 0x3FU) {}

    // Stores the lowest 24 bits. Leaves hasHash as it is.
    void SetHashValue(std::uint32_t value) noexcept {
        hashValue = value & 0xFFFFFFU;
    }
};

} // namespace cf

/*
 * A string. Its text follows the object: UTF-8, in which an unpaired surrogate is encoded as if it
 * were a character.
 */
struct __CFString : cf::Object {
    static const cf::Class kClass;

    std::uint32_t byteCount;
    std::uint32_t unitCount; // UTF-16 units

    // A string without its text, which the caller writes behind the object.
    constexpr __CFString(std::uint32_t bytes, std::uint32_t units, unsigned stringKind = 0,
                         std::int32_t count = 1) noexcept
        : Object(&kClass, count, stringKind), byteCount(bytes), unitCount(units) {}
};

namespace cf {

/* A string literal as a template argument, with its terminator. */
template<std::size_t Size>
struct Literal {
    char text[Size] = {};

    // Copies the literal.
    consteval Literal(const char (&literal)[Size]) {
        for (std::size_t i = 0; i < Size; ++i)
            text[i] = literal[i];
    }

    // The length in UTF-16 units. Each byte that is not a continuation byte begins a character, and
    // a character of four bytes has two units.
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

/* A static string and its text. */
template<Literal kLiteral>
struct ConstantString : __CFString {
    char text[sizeof kLiteral.text] = {};

    consteval ConstantString()
        : __CFString(sizeof kLiteral.text - 1, kLiteral.UnitCount(), 0, kStaticReferences) {
        for (std::size_t i = 0; i < sizeof text; ++i)
            text[i] = kLiteral.text[i];
    }
};

/* One variable for each distinct literal. */
template<Literal kLiteral>
inline constinit ConstantString<kLiteral> g_constantString{};

} // namespace cf

/* The constant string of a UTF-8 literal. Borrowed; CFRetain and CFRelease have no effect. */
#define CFSTR(literal) (static_cast<CFStringRef>(&::cf::g_constantString<literal>))

#endif

#endif
