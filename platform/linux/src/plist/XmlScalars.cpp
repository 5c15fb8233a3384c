#include "plist/XmlScalars.h"

#include "plist/CalendarDate.h"
#include "plist/Parsing.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdio>
#include <limits>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

namespace cf {

namespace {

std::size_t SkipWhiteSpace(std::string_view text, std::size_t index) {
    return std::min(text.find_first_not_of(kXmlWhiteSpace, index), text.size());
}

unsigned CodeOf(char character) {
    return static_cast<unsigned char>(character);
}

using CodeText = std::array<char, 8>;

unsigned DigitOfInteger(const XmlSlice& place, unsigned base) {
    const char character = place.source[place.begin];
    const int digit = DigitValue(character);
    if (digit >= 10 && base == 10)
        RefuseAt(place, "Hex digit in non-hex <integer> on line ");
    if (digit < 0) {
        CodeText code{};
        std::snprintf(code.data(), code.size(), "0x%x", CodeOf(character));
        RefuseAt(place, "Unknown character '" + Printable(character) + "' (" + code.data() +
                            ") in <integer> on line ");
    }
    return static_cast<unsigned>(digit);
}

// The maximum absolute values of both signs.
constexpr std::uint64_t kMostNegative = std::uint64_t{1} << 63;
constexpr std::uint64_t kMostPositive = std::numeric_limits<std::uint64_t>::max();

std::uint64_t ReadMagnitude(const XmlSlice& digits, unsigned base, bool negative) {
    const std::uint64_t limit = negative ? kMostNegative : kMostPositive;
    std::uint64_t magnitude = 0;
    for (std::size_t i = 0; i < digits.View().size(); ++i) {
        const unsigned digit = DigitOfInteger(digits.From(i), base);
        if (magnitude > (limit - digit) / base)
            RefuseAt(digits, negative ? "Integer underflow in <integer> on line "
                                      : "Integer overflow in <integer> on line ");
        magnitude = magnitude * base + digit;
    }
    return magnitude;
}

} // namespace

const char* ParsePlainInteger(const char* text, std::int64_t& integer) noexcept {
    constexpr int kDigits = std::numeric_limits<std::int64_t>::digits10;
    int digits = 0;
    for (integer = 0; IsDecimalDigit(text[digits]) && digits < kDigits; ++digits)
        integer = integer * 10 + (text[digits] - '0');
    return digits > 0 ? text + digits : nullptr;
}

Value ReadInteger(const XmlSlice& content) {
    const std::string_view text = content.View();
    std::size_t index = SkipWhiteSpace(text, 0);
    if (index == text.size())
        RefuseAt(content, "Encountered empty <integer> on line ");
    const bool negative = text[index] == '-';
    if (negative || text[index] == '+')
        index = SkipWhiteSpace(text, index + 1);
    const std::string_view digits = text.substr(index);
    const bool hexadecimal = digits.starts_with("0x") || digits.starts_with("0X");
    if (hexadecimal)
        index += 2;
    if (index == text.size())
        RefuseAt(content, "Incomplete <integer> on line ");
    const std::uint64_t magnitude =
        ReadMagnitude(content.From(index), hexadecimal ? 16 : 10, negative);
    if (negative)
        return Created(SharedInteger(static_cast<std::int64_t>(-magnitude)));
    if (magnitude >= kMostNegative)
        return Created(SharedUnsignedInteger(magnitude));
    return Created(SharedInteger(static_cast<std::int64_t>(magnitude)));
}

Value ReadReal(const XmlSlice& content) {
    const std::string_view text = content.View();
    std::size_t index = SkipWhiteSpace(text, 0);
    if (index < text.size() && text[index] == '+' && !text.substr(index + 1).starts_with('-'))
        ++index;
    const char* end = text.data() + text.size();
    double value = 0;
    const auto result = std::from_chars(text.data() + index, end, value);
    // from_chars() accepts "nan(...)", which is malformed here.
    if (result.ec != std::errc() || result.ptr != end || text.ends_with(')'))
        RefuseAt(content, "Encountered misformatted real on line ");
    return Created(SharedReal(value));
}

Value ReadDate(const XmlSlice& content) {
    const std::optional<CFAbsoluteTime> time = ParseDate(content.View());
    if (!time)
        RefuseAt(content, "Could not interpret <date> at line ");
    return Created(SharedDate(*time));
}

namespace {

// The six bits of a base64 digit, or -1.
int SixBits(char character) {
    if (character >= 'A' && character <= 'Z')
        return character - 'A';
    if (character >= 'a' && character <= 'z')
        return character - 'a' + 26;
    if (IsDecimalDigit(character))
        return character - '0' + 52;
    return character == '+' ? 62 : character == '/' ? 63 : -1;
}

[[noreturn]] void RefuseDataAt(const XmlSlice& place) {
    CodeText code{};
    std::snprintf(code.data(), code.size(), "0x%02X", CodeOf(place.View().front()));
    RefuseAt(place, "Could not interpret <data> on line ",
             std::string(" (invalid character ") + code.data() + ")");
}

} // namespace

Value ReadData(const XmlSlice& content) {
    const std::string_view text = content.View();
    std::vector<std::uint8_t> bytes;
    bytes.reserve(text.size() / 4 * 3);
    std::uint32_t group = 0;
    int digits = 0;
    int padding = 0;
    for (const char& character : text) {
        const int bits = SixBits(character);
        if (CodeOf(character) >= 0x80)
            RefuseDataAt(content.From(static_cast<std::size_t>(&character - text.data())));
        if (bits < 0 && character != '=')
            continue;
        padding += character == '=' ? 1 : 0;
        group = group << 6 | static_cast<std::uint32_t>(std::max(bits, 0));
        if (++digits < 4)
            continue;
        for (int shift = 16; shift >= 0 && padding < 3; shift -= 8, ++padding)
            bytes.push_back(static_cast<std::uint8_t>(group >> shift));
        digits = padding = 0;
    }
    return Created(SharedData(bytes));
}

Value ReadNumber(XmlTag tag, const XmlSlice& content) {
    switch (tag) {
    case XmlTag::kInteger:
        return ReadInteger(content);
    case XmlTag::kReal:
        return ReadReal(content);
    case XmlTag::kDate:
        return ReadDate(content);
    default:
        return ReadData(content);
    }
}

} // namespace cf
