#include "lists/XmlEncoding.h"

#include "lists/MalformedList.h"
#include "lists/Utf16.h"
#include "lists/XmlSlice.h"

#include <optional>
#include <utility>

namespace cf {

namespace {

std::string FromLatin1(std::string_view bytes) {
    std::string text;
    text.reserve(bytes.size());
    for (const char byte : bytes)
        AppendCharacter(text, static_cast<unsigned char>(byte));
    return text;
}

bool EqualIgnoringCase(std::string_view text, std::string_view lowerCase) {
    if (text.size() != lowerCase.size())
        return false;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char character = text[i];
        const bool upper = character >= 'A' && character <= 'Z';
        if ((upper ? static_cast<char>(character + ('a' - 'A')) : character) != lowerCase[i])
            return false;
    }
    return true;
}

// The name in encoding="name" of the declaration; "utf-8" when there is none.
std::string_view DeclaredEncoding(std::string_view text) {
    constexpr std::string_view kAttribute = "encoding=";
    if (!text.starts_with("<?xml"))
        return "utf-8";
    const std::size_t end = text.find("?>");
    if (end == std::string_view::npos)
        throw MalformedList("End of buffer while looking for encoding name");
    const std::string_view declaration = text.substr(0, end);
    const std::size_t attribute = declaration.find(kAttribute);
    if (attribute == std::string_view::npos)
        return "utf-8";
    const std::string_view quoted = declaration.substr(attribute + kAttribute.size());
    const std::size_t closing = quoted.empty() ? quoted.npos : quoted.find(quoted.front(), 1);
    if (closing == std::string_view::npos)
        throw MalformedList("End of buffer while looking for encoding name");
    return quoted.substr(1, closing - 1);
}

// An error text is UTF-8, whatever the document is.
std::string AsciiOnly(std::string_view name) {
    std::string shown(name);
    for (char& character : shown)
        character = Shown(character);
    return shown;
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
        return;
    }
    if (view_.starts_with("\xEF\xBB\xBF"))
        view_.remove_prefix(3);
    const std::string_view encoding = DeclaredEncoding(view_);
    if (EqualIgnoringCase(encoding, "iso-8859-1"))
        view_ = converted_ = FromLatin1(view_);
    else if (!EqualIgnoringCase(encoding, "utf-8") && !EqualIgnoringCase(encoding, "us-ascii"))
        throw MalformedList("Encountered unknown encoding (" + AsciiOnly(encoding) + ")");
}

} // namespace cf
