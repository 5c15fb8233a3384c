#include "changerctl/ListValues.h"

#include "common/CFHelpers.h"

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <memory>

namespace changerctl {
namespace {

// Calls get(dictionary, key, &number), which stores a number of that type; nothing if that fails.
template<typename Value, typename Number>
std::optional<Value> Find(VErrLink* (*get)(CFDictionaryRef, CFStringRef, Number*),
                          CFDictionaryRef dictionary, CFStringRef key) {
    Number number{};
    VErrLink* failure = get(dictionary, key, &number);
    if (failure == nullptr)
        return static_cast<Value>(number);
    VErrCatch(&failure);
    return std::nullopt;
}

struct FreeDeleter {
    void operator()(char* text) const {
        std::free(text);
    }
};

} // namespace

std::optional<bool> FindBoolean(CFDictionaryRef dictionary, CFStringRef key) {
    return Find<bool>(CFHDictionaryGetBoolValue, dictionary, key);
}

std::optional<std::uint64_t> FindUInt64(CFDictionaryRef dictionary, CFStringRef key) {
    return Find<std::uint64_t>(CFHDictionaryGetUInt64Value, dictionary, key);
}

std::optional<std::uint32_t> FindUInt32(CFDictionaryRef dictionary, CFStringRef key) {
    return Find<std::uint32_t>(CFHDictionaryGetUInt32Value, dictionary, key);
}

std::optional<std::int32_t> FindInt32(CFDictionaryRef dictionary, CFStringRef key) {
    return Find<std::int32_t>(CFHDictionaryGetSInt32Value, dictionary, key);
}

std::optional<std::uint16_t> FindUInt16(CFDictionaryRef dictionary, CFStringRef key) {
    return Find<std::uint16_t>(CFHDictionaryGetUInt16Value, dictionary, key);
}

std::optional<std::string> FindText(CFDictionaryRef dictionary, CFStringRef key) {
    return TextOf(CFDictionaryGetValue(dictionary, key));
}

std::optional<std::string> TextOf(CFTypeRef value) {
    char* allocated = nullptr;
    VErrLink* failure = CFHAllocCStringFromCFString(static_cast<CFStringRef>(value),
                                                    kCFStringEncodingUTF8, &allocated);
    VErrCatch(&failure);
    const std::unique_ptr<char, FreeDeleter> text(allocated);
    return text ? std::optional<std::string>(text.get()) : std::nullopt;
}

CFDictionaryRef AsDictionary(CFTypeRef value) {
    const bool fits = CFGetTypeID(value) == CFDictionaryGetTypeID();
    return static_cast<CFDictionaryRef>(fits ? value : nullptr);
}

CFArrayRef AsArray(CFTypeRef value) {
    const bool fits = CFGetTypeID(value) == CFArrayGetTypeID();
    return static_cast<CFArrayRef>(fits ? value : nullptr);
}

std::vector<Member> MembersOf(CFDictionaryRef dictionary) {
    const auto count = static_cast<std::size_t>(CFDictionaryGetCount(dictionary));
    std::vector<const void*> keys(count);
    std::vector<const void*> values(count);
    CFDictionaryGetKeysAndValues(dictionary, keys.data(), values.data());
    std::vector<Member> members;
    for (std::size_t i = 0; i < count; ++i)
        if (auto key = TextOf(keys[i]))
            members.push_back({*std::move(key), values[i]});
    std::ranges::sort(members, {}, &Member::key);
    return members;
}

} // namespace changerctl
