#ifndef TESTS_UNIT_SUPPORT_PROPERTYLISTS_H
#define TESTS_UNIT_SUPPORT_PROPERTYLISTS_H

/* Property lists written and read in one expression:
 *
 *     Dictionary({{"Changer GUID", 7}, {"Media", Array({Dictionary({{"private", true}})})}})
 */

#include "support/CFOwned.h"
#include "support/CFValues.h"

#include <CoreFoundation/CoreFoundation.h>

#include <concepts>
#include <cstdint>
#include <initializer_list>

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
    Value(const CFOwned<Reference>& object) : object_(Share<CFTypeRef>(object.Get())) {}
    Value(const Value& other) : object_(Share(other.Get())) {}
    Value& operator=(const Value&) = delete;

    CFTypeRef Get() const {
        return object_;
    }

private:
    CFOwned<CFTypeRef> object_;
};

struct Entry {
    const char* key;
    Value value;
};

/* Returns the same dictionary, with these entries added or replaced. */
inline CFOwned<CFMutableDictionaryRef> With(CFOwned<CFMutableDictionaryRef> dictionary,
                                            std::initializer_list<Entry> entries) {
    for (const Entry& entry : entries)
        CFDictionarySetValue(dictionary, Text(entry.key), entry.value.Get());
    return dictionary;
}

/* Returns the same dictionary, with that entry removed. */
inline CFOwned<CFMutableDictionaryRef> Without(CFOwned<CFMutableDictionaryRef> dictionary,
                                               const char* key) {
    CFDictionaryRemoveValue(dictionary, Text(key));
    return dictionary;
}

inline CFOwned<CFMutableDictionaryRef> Dictionary(std::initializer_list<Entry> entries = {}) {
    return With(NewDictionary(), entries);
}

inline CFOwned<CFMutableArrayRef> Array(std::initializer_list<Value> values = {}) {
    CFOwned array = NewArray();
    for (const Value& value : values)
        CFArrayAppendValue(array, value.Get());
    return array;
}

#endif
