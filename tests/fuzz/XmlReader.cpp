/* XML property lists, which whoever poses as the server or writes a disc may choose. */

#include "ListChecks.h"
#include "Target.h"

#include "lists/XmlEncoding.h"

#include <gtest/gtest.h>

namespace {

// Each reader is lenient in its own way about prologues, comments, CDATA, attributes and about '='
// inside of base64.
bool IsPlain(std::string_view text) {
    if (text.starts_with(kXmlHeader))
        text.remove_prefix(kXmlHeader.size());
    for (std::size_t i = text.find('='); i != text.npos; i = text.find('=', i + 1))
        if (!text.substr(i + 1).starts_with('=') && !text.substr(i + 1).starts_with("</data>"))
            return false;
    return text.find("<!") == text.npos && text.find("<?") == text.npos;
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view bytes = TextOfInput(data, size);
    if (bytes.starts_with("bplist00")) // BinaryReader.cpp
        return 0;
    const ReadResult list = ReadList(bytes);
    ExpectSameWithMutableContainers(bytes, list);
    if (!list.list)
        return 0;
    ExpectSameWhenReadAgain(list.list.Get());
    const cf::XmlDocumentText text({data, size}); // libplist takes everything for UTF-8
    if (IsPlain(text.View()))
        ExpectWitnessAgrees(list.list.Get(), LibplistFromXml(text.View()));
    return 0;
}
