/* What would be larger than anything may be. No test has the memory for that, so it is pretended.
 */

#include "AllocationFaults.h"
#include "TestObjects.h"
#include "objects/Array.h"
#include "objects/Dictionary.h"
#include "objects/OpenAddressing.h"
#include "objects/SharedValues.h"

#include <gtest/gtest.h>

#include <bit>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <random>
#include <set>
#include <span>
#include <utility>
#include <vector>

namespace {

constexpr std::uint32_t kMostMembers = std::uint32_t{1} << 30;

TEST(Capacity, ArrayOfTheGreatestCountTakesNoMore) {
    const auto array = NewArray();
    CFArrayAppendValue(array, CFSTR("first"));
    auto* inside = cf::As<cf::Array>(CFMutableArrayRef{array});
    const std::uint32_t count = std::exchange(inside->count, kMostMembers);
    CFArrayAppendValue(array, CFSTR("one too many"));
    EXPECT_EQ(std::exchange(inside->count, count), kMostMembers);
    CFArrayAppendValue(array, CFSTR("second"));
    EXPECT_EQ(CFArrayGetCount(array), 2);
    EXPECT_EQ(CFArrayGetValueAtIndex(array, 1), CFSTR("second"));
}

TEST(Capacity, ArrayAsksForMemoryUpToTheGreatestCount) {
    const auto array = NewArray();
    auto* inside = cf::As<cf::Array>(CFMutableArrayRef{array});
    inside->count = kMostMembers - 1;
    bool hasAsked = false;
    {
        const AllocationFault fault(1);
        CFArrayAppendValue(array, CFSTR("last"));
        hasAsked = AllocationFault::Happened();
    }
    EXPECT_TRUE(hasAsked);
    EXPECT_EQ(std::exchange(inside->count, 0U), kMostMembers - 1);
}

TEST(Capacity, DictionaryOfTheGreatestCountTakesNoMore) {
    const auto dictionary = NewDictionary();
    CFDictionarySetValue(dictionary, CFSTR("first"), kCFBooleanTrue);
    auto* inside = cf::As<cf::Dictionary>(CFMutableDictionaryRef{dictionary});
    const std::uint32_t count = std::exchange(inside->count, kMostMembers);
    CFDictionarySetValue(dictionary, CFSTR("one too many"), kCFBooleanTrue);
    EXPECT_EQ(std::exchange(inside->count, count), kMostMembers);
    EXPECT_EQ(CFDictionaryGetValue(dictionary, CFSTR("one too many")), nullptr);
    EXPECT_EQ(CFDictionaryGetValue(dictionary, CFSTR("first")), kCFBooleanTrue);
}

TEST(Capacity, ArrayIsNotMadeOfMoreThanTheGreatestCount) {
    const void* members[] = {CFSTR("member")};
    EXPECT_EQ(CFArrayCreate(nullptr, members, CFIndex{kMostMembers} + 1, &kCFTypeArrayCallBacks),
              nullptr);
    const cf::Object* shared[] = {cf::AsObject(kCFBooleanTrue)};
    EXPECT_EQ(cf::SharedArray(std::span(shared, kMostMembers + 1)), nullptr);
}

TEST(Capacity, DataIsNotMadeOfMoreThanHalfTheAddresses) {
    const UInt8 byte = 0;
    EXPECT_EQ(CFDataCreate(nullptr, &byte, std::numeric_limits<CFIndex>::max()), nullptr);
}

constexpr std::size_t kMembers = 10000;

// Whether a container asks for memory less than 16 times, log2 of its members and some, while that
// many are added one by one.
template<typename Add>
bool AllocatesSeldom(Add add) {
    const AllocationFault fault(16);
    for (std::size_t i = 0; i < kMembers; ++i)
        add(i);
    return !AllocationFault::Happened();
}

TEST(Capacity, DataThatGrowsByteByByteAllocatesSeldom) {
    const CFOwned<CFMutableDataRef> data(CFDataCreateMutable(nullptr, 0));
    const UInt8 byte = 7;
    EXPECT_TRUE(AllocatesSeldom([&](std::size_t) { CFDataAppendBytes(data, &byte, 1); }));
    EXPECT_EQ(CFDataGetLength(data), static_cast<CFIndex>(kMembers));
}

TEST(Capacity, ArrayThatGrowsOneByOneAllocatesSeldom) {
    const auto array = NewArray();
    EXPECT_TRUE(AllocatesSeldom([&](std::size_t) { CFArrayAppendValue(array, kCFBooleanTrue); }));
    EXPECT_EQ(CFArrayGetCount(array), static_cast<CFIndex>(kMembers));
}

TEST(Capacity, DictionaryThatGrowsOneByOneAllocatesSeldom) {
    const auto keys = NewArray();
    for (std::size_t i = 0; i < kMembers; ++i) {
        const CFOwned<CFNumberRef> key(CFNumberCreate(nullptr, kCFNumberSInt64Type, &i));
        CFArrayAppendValue(keys, key);
    }
    const auto dictionary = NewDictionary();
    EXPECT_TRUE(AllocatesSeldom([&](std::size_t i) {
        const void* const key = CFArrayGetValueAtIndex(keys, static_cast<CFIndex>(i));
        CFDictionarySetValue(dictionary, key, kCFBooleanTrue);
    }));
    EXPECT_EQ(CFDictionaryGetCount(dictionary), static_cast<CFIndex>(kMembers));
}

TEST(Capacity, TableIsAtMostThreeQuartersFull) {
    for (std::size_t capacity = cf::kSmallestTable; capacity <= 1024; capacity *= 2)
        for (std::size_t count = 0; count < capacity; ++count)
            EXPECT_EQ(cf::HasCapacityForOneMore(count, capacity), count < capacity / 4 * 3)
                << count;
}

TEST(Capacity, NewTableIsTheSmallestThatIsNotTooFull) {
    EXPECT_EQ(cf::CapacityFor(0), cf::kSmallestTable);
    for (std::size_t count = 1; count < 1000; ++count) {
        const std::size_t capacity = cf::CapacityFor(count);
        EXPECT_TRUE(std::has_single_bit(capacity)) << count;
        EXPECT_TRUE(cf::HasCapacityForOneMore(count - 1, capacity)) << count;
        EXPECT_TRUE(capacity == cf::kSmallestTable ||
                    !cf::HasCapacityForOneMore(count, capacity / 2))
            << count;
    }
}

// Numbers that are their own hashes, zero being a free place.
class Table {
    auto IsFree() const {
        return [this](std::size_t at) { return places_[at] == 0; };
    }
    template<typename IsSought>
    std::size_t Find(std::uint32_t hash, IsSought isSought) const {
        return cf::Probe(hash, places_.size(), IsFree(), isSought);
    }

public:
    explicit Table(std::size_t capacity) : places_(capacity) {}

    // Returns how many places were taken that the probe met.
    std::size_t Add(std::uint32_t hash) {
        std::size_t met = 0;
        places_[Find(hash, [&](std::size_t) { return ++met, false; })] = hash;
        return met;
    }
    bool Has(std::uint32_t hash) const {
        return places_[Find(hash, [&](std::size_t at) { return places_[at] == hash; })] == hash;
    }
    void Remove(std::uint32_t hash) {
        const std::size_t place = Find(hash, [&](std::size_t at) { return places_[at] == hash; });
        places_[cf::CloseGap(
            place, places_.size(), IsFree(), [this](std::size_t at) { return places_[at]; },
            [this](std::size_t from, std::size_t to) { places_[to] = places_[from]; })] = 0;
    }

private:
    std::vector<std::uint32_t> places_;
};

// As many as fill three quarters of it, of hashes that have a few bits more than tell the home.
TEST(Capacity, TableOfMorePlacesThanHomesIsProbedInFewSteps) {
    constexpr std::size_t kPlaces = std::size_t{4} << cf::kHomeBits;
    constexpr std::size_t kEntries = kPlaces / 4 * 3;
    Table table(kPlaces);
    std::mt19937 random(1);
    std::uniform_int_distribution<std::uint32_t> hashes(1, (1U << 24) - 1);
    constexpr std::size_t kFewSteps = 16 * kEntries;
    std::size_t met = 0;
    for (std::size_t i = 0; i < kEntries && met < kFewSteps; ++i)
        met += table.Add(hashes(random));
    EXPECT_LT(met, kFewSteps);
}

// Some homes have more entries than places, so that they stand in the way of the next ones'.
TEST(Capacity, TableOfMorePlacesThanHomesKeepsItsEntriesWhenOthersGo) {
    constexpr std::uint32_t kEntries = 3000;
    const auto hashOf = [](std::uint32_t i) {
        return ((1U << cf::kHomeBits) - 1000 + i * i % 1009) | (i % 16) << cf::kHomeBits;
    };
    Table table(std::size_t{4} << cf::kHomeBits);
    std::set<std::uint32_t> kept;
    for (std::uint32_t i = 0; i < kEntries; ++i)
        if (kept.insert(hashOf(i)).second)
            table.Add(hashOf(i));
    for (std::uint32_t i = 0; i < kEntries; i += 2)
        if (kept.erase(hashOf(i)) > 0)
            table.Remove(hashOf(i));
    EXPECT_GT(kept.size(), 100U);
    for (std::uint32_t i = 0; i < kEntries; ++i)
        EXPECT_EQ(table.Has(hashOf(i)), kept.contains(hashOf(i))) << i;
}

} // namespace
