#ifndef CHANGERCTL_LISTVALUES_H
#define CHANGERCTL_LISTVALUES_H

/* Values of property lists. A value of another type than requested is absent. The functions borrow
   the lists; the dictionaries and arrays that they return are borrowed from them. */

#include <CoreFoundation/CoreFoundation.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace changerctl {

/* The value of a key; nothing if it is missing or has another type. An unsigned number may be
   stored as the signed number of the same bits. */
std::optional<bool> FindBoolean(CFDictionaryRef dictionary, CFStringRef key);
std::optional<std::uint64_t> FindUInt64(CFDictionaryRef dictionary, CFStringRef key);
std::optional<std::uint32_t> FindUInt32(CFDictionaryRef dictionary, CFStringRef key);
std::optional<std::int32_t> FindInt32(CFDictionaryRef dictionary, CFStringRef key);
std::optional<std::uint16_t> FindUInt16(CFDictionaryRef dictionary, CFStringRef key);
std::optional<std::string> FindText(CFDictionaryRef dictionary, CFStringRef key);

/* A string in UTF-8, up to its first NUL; nothing for null, for another type and for unpaired
   surrogates. */
std::optional<std::string> TextOf(CFTypeRef value);

/* The value as a dictionary or an array; null if it has another type or is null. */
CFDictionaryRef AsDictionary(CFTypeRef value);
CFArrayRef AsArray(CFTypeRef value);

/* A key of a dictionary and its value. */
struct Member {
    std::string key;
    CFTypeRef value;
};

/* The members of a dictionary in the order of their keys, without keys that are no text. */
std::vector<Member> MembersOf(CFDictionaryRef dictionary);

} // namespace changerctl

#endif
