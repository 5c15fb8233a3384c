#ifndef TESTS_LISTS_H
#define TESTS_LISTS_H

/* Property lists read and written in one call. */

#include "support/CFOwned.h"
#include "support/CFValues.h"

#include <CoreFoundation/CoreFoundation.h>

#include <string>
#include <string_view>

/* A list, or why there is none ("(none)" without a text). */
struct ReadResult {
    CFOwned<CFPropertyListRef> list;
    std::string error;
};

inline ReadResult ReadList(std::string_view bytes,
                           CFOptionFlags mutability = kCFPropertyListImmutable) {
    const CFOwned data = Bytes(bytes);
    CFStringRef text = CFSTR("left as it was");
    ReadResult result;
    result.list = CFOwned(
        CFPropertyListCreateFromXMLData(kCFAllocatorDefault, data.Get(), mutability, &text));
    const CFOwned error(text);
    if (!result.list)
        result.error = error ? TextOf(text) : "(none)";
    else if (error)
        result.error = "a text although there is a list";
    return result;
}

constexpr std::string_view kXmlHeader = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
                                        "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
                                        "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
                                        "<plist version=\"1.0\">\n";
constexpr std::string_view kXmlTrailer = "</plist>\n";

/* What the document has between header and trailer. */
inline std::string WriteBody(CFPropertyListRef list) {
    const std::string text = XmlOf(list);
    if (!text.starts_with(kXmlHeader) || !text.ends_with(kXmlTrailer))
        return "(no document) " + text;
    return text.substr(kXmlHeader.size(), text.size() - kXmlHeader.size() - kXmlTrailer.size());
}

#endif
