#ifndef PLATFORM_TRANSCODING_H
#define PLATFORM_TRANSCODING_H

/* Conversion of text to UTF-8. All functions throw std::bad_alloc. */

#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace cf {

enum class ByteOrder { Big, Little };

/* The text, or nothing if there is an odd number of bytes or an unpaired surrogate. */
std::optional<std::string> Utf16ToUtf8(std::string_view bytes, ByteOrder order);

/* A single-byte encoding: the characters of the bytes from `first` on. All other bytes are
   characters of the same value, as in ISO 8859-1. */
struct CharacterSet {
    unsigned char first;
    std::span<const char16_t> characters;
};
inline constexpr CharacterSet kLatin1 = {};
extern const CharacterSet kLatin9; // ISO 8859-15
extern const CharacterSet kWindows1252;

/* Converts text of a single-byte encoding. Every byte is valid. */
std::string NarrowToUtf8(std::string_view bytes, const CharacterSet& set);

/* Appends the character, which must not be a surrogate. */
void AppendCharacter(std::string& text, char32_t character);

} // namespace cf

#endif
