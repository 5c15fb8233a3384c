/* Limits of counts and tables. Counts too large for the memory of a test are written into the
   objects. */

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

constexpr std::uint32_t kMaximumCount = std::uint32_t{1} << 30;

template<typename Body>
bool AllocatesAtLeast(std::size_t count, Body body) {
    const AllocationFault fault(count);
    body();
    return AllocationFault::Happened();
}

TEST(Capacity, ArrayOfTheMaximumCountIgnoresAnotherMember) {
    const auto array = NewArray();
    CFArrayAppendValue(array, CFSTR("first"));
    auto* inside = cf::As<cf::Array>(CFMutableArrayRef{array});
    const std::uint32_t count = std::exchange(inside->count, kMaximumCount);
    CFArrayAppendValue(array, CFSTR("one too many"));
    EXPECT_EQ(std::exchange(inside->count, count), kMaximumCount);
    CFArrayAppendValue(array, CFSTR("second"));
    EXPECT_EQ(CFArrayGetCount(array), 2);
    EXPECT_EQ(CFArrayGetValueAtIndex(array, 1), CFSTR("second"));
}

TEST(Capacity, ArrayBelowTheMaximumCountAllocates) {
    const auto array = NewArray();
    auto* inside = cf::As<cf::Array>(CFMutableArrayRef{array});
    inside->count = kMaximumCount - 1;
    EXPECT_TRUE(AllocatesAtLeast(1, [&] { CFArrayAppendValue(array, CFSTR("last")); }));
    EXPECT_EQ(std::exchange(inside->count, 0U), kMaximumCount - 1);
}

TEST(Capacity, DictionaryOfTheMaximumCountIgnoresAnotherPair) {
    const auto dictionary = NewDictionary();
    CFDictionarySetValue(dictionary, CFSTR("first"), kCFBooleanTrue);
    auto* inside = cf::As<cf::Dictionary>(CFMutableDictionaryRef{dictionary});
    const std::uint32_t count = std::exchange(inside->count, kMaximumCount);
    CFDictionarySetValue(dictionary, CFSTR("one too many"), kCFBooleanTrue);
    EXPECT_EQ(std::exchange(inside->count, count), kMaximumCount);
    EXPECT_EQ(CFDictionaryGetValue(dictionary, CFSTR("one too many")), nullptr);
    EXPECT_EQ(CFDictionaryGetValue(dictionary, CFSTR("first")), kCFBooleanTrue);
}

TEST(Capacity, ArrayIsNotCreatedAboveTheMaximumCount) {
    const void* members[] = {CFSTR("member")};
    EXPECT_EQ(CFArrayCreate(nullptr, members, CFIndex{kMaximumCount} + 1, &kCFTypeArrayCallBacks),
              nullptr);
    const cf::Object* shared[] = {cf::AsObject(kCFBooleanTrue)};
    EXPECT_EQ(cf::SharedArray(std::span(shared, kMaximumCount + 1)), nullptr);
}

TEST(Capacity, DataIsNotCreatedOfTheMaximumIndex) {
    const UInt8 byte = 0;
    EXPECT_EQ(CFDataCreate(nullptr, &byte, std::numeric_limits<CFIndex>::max()), nullptr);
}

constexpr std::size_t kMembers = 10000;

// True if add(i) for 10,000 members allocates less than 16 times: log2 of their number and some.
template<typename Add>
bool AllocatesSeldom(Add add) {
    return !AllocatesAtLeast(16, [&] {
        for (std::size_t i = 0; i < kMembers; ++i)
            add(i);
    });
}

TEST(Capacity, DataGrowingByteByByteAllocatesSeldom) {
    const CFOwned<CFMutableDataRef> data(CFDataCreateMutable(nullptr, 0));
    const UInt8 byte = 7;
    EXPECT_TRUE(AllocatesSeldom([&](std::size_t) { CFDataAppendBytes(data, &byte, 1); }));
    EXPECT_EQ(CFDataGetLength(data), static_cast<CFIndex>(kMembers));
}

TEST(Capacity, ArrayGrowingOneByOneAllocatesSeldom) {
    const auto array = NewArray();
    EXPECT_TRUE(AllocatesSeldom([&](std::size_t) { CFArrayAppendValue(array, kCFBooleanTrue); }));
    EXPECT_EQ(CFArrayGetCount(array), static_cast<CFIndex>(kMembers));
}

TEST(Capacity, DictionaryGrowingOneByOneAllocatesSeldom) {
    std::vector<CFOwned<CFNumberRef>> keys; // CFNumberCreate counts as an allocation
    for (std::size_t i = 0; i < kMembers; ++i)
        keys.push_back(Integer(static_cast<std::int64_t>(i)));
    const auto dictionary = NewDictionary();
    EXPECT_TRUE(AllocatesSeldom(
        [&](std::size_t i) { CFDictionarySetValue(dictionary, keys[i], kCFBooleanTrue); }));
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

// A table of numbers that are their own hashes; zero marks a free place.
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

    // Returns the number of occupied places that the probe met.
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

// The hashes have a few more bits than a home, and fill three quarters of the table.
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

// Some homes have more entries than places: their entries occupy the places of the next homes.
TEST(Capacity, TableOfMorePlacesThanHomesKeepsTheOtherEntriesOnRemoval) {
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
