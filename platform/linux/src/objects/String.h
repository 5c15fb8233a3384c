#ifndef PLATFORM_STRING_H
#define PLATFORM_STRING_H

/* Strings inside the platform. */

#include "objects/Object.h"

#include <CoreFoundation/CFString.h>

#include <compare>
#include <cstdint>
#include <string_view>

namespace cf {

using String = ::__CFString;

enum StringKind : unsigned char { kValidUtf8, kWithUnpairedSurrogates };

/*
 * The text, borrowed, without a terminator: generalized UTF-8 (Unicode.h), and valid UTF-8 if the
 * kind is kValidUtf8.
 */
inline std::string_view TextOf(const String* string) noexcept {
    return {reinterpret_cast<const char*>(string + 1), string->byteCount};
}

/* A copy of the text, which must be valid UTF-8 and may contain NULs. The caller owns it; nullptr
   if memory is short or the text is longer than 2^32 - 1 bytes. */
String* CreateString(std::string_view text) noexcept;
/* The same if HashBytes of the text is known. */
String* CreateString(std::string_view text, std::uint32_t hash) noexcept;

/* Compares UTF-16 units: the order of the keys in an XML list. */
std::strong_ordering CompareByUnits(const String* first, const String* second) noexcept;

} // namespace cf

#endif
