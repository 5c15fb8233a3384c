#include "changerctl/PrintableText.h"

#include <wchar.h>

#include <array>
#include <cstdint>
#include <cstdio>

namespace changerctl {
namespace {

// One character of UTF-8 text, or one byte that is not part of one.
struct Character {
    char32_t code;
    std::size_t size; // in bytes
    bool isValid;
};

constexpr char32_t kLastCharacter = 0x10FFFF;

bool IsContinuation(char byte) {
    return (static_cast<unsigned char>(byte) & 0xC0) == 0x80;
}

// The size that the first byte announces; 0 for a byte that begins no character.
std::size_t AnnouncedSize(unsigned char first) {
    if (first < 0x80)
        return 1;
    if (first < 0xC2)
        return 0; // a continuation, or the beginning of an overlong form
    if (first < 0xE0)
        return 2;
    return first < 0xF0 ? 3 : first < 0xF5 ? 4 : 0;
}

bool IsScalar(char32_t code, std::size_t size) {
    constexpr std::array<char32_t, 5> kSmallest{0, 0, 0x80, 0x800, 0x10000};
    const bool isSurrogate = code >= 0xD800 && code <= 0xDFFF;
    return code >= kSmallest.at(size) && code <= kLastCharacter && !isSurrogate;
}

// Precondition: the text is not empty.
Character FirstOf(std::string_view text) {
    const auto first = static_cast<unsigned char>(text[0]);
    const std::size_t size = AnnouncedSize(first);
    const Character invalid{first, 1, false};
    if (size == 1)
        return {first, 1, true};
    if (size == 0 || size > text.size())
        return invalid;
    char32_t code = first & (0x7FU >> size);
    for (const char byte : text.substr(1, size - 1)) {
        if (!IsContinuation(byte))
            return invalid;
        code = code << 6 | (static_cast<unsigned char>(byte) & 0x3FU);
    }
    return IsScalar(code, size) ? Character{code, size, true} : invalid;
}

bool IsControl(char32_t code) {
    return code < 0x20 || (code >= 0x7F && code < 0xA0);
}

// Separators of lines and paragraphs, and marks that reorder what stands around them.
bool ChangesLayout(char32_t code) {
    return (code >= 0x2028 && code <= 0x202E) || (code >= 0x2066 && code <= 0x2069) ||
           code == 0x200E || code == 0x200F || code == 0x061C;
}

std::string Escape(const Character& character) {
    switch (character.code) {
    case '\n':
        return "\\n";
    case '\t':
        return "\\t";
    case '\\':
        return "\\\\";
    default:
        std::array<char, 16> text{};
        std::snprintf(text.data(), text.size(), character.code < 0x100 ? "\\x%02X" : "\\u%04X",
                      static_cast<unsigned int>(character.code));
        return text.data();
    }
}

bool IsPrintable(const Character& character) {
    return character.isValid && !IsControl(character.code) && !ChangesLayout(character.code) &&
           character.code != '\\';
}

// A character that the C library does not know is assumed to take one column.
std::size_t ColumnsOf(const Character& character) {
    const int columns = wcwidth(static_cast<wchar_t>(character.code));
    return columns < 0 ? 1 : static_cast<std::size_t>(columns);
}

} // namespace

std::string Printable(std::string_view text) {
    std::string printable;
    while (!text.empty()) {
        const Character character = FirstOf(text);
        if (IsPrintable(character))
            printable += text.substr(0, character.size);
        else
            printable += Escape(character);
        text.remove_prefix(character.size);
    }
    return printable;
}

std::size_t ColumnsOf(std::string_view text) {
    std::size_t columns = 0;
    while (!text.empty()) {
        const Character character = FirstOf(text);
        columns += ColumnsOf(character);
        text.remove_prefix(character.size);
    }
    return columns;
}

std::string_view ClippedTo(std::size_t columns, std::string_view text) {
    std::size_t size = 0;
    while (size < text.size()) {
        const Character character = FirstOf(text.substr(size));
        if (ColumnsOf(character) > columns)
            break;
        columns -= ColumnsOf(character);
        size += character.size;
    }
    return text.substr(0, size);
}

} // namespace changerctl
