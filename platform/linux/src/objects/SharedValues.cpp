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
#include <array>
#include <bit>
#include <cstddef>
#include <functional>

namespace cf {
namespace {

// The shared T with that hash for which isSame(value) is true, or else the result of make().
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

// The shared array with these slots, which slotAt(index) returns. The kind and the count determine
// the number of slots.
template<typename SlotAt>
const Array* ShareSlots(CollectionKind kind, std::size_t count, std::size_t slotCount,
                        unsigned pieceBits, SlotAt slotAt) noexcept {
    WordHasher hasher;
    for (std::size_t i = 0; i < slotCount; ++i)
        hasher.Add(reinterpret_cast<std::uintptr_t>(slotAt(i)));
    const auto isSame = [&](const Array* array) {
        if (array->kind != kind || array->count != count)
            return false;
        std::size_t same = 0;
        while (same < slotCount && array->slots[same] == slotAt(same))
            ++same;
        return same == slotCount;
    };
    const auto make = [&]() noexcept {
        auto* array = Allocate<Array>(slotCount * sizeof(const Object*), kind, count);
        if (array == nullptr)
            return array;
        array->capacity = pieceBits;
        for (std::size_t i = 0; i < slotCount; ++i) {
            Retain(slotAt(i));
            array->slots[i] = slotAt(i);
        }
        return array;
    };
    return Share<Array>(hasher.Value(), isSame, make);
}

// The shared array with these members in one row.
template<typename SlotAt>
const Array* ShareRow(std::size_t count, SlotAt memberAt) noexcept {
    return ShareSlots(kImmutableArray, count, count, 0, memberAt);
}

const Array* ShareArray(std::span<const Object* const> members) noexcept;

// The shared array of pieces. Precondition: more than kMaximumRowLength members. Recurses at most 6
// levels.
const Array* SharePieces(std::span<const Object* const> members) noexcept {
    unsigned pieceBits = kPieceBits;
    while (members.size() > kMaximumRowLength << pieceBits)
        pieceBits += kPieceBits;
    const std::size_t pieceSize = std::size_t{1} << pieceBits;
    std::array<Owned<const Array>, kMaximumRowLength> pieces;
    std::size_t pieceCount = 0;
    for (auto rest = members; !rest.empty(); ++pieceCount) {
        const auto piece = rest.first(std::min(rest.size(), pieceSize));
        pieces[pieceCount] = Owned<const Array>::Adopt(ShareArray(piece));
        if (!pieces[pieceCount])
            return nullptr;
        rest = rest.subspan(piece.size());
    }
    return ShareSlots(kArrayOfPieces, members.size(), pieceCount, pieceBits,
                      [&](std::size_t index) { return pieces[index].Get(); });
}

const Array* ShareArray(std::span<const Object* const> members) noexcept {
    if (members.size() > kMaximumRowLength)
        return SharePieces(members);
    return ShareRow(members.size(), [=](std::size_t index) { return members[index]; });
}

bool StandsBefore(const Pair& left, const Pair& right) noexcept {
    const std::uint32_t leftHash = Hash(left.key);
    const std::uint32_t rightHash = Hash(right.key);
    return leftHash != rightHash ? leftHash < rightHash : std::less<>()(left.key, right.key);
}

// The hash of the dictionary with these keys and the values valueAt(index).
template<typename ValueAt>
std::uint32_t HashPairs(const Array* keys, ValueAt valueAt) noexcept {
    WordHasher hasher;
    hasher.Add(reinterpret_cast<std::uintptr_t>(keys));
    for (std::size_t i = 0; i < keys->count; ++i)
        hasher.Add(reinterpret_cast<std::uintptr_t>(valueAt(i)));
    return hasher.Value();
}

// The shared dictionary with these keys and the values valueAt(index).
template<typename ValueAt>
const Object* SharePairs(const Array* keys, ValueAt valueAt, std::uint32_t hash) noexcept {
    const std::size_t count = keys->count;
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
    return Share<Dictionary>(hash, isSame, make);
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
    return members.size() <= kMaximumCapacity ? ShareArray(members) : nullptr;
}

const Object* SharedDictionary(std::span<Pair> pairs) noexcept {
    std::sort(pairs.begin(), pairs.end(), StandsBefore);
    const auto keys = Owned<const Array>::Adopt(
        ShareRow(pairs.size(), [=](std::size_t index) { return pairs[index].key; }));
    if (!keys)
        return nullptr;
    const auto valueAt = [=](std::size_t index) { return pairs[index].value; };
    return SharePairs(keys.Get(), valueAt, HashPairs(keys.Get(), valueAt));
}

std::uint32_t HashDictionary(const Array* keys, std::span<const Object* const> values) noexcept {
    return HashPairs(keys, [=](std::size_t index) { return values[index]; });
}

void PrefetchSharedPlace(std::uint32_t hash) noexcept {
    PartOfSharedTable(hash).PrefetchPlace(hash);
}

void PrefetchSharedValues(std::uint32_t hash) noexcept {
    PartOfSharedTable(hash).PrefetchValues(hash);
}

const Object* SharedDictionary(const Array* keys, std::span<const Object* const> values,
                               std::uint32_t hash) noexcept {
    return SharePairs(keys, [=](std::size_t index) { return values[index]; }, hash);
}

} // namespace cf
