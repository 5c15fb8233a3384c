#include "objects/Hash.h"

#include "TestObjects.h"
#include "objects/SharedValues.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <set>
#include <span>
#include <vector>

namespace {

// Tables take an entry's place from the lowest bits of its hash. Of 256 random places, 162 differ
// on average and fewer than 120 hardly ever.
constexpr std::uint32_t kPlaces = 256;
constexpr std::size_t kFewest = 120;

// The number of different places of hashOf(0) to hashOf(255).
template<typename HashOf>
std::size_t CountPlaces(HashOf hashOf) {
    std::set<std::uint32_t> places;
    for (std::uint32_t i = 0; i < kPlaces; ++i)
        places.insert(hashOf(i) % kPlaces);
    return places.size();
}

// Integers differ in their lowest bits, reals and dates in their highest ones.
TEST(Hash, WordsThatDifferInEightBitsFindDifferentPlaces) {
    for (unsigned lowest = 0; lowest <= 56; lowest += 8)
        EXPECT_GT(CountPlaces([=](std::uint64_t i) { return cf::HashWord(i << lowest); }), kFewest)
            << lowest;
}

TEST(Hash, NumbersThatAreNoSignedIntegersFindDifferentPlaces) {
    const auto hashOf = [](const cf::Object* owned) {
        return cf::Hash(cf::Owned<const cf::Object>::Adopt(owned).Get());
    };
    EXPECT_GT(CountPlaces([&](std::uint32_t i) { return hashOf(cf::SharedReal(0.001 * i)); }),
              kFewest);
    constexpr std::uint64_t kNoSignedInteger = std::uint64_t{1} << 63;
    EXPECT_GT(CountPlaces([&](std::uint32_t i) {
                  return hashOf(cf::SharedUnsignedInteger(kNoSignedInteger + i));
              }),
              kFewest);
}

// The hash of a shared collection is the hash of its members' addresses. All collections stay
// alive: a new one would reuse the address of a released one.
TEST(Hash, SharedCollectionsThatDifferInOneMemberFindDifferentPlaces) {
    std::vector<CFOwned<CFTypeRef>> values;
    std::set<std::uint32_t> places[3]; // of short arrays, of arrays in pieces, of dictionaries
    const cf::Object* members[40];
    std::ranges::fill(members, cf::AsObject(kCFBooleanTrue));
    for (std::uint32_t i = 0; i < kPlaces; ++i) {
        members[0] = cf::SharedInteger(i);
        cf::Pair pairs[] = {{cf::AsObject(CFSTR("key")), members[0]}};
        const cf::Object* const made[] = {cf::SharedArray(std::span(members, 2)),
                                          cf::SharedArray(members), cf::SharedDictionary(pairs)};
        for (std::size_t kind = 0; kind < std::size(made); ++kind) {
            places[kind].insert(made[kind]->hashValue % kPlaces);
            values.emplace_back(made[kind]);
        }
    }
    for (const auto& each : places)
        EXPECT_GT(each.size(), kFewest);
}

// The text has two words and a rest.
TEST(Hash, TextsThatDifferInOneByteFindDifferentPlaces) {
    char text[] = "twenty one characters";
    for (char& byte : text) {
        const auto hashOfNext = [&](std::uint32_t) {
            ++byte;
            return cf::HashBytes(text, sizeof text);
        };
        EXPECT_GT(CountPlaces(hashOfNext), kFewest) << &byte - text;
    }
}

TEST(Hash, TextsOfZerosFindDifferentPlaces) {
    const char zeros[kPlaces] = {};
    EXPECT_GT(CountPlaces([&](std::size_t length) { return cf::HashBytes(zeros, length); }),
              kFewest);
}

TEST(Hash, UsesEveryBitOfTheFieldOfAnObject) {
    std::uint32_t all = 0;
    for (std::uint64_t i = 0; i < 1000; ++i)
        all |= cf::HashWord(i);
    EXPECT_EQ(all, 0xFFFFFFU);
}

} // namespace
