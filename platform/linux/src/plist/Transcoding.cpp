#include "plist/Transcoding.h"

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

// A0 to BF: here are the euro sign and the letters that Latin-1 lacks.
constexpr char16_t kLatin9Characters[] = {0xA0,  0xA1, 0xA2, 0xA3, 0x20AC, 0xA5,  0x160, 0xA7,
                                          0x161, 0xA9, 0xAA, 0xAB, 0xAC,   0xAD,  0xAE,  0xAF,
                                          0xB0,  0xB1, 0xB2, 0xB3, 0x17D,  0xB5,  0xB6,  0xB7,
                                          0x17E, 0xB9, 0xBA, 0xBB, 0x152,  0x153, 0x178, 0xBF};

// 80 to 9F. Bytes without a character stay control characters.
constexpr char16_t kWindows1252Characters[] = {
    0x20AC, 0x81,   0x201A, 0x192,  0x201E, 0x2026, 0x2020, 0x2021, 0x2C6,  0x2030, 0x160,
    0x2039, 0x152,  0x8D,   0x17D,  0x8F,   0x90,   0x2018, 0x2019, 0x201C, 0x201D, 0x2022,
    0x2013, 0x2014, 0x2DC,  0x2122, 0x161,  0x203A, 0x153,  0x9D,   0x17E,  0x178};

} // namespace

constinit const CharacterSet kLatin9 = {0xA0, kLatin9Characters};
constinit const CharacterSet kWindows1252 = {0x80, kWindows1252Characters};

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

std::string NarrowToUtf8(std::string_view bytes, const CharacterSet& set) {
    std::string text;
    text.reserve(bytes.size());
    for (const char byte : bytes) {
        const auto value = static_cast<unsigned char>(byte);
        const std::size_t index = static_cast<std::size_t>(value) - set.first;
        AppendCharacter(text, index < set.characters.size() ? set.characters[index] : value);
    }
    return text;
}

void AppendCharacter(std::string& text, char32_t character) {
    char encoded[4];
    text.append(encoded, Encode(encoded, character));
}

} // namespace cf
