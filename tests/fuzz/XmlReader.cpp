/* XML property lists: untrusted input from the server socket or a disc. */

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

// libplist reads a leading 0 as octal and rejects blanks.
bool IsPlainInteger(std::string_view digits) {
    if (digits.starts_with('-'))
        digits.remove_prefix(1);
    return digits.starts_with("0<") || digits.starts_with("0x") ||
           (!digits.empty() && digits.front() >= '1' && digits.front() <= '9');
}

// libplist does not normalise days behind the end of a month or hours behind the end of a day.
bool IsPlainDate(std::string_view text) {
    const auto isWithin = [text](std::size_t at, std::string_view first, std::string_view last) {
        const std::string_view field = text.substr(std::min(at, text.size()), 2);
        return first <= field && field <= last;
    };
    return isWithin(5, "01", "12") && isWithin(8, "01", "28") && isWithin(11, "00", "23") &&
           isWithin(14, "00", "59") && isWithin(17, "00", "59");
}

// libplist stops at a '=' inside base64 text.
bool IsEndOfBase64(std::string_view text) {
    return text.starts_with('=') || text.starts_with("</data>");
}

// libplist treats a '>' inside quotes as part of the attribute.
bool IsWithoutAttributes(std::string_view tag) {
    const std::size_t end = tag.find_first_of(" \t\r\n>");
    return end != tag.npos && tag[end] == '>';
}

// True if the text behind every occurrence of the token satisfies the condition.
template<typename Condition>
bool EachIsFollowedBy(std::string_view text, std::string_view token, Condition condition) {
    for (std::size_t i = text.find(token); i != text.npos; i = text.find(token, i + 1))
        if (!condition(text.substr(i + token.size())))
            return false;
    return true;
}

// True if both readers must read the same: one list in a <plist> or in a document as we write it.
// The readers accept different deviations from that form.
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
    // libplist does not remove a byte order mark.
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
    const cf::XmlDocumentText text({data, size}); // libplist reads any input as UTF-8
    if (IsPlain(text.View()))
        ExpectReferenceAgrees(list.list.Get(), LibplistFromXml(text.View()), EqualKeys::LastCounts);
    return 0;
}
