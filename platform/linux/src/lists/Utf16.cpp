#include "lists/Utf16.h"

#include "objects/Unicode.h"

#include <vector>

namespace cf {

namespace {

std::vector<UniChar> UnitsOf(std::string_view bytes, ByteOrder order) {
    const std::size_t high = order == ByteOrder::Big ? 0 : 1;
    std::vector<UniChar> units(bytes.size() / 2);
    for (std::size_t i = 0; i < units.size(); ++i) {
        const auto upper = static_cast<unsigned char>(bytes[2 * i + high]);
        const auto lower = static_cast<unsigned char>(bytes[2 * i + 1 - high]);
        units[i] = static_cast<UniChar>(upper << 8 | lower);
    }
    return units;
}

} // namespace

std::optional<std::string> Utf16ToUtf8(std::string_view bytes, ByteOrder order) {
    if (bytes.size() % 2 != 0)
        return std::nullopt;
    const std::vector<UniChar> units = UnitsOf(bytes, order);
    const UniChar* const end = units.data() + units.size();
    std::string text;
    text.reserve(units.size());
    for (const UniChar* next = units.data(); next != end;) {
        const char32_t character = TakeCharacter(next, end);
        if (IsSurrogate(character))
            return std::nullopt;
        AppendCharacter(text, character);
    }
    return text;
}

void AppendCharacter(std::string& text, char32_t character) {
    char encoded[4];
    text.append(encoded, Encode(encoded, character));
}

} // namespace cf
