#ifndef PLATFORM_UTF16_H
#define PLATFORM_UTF16_H

/* UTF-16 in files, as UTF-8. */

#include <optional>
#include <string>
#include <string_view>

namespace cf {

enum class ByteOrder { Big, Little };

// Nothing for half a unit or an unpaired surrogate.
std::optional<std::string> Utf16ToUtf8(std::string_view bytes, ByteOrder order);

// The character is a whole one, no surrogate.
void AppendCharacter(std::string& text, char32_t character);

} // namespace cf

#endif
