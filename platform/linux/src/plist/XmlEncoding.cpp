#include "plist/XmlEncoding.h"

#include "objects/Unicode.h"
#include "plist/Parsing.h"
#include "plist/Transcoding.h"

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <optional>
#include <utility>

namespace cf {

namespace {

// The encodings by their simplified names; null for UTF-8. ASCII is read as Latin-1, as in binary
// lists.
const struct {
    std::string_view name;
    const CharacterSet* set;
} kEncodings[] = {
    {"utf8", nullptr},         {"ascii", &kLatin1},  {"usascii", &kLatin1},
    {"iso88591", &kLatin1},    {"latin1", &kLatin1}, {"l1", &kLatin1},
    {"iso885915", &kLatin9},   {"latin9", &kLatin9}, {"windows1252", &kWindows1252},
    {"cp1252", &kWindows1252},
};

// The name in lower case, without '-' and '_'.
std::string Simplified(std::string_view name) {
    std::string simplified;
    for (const char character : name)
        if (character >= 'A' && character <= 'Z')
            simplified += static_cast<char>(character + ('a' - 'A'));
        else if (character != '-' && character != '_')
            simplified += character;
    return simplified;
}

// The value in quotes, or else the text up to white space or the end of the declaration.
std::string_view AttributeValue(std::string_view text) {
    const bool isQuoted = text.starts_with('"') || text.starts_with('\'');
    const std::size_t end = isQuoted ? text.find(text.front(), 1) : text.find_first_of(" \t\r\n?>");
    if (end == text.npos)
        throw MalformedList("End of buffer while looking for encoding name");
    return isQuoted ? text.substr(1, end - 1) : text.substr(0, end);
}

// The name in encoding="name" of the declaration; "utf-8" if there is none.
std::string_view DeclaredEncoding(std::string_view text) {
    constexpr std::string_view kBeginning = "<?xml";
    constexpr std::string_view kAttribute = "encoding=";
    constexpr std::string_view kDefault = "utf-8";
    if (!text.starts_with(kBeginning))
        return kDefault;
    text.remove_prefix(kBeginning.size());
    const std::size_t end = text.find_first_of("?>");
    const std::size_t attribute = text.substr(0, end).find(kAttribute);
    if (attribute != text.npos)
        return AttributeValue(text.substr(attribute + kAttribute.size()));
    if (end == text.npos)
        throw MalformedList("End of buffer while looking for encoding name");
    return kDefault;
}

} // namespace

XmlDocumentText::XmlDocumentText(std::span<const std::uint8_t> bytes)
    : view_(reinterpret_cast<const char*>(bytes.data()), bytes.size()) {
    const bool bigEndian = view_.starts_with("\xFE\xFF");
    if (bigEndian || view_.starts_with("\xFF\xFE")) {
        const ByteOrder order = bigEndian ? ByteOrder::Big : ByteOrder::Little;
        std::optional<std::string> converted = Utf16ToUtf8(view_.substr(2), order);
        if (!converted)
            throw MalformedList("Unable to convert string to correct encoding");
        view_ = converted_ = std::move(*converted);
    } else if (view_.starts_with(kUtf8ByteOrderMark)) {
        view_.remove_prefix(kUtf8ByteOrderMark.size());
    } else {
        ConvertFrom(DeclaredEncoding(view_));
    }
}

void XmlDocumentText::ConvertFrom(std::string_view encoding) {
    const std::string name = Simplified(encoding);
    const auto* const known = std::ranges::find_if(
        kEncodings, [&name](const auto& candidate) { return candidate.name == name; });
    if (known == std::end(kEncodings))
        throw MalformedList("Encountered unknown encoding (" + Printable(encoding) + ")");
    if (known->set != nullptr)
        view_ = converted_ = NarrowToUtf8(view_, *known->set);
}

} // namespace cf
