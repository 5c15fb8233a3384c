#include "objects/String.h"

#include "objects/Hash.h"
#include "objects/Range.h"
#include "objects/Unicode.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <span>

namespace cf {
namespace {

bool IsAscii(const String* string) noexcept {
    return string->byteCount == string->unitCount;
}

char* TextPlace(String* string) noexcept {
    return reinterpret_cast<char*>(string + 1);
}

bool EqualStrings(const Object* first, const Object* second) noexcept {
    return TextOf(static_cast<const String*>(first)) == TextOf(static_cast<const String*>(second));
}

std::uint32_t HashString(const Object* object) noexcept {
    const std::string_view text = TextOf(static_cast<const String*>(object));
    return HashBytes(text.data(), text.size());
}

// A string whose text the caller writes, and then calls Seal().
String* AllocateString(std::size_t byteCount, std::size_t unitCount,
                       StringKind kind = kValidUtf8) noexcept {
    if (byteCount > std::numeric_limits<std::uint32_t>::max())
        return nullptr;
    return Allocate<String>(byteCount, static_cast<std::uint32_t>(byteCount),
                            static_cast<std::uint32_t>(unitCount), kind);
}

// Stores the hash of the complete text.
String* Seal(String* string, std::uint32_t hash) noexcept {
    string->SetHashValue(hash);
    string->hasHash = 1;
    return string;
}

String* Seal(String* string) noexcept {
    return Seal(string, HashString(string));
}

} // namespace

String* CreateString(std::string_view text) noexcept {
    return CreateString(text, HashBytes(text.data(), text.size()));
}

String* CreateString(std::string_view text, std::uint32_t hash) noexcept {
    String* string = AllocateString(text.size(), CountUnits(text));
    if (string == nullptr)
        return nullptr;
    std::copy(text.begin(), text.end(), TextPlace(string));
    return Seal(string, hash);
}

std::strong_ordering CompareByUnits(const String* first, const String* second) noexcept {
    if (IsAscii(first) && IsAscii(second))
        return TextOf(first) <=> TextOf(second);
    UnitReader left(TextOf(first));
    UnitReader right(TextOf(second));
    while (!left.AtEnd() && !right.AtEnd()) {
        const auto order = left.Next() <=> right.Next();
        if (order != 0)
            return order;
    }
    return right.AtEnd() <=> left.AtEnd();
}

namespace {

String* CreateFromUtf8(std::string_view text) noexcept {
    if (text.starts_with(kUtf8ByteOrderMark))
        text.remove_prefix(kUtf8ByteOrderMark.size());
    return IsValidUtf8(text) ? CreateString(text) : nullptr;
}

String* CreateFromUnits(const UniChar* units, std::size_t count) noexcept {
    const UniChar* end = units + count;
    std::size_t byteCount = 0;
    bool hasSurrogates = false;
    for (const UniChar* next = units; next != end;) {
        const char32_t character = TakeCharacter(next, end);
        byteCount += EncodedSize(character);
        hasSurrogates |= IsSurrogate(character);
    }
    String* string =
        AllocateString(byteCount, count, hasSurrogates ? kWithUnpairedSurrogates : kValidUtf8);
    if (string == nullptr)
        return nullptr;
    char* place = TextPlace(string);
    for (const UniChar* next = units; next != end;)
        place = Encode(place, TakeCharacter(next, end));
    return Seal(string);
}

// Writes the text and a terminator. False if they do not fit or the text has an unpaired surrogate.
bool CopyUtf8(const String* string, std::span<char> buffer) noexcept {
    const std::string_view text = TextOf(string);
    if (string->kind != kValidUtf8 || text.size() >= buffer.size())
        return false;
    *std::copy(text.begin(), text.end(), buffer.begin()) = 0;
    return true;
}

} // namespace
} // namespace cf

constinit const cf::Class __CFString::kClass = {cf::DestroyPlain, cf::EqualStrings, cf::HashString};

CFStringRef CFStringCreateWithCString(CFAllocatorRef, const char* text, CFStringEncoding encoding) {
    if (text == nullptr || encoding != kCFStringEncodingUTF8)
        return nullptr;
    return cf::CreateFromUtf8(text);
}

CFStringRef CFStringCreateWithCharacters(CFAllocatorRef, const UniChar* characters, CFIndex count) {
    if (count < 0 || (characters == nullptr && count > 0))
        return nullptr;
    return cf::CreateFromUnits(characters, static_cast<std::size_t>(count));
}

CFIndex CFStringGetLength(CFStringRef reference) {
    const auto* string = cf::As<cf::String>(reference);
    return string != nullptr ? string->unitCount : 0;
}

CFIndex CFStringGetMaximumSizeForEncoding(CFIndex length, CFStringEncoding encoding) {
    if (encoding != kCFStringEncodingUTF8)
        return 0;
    return length <= std::numeric_limits<CFIndex>::max() / 3 ? length * 3 : CFIndex{kCFNotFound};
}

Boolean CFStringGetCString(CFStringRef reference, char* buffer, CFIndex size,
                           CFStringEncoding encoding) {
    if (buffer == nullptr || size <= 0)
        return false;
    const auto* string = cf::As<cf::String>(reference);
    const std::span<char> place(buffer, static_cast<std::size_t>(size));
    if (string != nullptr && encoding == kCFStringEncodingUTF8 && cf::CopyUtf8(string, place))
        return true;
    buffer[0] = 0;
    return false;
}

void CFStringGetCharacters(CFStringRef reference, CFRange range, UniChar* buffer) {
    const auto* string = cf::As<cf::String>(reference);
    if (string == nullptr || buffer == nullptr || !cf::LiesWithin(range, string->unitCount))
        return;
    cf::UnitReader units(cf::TextOf(string));
    for (CFIndex i = 0; i < range.location; ++i)
        units.Next();
    for (CFIndex i = 0; i < range.length; ++i)
        buffer[i] = units.Next();
}
