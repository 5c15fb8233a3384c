#ifndef TESTS_UNIT_SUPPORT_CFVALUES_H
#define TESTS_UNIT_SUPPORT_CFVALUES_H

/* Core Foundation objects created and read in one call. A function that creates an object gives
   nullptr when memory is short. */

#include "support/CFOwned.h"

#include <CoreFoundation/CoreFoundation.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

inline CFOwned<CFStringRef> Text(std::string_view utf8) {
    return CFOwned(
        CFStringCreateWithCString(nullptr, std::string(utf8).c_str(), kCFStringEncodingUTF8));
}

inline CFOwned<CFNumberRef> Integer(std::int64_t value) {
    return CFOwned(CFNumberCreate(nullptr, kCFNumberSInt64Type, &value));
}

inline CFOwned<CFNumberRef> Real(double value) {
    return CFOwned(CFNumberCreate(nullptr, kCFNumberFloat64Type, &value));
}

inline CFOwned<CFDataRef> Bytes(std::string_view bytes) {
    return CFOwned(CFDataCreate(nullptr, reinterpret_cast<const UInt8*>(bytes.data()),
                                static_cast<CFIndex>(bytes.size())));
}

inline CFOwned<CFMutableArrayRef> NewArray() {
    return CFOwned(CFArrayCreateMutable(nullptr, 0, &kCFTypeArrayCallBacks));
}

inline CFOwned<CFMutableDictionaryRef> NewDictionary() {
    return CFOwned(CFDictionaryCreateMutable(nullptr, 0, &kCFTypeDictionaryKeyCallBacks,
                                             &kCFTypeDictionaryValueCallBacks));
}

/* The whole XML document: two lists can be compared as text. Empty if the list is nullptr or
   cannot be written. */
inline std::string XmlOf(CFPropertyListRef list) {
    if (list == nullptr)
        return {};
    const CFOwned data(CFPropertyListCreateXMLData(nullptr, list));
    if (data == nullptr)
        return {};
    return {reinterpret_cast<const char*>(CFDataGetBytePtr(data)),
            static_cast<std::size_t>(CFDataGetLength(data))};
}

/* The string in UTF-8, up to its first NUL. */
inline std::string TextOf(CFStringRef string) {
    const CFIndex size =
        1 + CFStringGetMaximumSizeForEncoding(CFStringGetLength(string), kCFStringEncodingUTF8);
    std::string text(static_cast<std::size_t>(size), '\0');
    if (!CFStringGetCString(string, text.data(), size, kCFStringEncodingUTF8))
        return "(no text)";
    return text.c_str();
}

#endif
