#include "objects/Dictionary.h"

#include "objects/OpenAddressing.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <utility>

namespace cf {
namespace {

const Object*& KeyAt(const Dictionary* dictionary, std::size_t place) noexcept {
    return dictionary->slots[2 * place];
}

const Object*& ValueAt(const Dictionary* dictionary, std::size_t place) noexcept {
    return dictionary->slots[2 * place + 1];
}

auto IsFreeIn(const Dictionary* dictionary) noexcept {
    return [dictionary](std::size_t place) { return KeyAt(dictionary, place) == nullptr; };
}

// The place of the key, or the free place where to insert it. Precondition: the dictionary is
// mutable and its capacity is not 0.
std::size_t FindPlace(const Dictionary* dictionary, const Object* key) noexcept {
    return Probe(Hash(key), dictionary->capacity, IsFreeIn(dictionary),
                 [&](std::size_t place) { return Equal(KeyAt(dictionary, place), key); });
}

const Object* FindShared(const Dictionary* dictionary, const Object* key) noexcept {
    const auto keys = RowOf(KeysOfShared(dictionary));
    const std::uint32_t hash = Hash(key);
    auto candidate = std::ranges::lower_bound(keys, hash, {}, Hash);
    for (; candidate != keys.end() && Hash(*candidate) == hash; ++candidate)
        if (Equal(*candidate, key))
            return ValuesOfShared(dictionary)[static_cast<std::size_t>(candidate - keys.begin())];
    return nullptr;
}

bool EqualDictionaries(const Object* first, const Object* second) noexcept {
    const auto* left = static_cast<const Dictionary*>(first);
    const auto* right = static_cast<const Dictionary*>(second);
    bool equal = left->count == right->count;
    VisitPairs(left, [&](const Object* key, const Object* value) {
        const Object* other = equal ? FindValue(right, key) : nullptr;
        equal = other != nullptr && Equal(value, other);
    });
    return equal;
}

// Not a hash of the pairs: values may be changed later, and hashing all of them would be slow.
std::uint32_t HashDictionary(const Object* object) noexcept {
    return static_cast<const Dictionary*>(object)->count;
}

// Moves the pairs to a new table with that many places. Returns false if memory is short.
bool Resize(Dictionary* dictionary, std::size_t capacity) noexcept {
    if (capacity > kMaximumCapacity)
        return false;
    void* memory = std::calloc(2 * capacity, sizeof(const Object*));
    if (memory == nullptr)
        return false;
    Dictionary previous(kMutableDictionary);
    previous.slots = std::exchange(dictionary->slots, static_cast<const Object**>(memory));
    previous.capacity = std::exchange(dictionary->capacity, static_cast<std::uint32_t>(capacity));
    VisitPairs(&previous, [&](const Object* key, const Object* value) {
        const std::size_t place = FindPlace(dictionary, key);
        KeyAt(dictionary, place) = key;
        ValueAt(dictionary, place) = value;
    });
    std::free(previous.slots);
    return true;
}

// Retains the key and the value only if they are stored.
void Set(Dictionary* dictionary, const Object* key, const Object* value) noexcept {
    if (FindValue(dictionary, key) == nullptr) {
        if (!HasCapacityForOneMore(dictionary->count, dictionary->capacity) &&
            !Resize(dictionary, CapacityFor(std::size_t{dictionary->count} + 1)))
            return;
        ++dictionary->count;
    }
    Retain(key);
    Retain(value);
    const std::size_t place = FindPlace(dictionary, key);
    CFTypeRef previousKey = std::exchange(KeyAt(dictionary, place), key);
    CFTypeRef previousValue = std::exchange(ValueAt(dictionary, place), value);
    CFRelease(previousKey); // the place may have been free
    CFRelease(previousValue);
}

void Remove(Dictionary* dictionary, const Object* key) noexcept {
    if (FindValue(dictionary, key) == nullptr)
        return;
    const std::size_t place = FindPlace(dictionary, key);
    const Object* removedKey = KeyAt(dictionary, place);
    const Object* removedValue = ValueAt(dictionary, place);
    const std::size_t gap = CloseGap(
        place, dictionary->capacity, IsFreeIn(dictionary),
        [&](std::size_t at) { return std::size_t{Hash(KeyAt(dictionary, at))}; },
        [&](std::size_t from, std::size_t to) {
            KeyAt(dictionary, to) = KeyAt(dictionary, from);
            ValueAt(dictionary, to) = ValueAt(dictionary, from);
        });
    KeyAt(dictionary, gap) = nullptr;
    ValueAt(dictionary, gap) = nullptr;
    --dictionary->count;
    Release(removedKey);
    Release(removedValue);
}

} // namespace

const Object* FindValue(const Dictionary* dictionary, const Object* key) noexcept {
    if (dictionary->count == 0)
        return nullptr;
    if (dictionary->kind == kSharedDictionary)
        return FindShared(dictionary, key);
    return ValueAt(dictionary, FindPlace(dictionary, key));
}

} // namespace cf

constinit const cf::Class __CFDictionary::kClass = {cf::DestroyCollection, cf::EqualDictionaries,
                                                    cf::HashDictionary};

CFTypeID CFDictionaryGetTypeID(void) {
    return cf::TypeIdOf(__CFDictionary::kClass);
}

constinit const CFDictionaryKeyCallBacks kCFTypeDictionaryKeyCallBacks = {0};
constinit const CFDictionaryValueCallBacks kCFTypeDictionaryValueCallBacks = {0};

CFMutableDictionaryRef CFDictionaryCreateMutable(CFAllocatorRef, CFIndex,
                                                 const CFDictionaryKeyCallBacks*,
                                                 const CFDictionaryValueCallBacks*) {
    return cf::Allocate<cf::Dictionary>(0, cf::kMutableDictionary);
}

CFMutableDictionaryRef CFDictionaryCreateMutableCopy(CFAllocatorRef allocator, CFIndex,
                                                     CFDictionaryRef reference) {
    const auto* dictionary = cf::As<cf::Dictionary>(reference);
    if (dictionary == nullptr)
        return nullptr;
    auto copy =
        cf::Owned<cf::Dictionary>::Adopt(CFDictionaryCreateMutable(allocator, 0, nullptr, nullptr));
    if (!copy || !cf::Resize(copy.Get(), cf::CapacityFor(dictionary->count)))
        return nullptr;
    cf::VisitPairs(dictionary, [&](const cf::Object* key, const cf::Object* value) {
        cf::Set(copy.Get(), key, value);
    });
    return copy.Detach();
}

CFIndex CFDictionaryGetCount(CFDictionaryRef reference) {
    const auto* dictionary = cf::As<cf::Dictionary>(reference);
    return dictionary != nullptr ? dictionary->count : 0;
}

const void* CFDictionaryGetValue(CFDictionaryRef reference, const void* key) {
    const auto* dictionary = cf::As<cf::Dictionary>(reference);
    if (dictionary == nullptr || key == nullptr)
        return nullptr;
    return cf::FindValue(dictionary, cf::AsObject(key));
}

Boolean CFDictionaryContainsKey(CFDictionaryRef dictionary, const void* key) {
    return CFDictionaryGetValue(dictionary, key) != nullptr;
}

void CFDictionaryGetKeysAndValues(CFDictionaryRef reference, const void** keys,
                                  const void** values) {
    const auto* dictionary = cf::As<cf::Dictionary>(reference);
    if (dictionary == nullptr)
        return;
    cf::VisitPairs(dictionary, [&](const cf::Object* key, const cf::Object* value) {
        if (keys != nullptr)
            *keys++ = key;
        if (values != nullptr)
            *values++ = value;
    });
}

void CFDictionarySetValue(CFMutableDictionaryRef reference, const void* key, const void* value) {
    auto* dictionary = cf::AsMutable<cf::Dictionary>(reference);
    if (dictionary != nullptr && key != nullptr && value != nullptr)
        cf::Set(dictionary, cf::AsObject(key), cf::AsObject(value));
}

void CFDictionaryRemoveValue(CFMutableDictionaryRef reference, const void* key) {
    auto* dictionary = cf::AsMutable<cf::Dictionary>(reference);
    if (dictionary != nullptr && key != nullptr)
        cf::Remove(dictionary, cf::AsObject(key));
}
