#ifndef PLATFORM_TRANSCODING_H
#define PLATFORM_TRANSCODING_H

/* Text in other encodings, as UTF-8. */

#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace cf {

enum class ByteOrder { Big, Little };

/* Nothing for half a unit or an unpaired surrogate. */
std::optional<std::string> Utf16ToUtf8(std::string_view bytes, ByteOrder order);

/* The characters of an encoding in which a byte is a character: those from first on, as many as
   there are. All other bytes are the characters of their values, as in ISO 8859-1. */
struct CharacterSet {
    unsigned char first;
    std::span<const char16_t> characters;
};
inline constexpr CharacterSet kLatin1 = {};
extern const CharacterSet kLatin9; // ISO 8859-15
extern const CharacterSet kWindows1252;

std::string NarrowToUtf8(std::string_view bytes, const CharacterSet& set);

/* The character is a whole one, no surrogate. */
void AppendCharacter(std::string& text, char32_t character);

} // namespace cf

#endif
