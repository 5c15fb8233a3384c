#ifndef PLATFORM_STRING_H
#define PLATFORM_STRING_H

/* The text of strings, for the platform's own use. */

#include "objects/Object.h"

#include <CoreFoundation/CFString.h>

#include <compare>
#include <cstdint>
#include <string_view>

namespace cf {

using String = ::__CFString;

enum StringKind : unsigned char { kValidUtf8, kWithUnpairedSurrogates };

/*
 * Generalized UTF-8 (Unicode.h); plain UTF-8 when the string's kind is kValidUtf8. No terminator.
 */
inline std::string_view TextOf(const String* string) noexcept {
    return {reinterpret_cast<const char*>(string + 1), string->byteCount};
}

/* From valid UTF-8, embedded zeros included. Owned by the caller; nullptr when memory is short. */
String* CreateString(std::string_view text) noexcept;
/* The same for who knows the HashBytes of the text. */
String* CreateString(std::string_view text, std::uint32_t hash) noexcept;

/* The order of the UTF-16 units, in which keys are sorted. */
std::strong_ordering CompareByUnits(const String* first, const String* second) noexcept;

} // namespace cf

#endif
