#include "objects/SharedValues.h"

#include "objects/Array.h"
#include "objects/Data.h"
#include "objects/Date.h"
#include "objects/Dictionary.h"
#include "objects/Hash.h"
#include "objects/Number.h"
#include "objects/SharedTable.h"
#include "objects/String.h"

#include <algorithm>
#include <bit>
#include <cstddef>
#include <functional>

namespace cf {
namespace {

// The shared T with that hash that isSame, or the one that make() gives.
template<typename T, typename IsSame, typename Make>
const T* Share(std::uint32_t hash, IsSame isSame, Make make) noexcept {
    const auto matches = [&](const Object* candidate) {
        return candidate->type == &T::kClass && isSame(static_cast<const T*>(candidate));
    };
    return static_cast<const T*>(PartOfSharedTable(hash).FindOrAdd(hash, matches, make));
}

const Object* ShareNumber(NumberValue value) noexcept {
    const auto isSame = [=](const Number* number) { return ValueOf(number) == value; };
    return Share<Number>(HashWord(value.bits), isSame, [=] { return CreateNumber(value); });
}

// The array of count members, which memberAt(index) gives.
template<typename MemberAt>
const Array* ShareArray(std::size_t count, MemberAt memberAt) noexcept {
    if (count > kMaximumCapacity)
        return nullptr;
    WordHasher hasher;
    for (std::size_t i = 0; i < count; ++i)
        hasher.Add(reinterpret_cast<std::uintptr_t>(memberAt(i)));
    const auto isSame = [&](const Array* array) {
        std::size_t same = 0;
        while (same < count && same < array->count && array->slots[same] == memberAt(same))
            ++same;
        return same == count && same == array->count;
    };
    const auto make = [&]() noexcept {
        auto* array = Allocate<Array>(count * sizeof(const Object*), kImmutableArray, count);
        for (std::size_t i = 0; array != nullptr && i < count; ++i) {
            Retain(memberAt(i));
            array->slots[i] = memberAt(i);
        }
        return array;
    };
    return Share<Array>(hasher.Value(), isSame, make);
}

bool StandsBefore(const Pair& left, const Pair& right) noexcept {
    const std::uint32_t leftHash = Hash(left.key);
    const std::uint32_t rightHash = Hash(right.key);
    return leftHash != rightHash ? leftHash < rightHash : std::less<>()(left.key, right.key);
}

// The dictionary of these keys and as many values, which valueAt(index) gives in their order.
template<typename ValueAt>
const Object* ShareDictionary(const Array* keys, ValueAt valueAt) noexcept {
    const std::size_t count = keys->count;
    WordHasher hasher;
    hasher.Add(reinterpret_cast<std::uintptr_t>(keys));
    for (std::size_t i = 0; i < count; ++i)
        hasher.Add(reinterpret_cast<std::uintptr_t>(valueAt(i)));
    const auto isSame = [&](const Dictionary* dictionary) {
        if (KeysOfShared(dictionary) != keys)
            return false;
        std::size_t same = 0;
        while (same < count && ValuesOfShared(dictionary)[same] == valueAt(same))
            ++same;
        return same == count;
    };
    const auto make = [&]() noexcept {
        auto* dictionary =
            Allocate<Dictionary>((1 + count) * sizeof(const Object*), kSharedDictionary, count);
        if (dictionary == nullptr)
            return dictionary;
        Retain(keys);
        dictionary->slots[0] = keys;
        for (std::size_t i = 0; i < count; ++i) {
            Retain(valueAt(i));
            dictionary->slots[1 + i] = valueAt(i);
        }
        return dictionary;
    };
    return Share<Dictionary>(hasher.Value(), isSame, make);
}

} // namespace

const Object* SharedString(std::string_view text) noexcept {
    const std::uint32_t hash = HashBytes(text.data(), text.size());
    const auto isSame = [=](const String* string) { return TextOf(string) == text; };
    return Share<String>(hash, isSame, [=] { return CreateString(text, hash); });
}

const Object* SharedInteger(std::int64_t value) noexcept {
    if (const Object* immediate = ImmediateInteger(value); immediate != nullptr)
        return immediate;
    return ShareNumber({kSignedNumber, static_cast<std::uint64_t>(value)});
}

const Object* SharedUnsignedInteger(std::uint64_t value) noexcept {
    return ShareNumber({kUnsignedNumber, value});
}

const Object* SharedReal(double value) noexcept {
    return ShareNumber({kRealNumber, std::bit_cast<std::uint64_t>(value)});
}

const Object* SharedDate(double absoluteTime) noexcept {
    const auto bits = std::bit_cast<std::uint64_t>(absoluteTime);
    const auto isSame = [=](const Date* date) {
        return std::bit_cast<std::uint64_t>(date->absoluteTime) == bits;
    };
    return Share<Date>(HashWord(bits), isSame, [=] { return Allocate<Date>(0, absoluteTime); });
}

const Object* SharedData(std::span<const std::uint8_t> bytes) noexcept {
    const std::uint32_t hash = HashBytes(bytes.data(), bytes.size());
    const auto isSame = [=](const Data* data) { return std::ranges::equal(BytesOf(data), bytes); };
    return Share<Data>(hash, isSame, [=] { return CreateData(bytes); });
}

const Object* SharedArray(std::span<const Object* const> members) noexcept {
    return ShareArray(members.size(), [=](std::size_t index) { return members[index]; });
}

const Object* SharedDictionary(std::span<Pair> pairs) noexcept {
    std::sort(pairs.begin(), pairs.end(), StandsBefore);
    const auto keys = Owned<const Array>::Adopt(
        ShareArray(pairs.size(), [=](std::size_t index) { return pairs[index].key; }));
    if (!keys)
        return nullptr;
    return ShareDictionary(keys.Get(), [=](std::size_t index) { return pairs[index].value; });
}

const Object* SharedDictionary(const Array* keys, std::span<const Object* const> values) noexcept {
    return ShareDictionary(keys, [=](std::size_t index) { return values[index]; });
}

} // namespace cf
