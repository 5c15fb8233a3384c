/*
 * Different values of equal hash. A hash has 24 bits and a key that is random in each process: such
 * values are found by trying. Of 20,000 values, about a dozen pairs have one hash.
 */

#include "TestObjects.h"
#include "objects/Hash.h"
#include "objects/SharedValues.h"

#include <gtest/gtest.h>

#include <array>
#include <bit>
#include <cstdint>
#include <functional>
#include <set>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

namespace {

using Value = CFOwned<CFTypeRef>;

constexpr int kMany = 20000;

Value Text(const std::string& text) {
    return Value(cf::SharedString(text));
}

// Two texts of one hash.
std::pair<std::string, std::string> TextsOfEqualHash() {
    std::unordered_map<std::uint32_t, std::string> seen;
    for (int i = 0;; ++i) {
        const std::string text = "text " + std::to_string(i);
        const auto [other, isNew] = seen.emplace(cf::HashBytes(text.data(), text.size()), text);
        if (!isNew)
            return {other->second, text};
    }
}

TEST(EqualHashes, SharedValuesOfEveryTypeAreDifferentObjects) {
    const std::function<const cf::Object*(std::uint32_t)> makers[] = {
        [](std::uint32_t i) { return cf::SharedString(std::to_string(i)); },
        [](std::uint32_t i) { return cf::SharedInteger(kLarge + i); },
        [](std::uint32_t i) { return cf::SharedUnsignedInteger(UINT64_MAX - i); },
        [](std::uint32_t i) { return cf::SharedReal(i + 0.5); },
        [](std::uint32_t i) { return cf::SharedDate(i + 0.5); },
        [](std::uint32_t i) {
            const auto bytes = std::bit_cast<std::array<std::uint8_t, sizeof i>>(i);
            return cf::SharedData(bytes);
        },
        [](std::uint32_t i) { return cf::SharedArray(std::array{cf::SharedInteger(i)}); },
        [](std::uint32_t i) {
            return cf::SharedArray(std::array{cf::SharedInteger(i), cf::SharedInteger(-1)});
        },
        [](std::uint32_t i) {
            cf::Pair pairs[] = {{cf::AsObject(CFSTR("key")), cf::SharedInteger(i)}};
            return cf::SharedDictionary(pairs);
        },
        [](std::uint32_t i) {
            cf::Pair pairs[] = {{cf::SharedInteger(i), cf::AsObject(kCFBooleanTrue)}};
            return cf::SharedDictionary(pairs);
        },
    };
    std::vector<Value> values;
    std::set<CFTypeRef> objects;
    for (const auto& make : makers) {
        for (std::uint32_t i = 0; i < kMany; ++i) {
            values.emplace_back(make(i));
            objects.insert(values.back());
        }
    }
    EXPECT_EQ(objects.size(), values.size());
}

TEST(EqualHashes, KeyIsNotFoundByAnotherOfEqualHash) {
    const auto [present, absent] = TextsOfEqualHash();
    const Value presentKey = Text(present);
    const Value absentKey = Text(absent);
    cf::Pair pairs[] = {{cf::AsObject(presentKey), cf::AsObject(kCFBooleanTrue)}};
    const Value dictionary(cf::SharedDictionary(pairs));
    const auto* const shared = static_cast<CFDictionaryRef>(dictionary.Get());
    EXPECT_EQ(CFDictionaryGetValue(shared, presentKey), kCFBooleanTrue);
    EXPECT_EQ(CFDictionaryGetValue(shared, absentKey), nullptr);
    const CFOwned copy(CFDictionaryCreateMutableCopy(nullptr, 0, shared));
    EXPECT_EQ(CFDictionaryGetValue(copy, presentKey), kCFBooleanTrue);
    EXPECT_EQ(CFDictionaryGetValue(copy, absentKey), nullptr);
}

TEST(EqualHashes, DictionaryOfTheReversedPairsIsTheSameObject) {
    const auto [one, other] = TextsOfEqualHash();
    const Value first = Text(one);
    const Value second = Text(other);
    cf::Pair pairs[] = {{cf::AsObject(first), cf::AsObject(kCFBooleanTrue)},
                        {cf::AsObject(second), cf::AsObject(kCFBooleanFalse)}};
    cf::Pair reversed[] = {pairs[1], pairs[0]};
    const Value dictionary(cf::SharedDictionary(pairs));
    EXPECT_EQ(dictionary.Get(), Value(cf::SharedDictionary(reversed)).Get());
    const auto* const shared = static_cast<CFDictionaryRef>(dictionary.Get());
    EXPECT_EQ(CFDictionaryGetValue(shared, first), kCFBooleanTrue);
    EXPECT_EQ(CFDictionaryGetValue(shared, second), kCFBooleanFalse);
}

} // namespace
