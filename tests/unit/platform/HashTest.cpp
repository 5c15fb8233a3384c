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

// In whatever bits words differ. Reals and dates differ in their highest ones.
TEST(Hash, WordsThatDifferInEightBitsFindDifferentPlaces) {
    for (unsigned lowest = 0; lowest <= 56; lowest += 8) {
        std::set<std::uint32_t> places;
        for (std::uint64_t i = 0; i < kPlaces; ++i)
            places.insert(cf::HashWord(i << lowest) % kPlaces);
        EXPECT_GT(places.size(), kFewest) << lowest;
    }
}

TEST(Hash, NumbersThatAreNoSignedIntegersFindDifferentPlaces) {
    std::set<std::uint32_t> ofReals;
    std::set<std::uint32_t> ofUnsigned;
    for (std::uint64_t i = 0; i < kPlaces; ++i) {
        const CFOwned<CFTypeRef> real(cf::SharedReal(0.001 * static_cast<double>(i)));
        const CFOwned<CFTypeRef> large(cf::SharedUnsignedInteger((std::uint64_t{1} << 63) + i));
        ofReals.insert(cf::Hash(cf::AsObject(real)) % kPlaces);
        ofUnsigned.insert(cf::Hash(cf::AsObject(large)) % kPlaces);
    }
    EXPECT_GT(ofReals.size(), kFewest);
    EXPECT_GT(ofUnsigned.size(), kFewest);
}

// Arrays and dictionaries are entered in the table of shared values by what they hold. All stay
// alive, lest one have the address of another that is gone.
TEST(Hash, SharedCollectionsThatDifferInOneMemberFindDifferentPlaces) {
    std::vector<CFOwned<CFTypeRef>> values;
    std::set<std::uint32_t> places[3]; // of rows, of rows of pieces, of dictionaries
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

// Of two words and a rest.
TEST(Hash, TextsThatDifferInOneByteFindDifferentPlaces) {
    char text[] = "twenty one characters";
    for (char& byte : text) {
        std::set<std::uint32_t> places;
        for (std::uint32_t i = 0; i < kPlaces; ++i, ++byte)
            places.insert(cf::HashBytes(text, sizeof text) % kPlaces);
        EXPECT_GT(places.size(), kFewest) << &byte - text;
    }
}

TEST(Hash, TextsOfZerosFindDifferentPlaces) {
    const char zeros[kPlaces] = {};
    std::set<std::uint32_t> places;
    for (std::size_t length = 0; length < kPlaces; ++length)
        places.insert(cf::HashBytes(zeros, length) % kPlaces);
    EXPECT_GT(places.size(), kFewest);
}

TEST(Hash, HasAsManyBitsAsAnObjectHasRoomFor) {
    std::uint32_t all = 0;
    for (std::uint64_t i = 0; i < 1000; ++i)
        all |= cf::HashWord(i);
    EXPECT_EQ(all, 0xFFFFFFU);
}

} // namespace
