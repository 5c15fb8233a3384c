#include "objects/Array.h"

#include "objects/Number.h"
#include "objects/Range.h"
#include "objects/SharedValues.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <utility>

namespace cf {
namespace {

bool EqualArrays(const Object* first, const Object* second) noexcept {
    const auto* left = static_cast<const Array*>(first);
    const auto* right = static_cast<const Array*>(second);
    if (left->count != right->count)
        return false;
    std::size_t same = 0;
    while (same < left->count && Equal(MemberAt(left, same), MemberAt(right, same)))
        ++same;
    return same == left->count;
}

// Not a hash of the members: they may be changed later, and hashing all of them would be slow.
std::uint32_t HashArray(const Object* object) noexcept {
    return static_cast<const Array*>(object)->count;
}

bool Reserve(Array* array, std::size_t count) noexcept {
    if (count <= array->capacity)
        return true;
    const std::size_t capacity =
        std::max({count, std::size_t{array->capacity} * 2, std::size_t{4}});
    if (capacity > kMaximumCapacity)
        return false;
    void* slots = std::realloc(array->slots, capacity * sizeof(const Object*));
    if (slots == nullptr)
        return false;
    array->slots = static_cast<const Object**>(slots);
    array->capacity = static_cast<std::uint32_t>(capacity);
    return true;
}

void Append(Array* array, const Object* member) noexcept {
    if (!Reserve(array, std::size_t{array->count} + 1))
        return;
    Retain(member);
    array->slots[array->count++] = member;
}

Array* CreateImmutable(std::span<const void* const> members) noexcept {
    auto* array =
        Allocate<Array>(members.size() * sizeof(const Object*), kImmutableArray, members.size());
    for (std::size_t i = 0; array != nullptr && i < members.size(); ++i)
        array->slots[i] = AsObject(CFRetain(members[i]));
    return array;
}

bool IsInteger(const Object* object) noexcept {
    const auto number = NumberIn(object);
    return number && number->kind == kSignedNumber;
}

// The shared array with the integers of this array, which then holds shared integers, too.
const Array* ShareIntegers(Array* array) noexcept {
    for (const Object*& slot : std::span(array->slots, array->count)) {
        const Object* shared = SharedInteger(NumberIn(slot)->Signed());
        if (shared == nullptr)
            return nullptr;
        Release(std::exchange(slot, shared));
    }
    return static_cast<const Array*>(SharedArray(RowOf(array)));
}

bool HasIndex(const Array* array, CFIndex index) noexcept {
    return index >= 0 && index < static_cast<CFIndex>(array->count);
}

} // namespace
} // namespace cf

constinit const cf::Class __CFArray::kClass = {cf::DestroyCollection, cf::EqualArrays,
                                               cf::HashArray};

CFTypeID CFArrayGetTypeID(void) {
    return cf::TypeIdOf(__CFArray::kClass);
}

constinit const CFArrayCallBacks kCFTypeArrayCallBacks = {0};

CFMutableArrayRef CFArrayCreateMutable(CFAllocatorRef, CFIndex, const CFArrayCallBacks*) {
    return cf::Allocate<cf::Array>(0, cf::kMutableArray);
}

CFArrayRef CFArrayCreate(CFAllocatorRef, const void** values, CFIndex count,
                         const CFArrayCallBacks*) {
    const auto memberCount = static_cast<std::size_t>(count); // a negative count becomes too large
    if (memberCount > cf::kMaximumCapacity || (values == nullptr && count > 0) ||
        std::find(values, values + count, nullptr) != values + count)
        return nullptr;
    auto array = cf::Owned<cf::Array>::Adopt(cf::CreateImmutable({values, memberCount}));
    if (!array || !std::ranges::all_of(cf::RowOf(array.Get()), cf::IsInteger))
        return array.Detach();
    return cf::ShareIntegers(array.Get()); // equal arrays that the caller keeps need memory once
}

CFMutableArrayRef CFArrayCreateMutableCopy(CFAllocatorRef allocator, CFIndex,
                                           CFArrayRef reference) {
    const auto* array = cf::As<cf::Array>(reference);
    if (array == nullptr)
        return nullptr;
    auto copy = cf::Owned<cf::Array>::Adopt(CFArrayCreateMutable(allocator, 0, nullptr));
    if (!copy || !cf::Reserve(copy.Get(), array->count))
        return nullptr;
    for (std::size_t i = 0; i < array->count; ++i)
        cf::Append(copy.Get(), cf::MemberAt(array, i));
    return copy.Detach();
}

CFIndex CFArrayGetCount(CFArrayRef reference) {
    const auto* array = cf::As<cf::Array>(reference);
    return array != nullptr ? array->count : 0;
}

const void* CFArrayGetValueAtIndex(CFArrayRef reference, CFIndex index) {
    const auto* array = cf::As<cf::Array>(reference);
    if (array == nullptr || !cf::HasIndex(array, index))
        return nullptr;
    return cf::MemberAt(array, static_cast<std::size_t>(index));
}

CFIndex CFArrayGetFirstIndexOfValue(CFArrayRef reference, CFRange range, const void* value) {
    const auto* array = cf::As<cf::Array>(reference);
    if (array == nullptr || value == nullptr || !cf::LiesWithin(range, array->count))
        return kCFNotFound;
    for (CFIndex i = range.location; i < range.location + range.length; ++i)
        if (cf::Equal(cf::MemberAt(array, static_cast<std::size_t>(i)), cf::AsObject(value)))
            return i;
    return kCFNotFound;
}

Boolean CFArrayContainsValue(CFArrayRef array, CFRange range, const void* value) {
    return CFArrayGetFirstIndexOfValue(array, range, value) != kCFNotFound;
}

void CFArrayAppendValue(CFMutableArrayRef reference, const void* value) {
    auto* array = cf::AsMutable<cf::Array>(reference);
    if (array != nullptr && value != nullptr)
        cf::Append(array, cf::AsObject(value));
}

void CFArraySetValueAtIndex(CFMutableArrayRef reference, CFIndex index, const void* value) {
    auto* array = cf::AsMutable<cf::Array>(reference);
    if (array == nullptr || value == nullptr)
        return;
    if (cf::HasIndex(array, index))
        CFRelease(std::exchange(array->slots[index], cf::AsObject(CFRetain(value))));
    else if (index == static_cast<CFIndex>(array->count))
        cf::Append(array, cf::AsObject(value));
}

void CFArrayRemoveValueAtIndex(CFMutableArrayRef reference, CFIndex index) {
    auto* array = cf::AsMutable<cf::Array>(reference);
    if (array == nullptr || !cf::HasIndex(array, index))
        return;
    const cf::Object** place = array->slots + index;
    const cf::Object* removed = *place;
    std::copy(place + 1, array->slots + array->count, place);
    --array->count;
    cf::Release(removed);
}
