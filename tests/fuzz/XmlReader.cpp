/* XML property lists, which whoever poses as the server or writes a disc may choose. */

#include "ListChecks.h"
#include "Target.h"
#include "XmlBatches.h"

#include "plist/XmlEncoding.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace {

// libplist takes a 0 in front for octal, and no blanks.
bool IsPlainInteger(std::string_view digits) {
    if (digits.starts_with('-'))
        digits.remove_prefix(1);
    return digits.starts_with("0<") || digits.starts_with("0x") ||
           (!digits.empty() && digits.front() >= '1' && digits.front() <= '9');
}

// libplist does not count on behind the end of a month, or of a day.
bool IsPlainDate(std::string_view text) {
    const auto isWithin = [text](std::size_t at, std::string_view first, std::string_view last) {
        const std::string_view field = text.substr(std::min(at, text.size()), 2);
        return first <= field && field <= last;
    };
    return isWithin(5, "01", "12") && isWithin(8, "01", "28") && isWithin(11, "00", "23") &&
           isWithin(14, "00", "59") && isWithin(17, "00", "59");
}

// libplist does not go on behind a '=' inside of base64.
bool IsEndOfBase64(std::string_view text) {
    return text.starts_with('=') || text.starts_with("</data>");
}

// libplist takes a '>' inside quotes for a part of the attribute.
bool IsWithoutAttributes(std::string_view tag) {
    const std::size_t end = tag.find_first_of(" \t\r\n>");
    return end != tag.npos && tag[end] == '>';
}

// Whether what stands behind the token satisfies the condition, wherever the text has the token.
template<typename Condition>
bool EachIsFollowedBy(std::string_view text, std::string_view token, Condition condition) {
    for (std::size_t i = text.find(token); i != text.npos; i = text.find(token, i + 1))
        if (!condition(text.substr(i + token.size())))
            return false;
    return true;
}

// Whether both readers must find the same: one list in a <plist> or in a document like ours. About
// all else each reader is lenient in its own way.
bool IsPlain(std::string_view text) {
    constexpr std::string_view kOpening = "<plist>";
    constexpr std::string_view kClosing = "</plist>";
    text.remove_prefix(text.starts_with(kXmlHeader) ? kXmlHeader.size()
                       : text.starts_with(kOpening) ? kOpening.size()
                                                    : text.size());
    text = text.substr(0, text.find_last_not_of(" \t\r\n") + 1);
    if (!text.ends_with(kClosing))
        return false;
    text.remove_suffix(kClosing.size());
    // libplist keeps a byte order mark.
    for (const std::string_view token : {"plist", "<!", "<?", "\uFEFF", "&#xFEFF;", "&#65279;"})
        if (text.find(token) != text.npos)
            return false;
    return EachIsFollowedBy(text, "<", IsWithoutAttributes) &&
           EachIsFollowedBy(text, "=", IsEndOfBase64) &&
           EachIsFollowedBy(text, "<integer>", IsPlainInteger) &&
           EachIsFollowedBy(text, "<date>", IsPlainDate);
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view bytes = TextOfInput(data, size);
    if (bytes.empty() || bytes.starts_with("bplist00")) // BinaryReader.cpp
        return 0;
    const ReadResult list = ReadList(bytes);
    ExpectSameWithMutableContainers(bytes, list);
    ExpectSameInBatches(bytes, 64, list);
    if (!list.list)
        return 0;
    ExpectSameWhenReadAgain(list.list.Get());
    const cf::XmlDocumentText text({data, size}); // libplist takes everything for UTF-8
    if (IsPlain(text.View()))
        ExpectWitnessAgrees(list.list.Get(), LibplistFromXml(text.View()), EqualKeys::LastCounts);
    return 0;
}
