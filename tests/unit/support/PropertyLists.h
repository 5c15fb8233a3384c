#ifndef TESTS_UNIT_SUPPORT_PROPERTYLISTS_H
#define TESTS_UNIT_SUPPORT_PROPERTYLISTS_H

/* Property lists written and read in one expression:
 *
 *     Dictionary({{"Changer GUID", 7}, {"Media", Array({Dictionary({{"private", true}})})}})
 */

#include "support/Held.h"

#include <CoreFoundation/CoreFoundation.h>

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>
#include <utility>

inline Held<CFStringRef> Text(std::string_view utf8) {
    return Held(
        CFStringCreateWithCString(nullptr, std::string(utf8).c_str(), kCFStringEncodingUTF8));
}

inline Held<CFNumberRef> Integer(std::int64_t value) {
    return Held(CFNumberCreate(nullptr, kCFNumberSInt64Type, &value));
}

inline Held<CFDataRef> Bytes(std::string_view bytes) {
    return Held(CFDataCreate(nullptr, reinterpret_cast<const UInt8*>(bytes.data()),
                             static_cast<CFIndex>(bytes.size())));
}

/* One value of a list: a boolean, an integer, a text, or any object, which it shares. */
class Value {
public:
    template<std::same_as<bool> Flag> // not what merely converts to one
    Value(Flag flag) : object_(Share<CFTypeRef>(flag ? kCFBooleanTrue : kCFBooleanFalse)) {}
    template<std::integral T>
        requires(!std::same_as<T, bool>)
    Value(T integer) : object_(Integer(static_cast<std::int64_t>(integer))) {}
    Value(const char* utf8) : object_(Text(utf8)) {}
    template<typename Reference>
    Value(const Held<Reference>& object) : object_(Share<CFTypeRef>(object.Get())) {}
    Value(const Value& other) : object_(Share(other.Get())) {}
    Value& operator=(const Value&) = delete;

    CFTypeRef Get() const {
        return object_;
    }

private:
    Held<CFTypeRef> object_;
};

struct Entry {
    const char* key;
    Value value;
};

inline Held<CFMutableDictionaryRef> Dictionary(std::initializer_list<Entry> entries = {}) {
    Held dictionary(CFDictionaryCreateMutable(nullptr, 0, &kCFTypeDictionaryKeyCallBacks,
                                              &kCFTypeDictionaryValueCallBacks));
    for (const Entry& entry : entries)
        CFDictionarySetValue(dictionary, Text(entry.key), entry.value.Get());
    return dictionary;
}

inline Held<CFMutableArrayRef> Array(std::initializer_list<Value> values = {}) {
    Held array(CFArrayCreateMutable(nullptr, 0, &kCFTypeArrayCallBacks));
    for (const Value& value : values)
        CFArrayAppendValue(array, value.Get());
    return array;
}

/* The whole XML document; comparing two of them shows where lists differ. Empty when the list
   cannot be written. */
inline std::string XmlOf(CFPropertyListRef list) {
    if (list == nullptr)
        return {};
    const Held data(CFPropertyListCreateXMLData(nullptr, list));
    if (data == nullptr)
        return {};
    return {reinterpret_cast<const char*>(CFDataGetBytePtr(data)),
            static_cast<std::size_t>(CFDataGetLength(data))};
}

inline std::string TextOf(CFStringRef string) {
    const CFIndex size =
        1 + CFStringGetMaximumSizeForEncoding(CFStringGetLength(string), kCFStringEncodingUTF8);
    std::string text(static_cast<std::size_t>(size), '\0');
    if (!CFStringGetCString(string, text.data(), size, kCFStringEncodingUTF8))
        return "(no text)";
    return text.c_str();
}

#endif
