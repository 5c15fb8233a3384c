/* Concatenation of strings. */

#include "objects/Array.h"
#include "objects/String.h"
#include "objects/Unicode.h"

#include <cstdlib>
#include <memory>

namespace cf {
namespace {

struct FreeMemory {
    void operator()(void* memory) const noexcept {
        std::free(memory);
    }
};
using UnitBuffer = std::unique_ptr<UniChar[], FreeMemory>;

// Calls visit() with each string and with the separator between each two. Stops and returns false
// at a member that is not a string.
template<typename Visit>
bool VisitParts(const Array* strings, const String* separator, Visit visit) noexcept {
    for (std::size_t i = 0; i < strings->count; ++i) {
        const auto* string = As<String>(MemberAt(strings, i));
        if (string == nullptr)
            return false;
        if (i > 0 && separator != nullptr)
            visit(separator);
        visit(string);
    }
    return true;
}

} // namespace
} // namespace cf

// By way of UTF-16: one part may end with the first half of a surrogate pair and the next part
// begin with the second half, which together are one character.
CFStringRef CFStringCreateByCombiningStrings(CFAllocatorRef allocator, CFArrayRef stringArray,
                                             CFStringRef separatorString) {
    const auto* strings = cf::As<cf::Array>(stringArray);
    const auto* separator = cf::As<cf::String>(separatorString);
    if (strings == nullptr)
        return nullptr;
    std::size_t unitCount = 0;
    const auto countPart = [&](const cf::String* part) { unitCount += part->unitCount; };
    if (!cf::VisitParts(strings, separator, countPart))
        return nullptr;
    if (strings->count == 1)
        return static_cast<CFStringRef>(CFRetain(MemberAt(strings, 0)));
    const cf::UnitBuffer units(static_cast<UniChar*>(
        std::malloc((unitCount + 1) * sizeof(UniChar)))); // malloc(0) may return NULL
    if (units == nullptr)
        return nullptr;
    UniChar* place = units.get();
    cf::VisitParts(strings, separator, [&](const cf::String* part) {
        for (cf::UnitReader reader(cf::TextOf(part)); !reader.AtEnd();)
            *place++ = reader.Next();
    });
    return CFStringCreateWithCharacters(allocator, units.get(), static_cast<CFIndex>(unitCount));
}
