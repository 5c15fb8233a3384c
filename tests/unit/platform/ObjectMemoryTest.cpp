/* Objects whose allocations fail. The address sanitizer finds leaks. */

#include "AllocationFaults.h"
#include "TestObjects.h"
#include "objects/Hash.h"
#include "objects/SharedTable.h"
#include "objects/SharedValues.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace {

// create() allocates at least once and returns null exactly if an allocation failed.
void ExpectNullWithoutMemory(const char* name, const std::function<CFTypeRef()>& create) {
    SCOPED_TRACE(name);
    CFTypeRef created = nullptr;
    const std::size_t runs = SweepAllocationFaults([&](std::size_t) { created = create(); },
                                                   [&](std::size_t nth, bool happened) {
                                                       EXPECT_EQ(created == nullptr, happened)
                                                           << "allocation " << nth;
                                                       CFRelease(created);
                                                   });
    EXPECT_GT(runs, 1U);
}

std::size_t AllocationsOf(const std::function<void()>& body) {
    return SweepAllocationFaults([&](std::size_t) { body(); }, [](std::size_t, bool) {}) - 1;
}

TEST(OutOfMemory, CreationReturnsNull) {
    const std::int64_t large = kLarge;
    const double real = 1.5;
    const UniChar units[] = {'a', 0xD83D};
    const auto* path = reinterpret_cast<const UInt8*>("/mnt");
    const void* members[] = {CFSTR("a"), CFSTR("b")};
    const auto integer = Integer(large);
    const void* integers[] = {integer, integer};
    const CFOwned<CFArrayRef> array(CFArrayCreate(nullptr, members, 2, &kCFTypeArrayCallBacks));
    const void* manyMembers[9];
    std::ranges::fill(manyMembers, CFSTR("a"));
    const CFOwned<CFArrayRef> many(CFArrayCreate(nullptr, manyMembers, 9, &kCFTypeArrayCallBacks));
    const auto dictionary = NewDictionary();
    CFDictionarySetValue(dictionary, CFSTR("key"), CFSTR("value"));

    struct Creation {
        const char* name;
        std::function<CFTypeRef()> create;
    };
    const Creation creations[] = {
        {"integer", [&] { return CFNumberCreate(nullptr, kCFNumberSInt64Type, &large); }},
        {"real", [&] { return CFNumberCreate(nullptr, kCFNumberFloat64Type, &real); }},
        {"UTF-8", [] { return CFStringCreateWithCString(nullptr, "x", kCFStringEncodingUTF8); }},
        {"units", [&] { return CFStringCreateWithCharacters(nullptr, units, 2); }},
        {"joined", [&] { return CFStringCreateByCombiningStrings(nullptr, array, CFSTR(",")); }},
        {"data", [&] { return CFDataCreate(nullptr, path, 4); }},
        {"mutable data", [] { return CFDataCreateMutable(nullptr, 0); }},
        {"array", [&] { return CFArrayCreate(nullptr, members, 2, &kCFTypeArrayCallBacks); }},
        {"array of integers",
         [&] { return CFArrayCreate(nullptr, integers, 2, &kCFTypeArrayCallBacks); }},
        {"mutable array", [] { return NewArray().Detach(); }},
        {"copied array", [&] { return CFArrayCreateMutableCopy(nullptr, 0, array); }},
        {"mutable dictionary", [] { return NewDictionary().Detach(); }},
        {"copied dictionary",
         [&] { return CFDictionaryCreateMutableCopy(nullptr, 0, dictionary); }},
        {"URL", [&] { return CFURLCreateFromFileSystemRepresentation(nullptr, path, 4, true); }},
    };
    for (const Creation& creation : creations)
        ExpectNullWithoutMemory(creation.name, creation.create);
    // A copy has the memory for all members before it takes the first.
    EXPECT_EQ(AllocationsOf([&] { CFRelease(CFArrayCreateMutableCopy(nullptr, 0, many)); }), 2U);
}

// The function behind the seam: the seam itself counts the call as an allocation.
extern "C" CFNumberRef __real_CFNumberCreate(CFAllocatorRef, CFNumberType, const void* value);

TEST(OutOfMemory, ConstantsAndSmallIntegersDoNotAllocate) {
    const std::int64_t small = 12;
    const AllocationFault fault(1, SIZE_MAX);
    const auto* number = __real_CFNumberCreate(nullptr, kCFNumberSInt64Type, &small);
    const auto* text = CFSTR("constant");
    EXPECT_FALSE(AllocationFault::Happened());
    EXPECT_NE(number, nullptr);
    EXPECT_NE(text, nullptr);
}

TEST(OutOfMemory, FailedAppendLeavesArrayUnchanged) {
    const auto member = Integer(kLarge);
    const auto array = NewArray();
    for (CFIndex count = 0; count < 40; ++count) {
        SweepAllocationFaults([&](std::size_t) { CFArrayAppendValue(array, member); },
                              [&](std::size_t, bool happened) {
                                  EXPECT_EQ(CFArrayGetCount(array), happened ? count : count + 1);
                                  EXPECT_EQ(ReferencesTo(member), CFArrayGetCount(array) + 1);
                              });
    }
}

TEST(OutOfMemory, FailedSetLeavesDictionaryUnchanged) {
    const auto value = Integer(kLarge);
    const auto dictionary = NewDictionary();
    for (CFIndex count = 0; count < 40; ++count) {
        const auto key = Integer(kLarge + count);
        SweepAllocationFaults(
            [&](std::size_t) { CFDictionarySetValue(dictionary, key, value); },
            [&](std::size_t, bool happened) {
                EXPECT_EQ(CFDictionaryGetCount(dictionary), happened ? count : count + 1);
                EXPECT_EQ(ReferencesTo(key), happened ? 1 : 2);
                EXPECT_EQ(ReferencesTo(value), CFDictionaryGetCount(dictionary) + 1);
            });
    }
    for (CFIndex i = 0; i < 40; ++i)
        EXPECT_EQ(CFDictionaryGetValue(dictionary, Integer(kLarge + i)), value);
}

TEST(OutOfMemory, ReplacingAndRemovingInFullDictionaryDoNotAllocate) {
    const auto dictionary = NewDictionary();
    for (std::int64_t i = 0; i < 6; ++i)
        CFDictionarySetValue(dictionary, Integer(i), kCFBooleanFalse);
    const auto replaced = Integer(3);
    const auto removed = Integer(4);
    {
        const AllocationFault fault(1, SIZE_MAX);
        CFDictionarySetValue(dictionary, replaced, kCFBooleanTrue);
        CFDictionaryRemoveValue(dictionary, removed);
    }
    EXPECT_EQ(CFDictionaryGetValue(dictionary, replaced), kCFBooleanTrue);
    EXPECT_EQ(CFDictionaryGetCount(dictionary), 5);
}

TEST(OutOfMemory, FailedAppendLeavesDataUnchanged) {
    const CFOwned<CFMutableDataRef> data(CFDataCreateMutable(nullptr, 0));
    const UInt8 bytes[50] = {};
    for (CFIndex length = 0; length < 500; length += 50) {
        SweepAllocationFaults([&](std::size_t) { CFDataAppendBytes(data, bytes, 50); },
                              [&](std::size_t, bool happened) {
                                  EXPECT_EQ(CFDataGetLength(data), happened ? length : length + 50);
                              });
    }
}

TEST(OutOfMemory, DataOf64BytesAndArrayOf4MembersAllocateOnce) {
    const UInt8 bytes[32] = {};
    const CFOwned<CFMutableDataRef> data(CFDataCreateMutable(nullptr, 0));
    CFDataAppendBytes(data, bytes, 32);
    EXPECT_EQ(AllocationsOf([&] { CFDataAppendBytes(data, bytes, 32); }), 0U);
    EXPECT_EQ(CFDataGetLength(data), 64);
    EXPECT_EQ(AllocationsOf([&] { CFDataAppendBytes(data, bytes, 1); }), 1U);

    const auto array = NewArray();
    CFArrayAppendValue(array, kCFBooleanTrue);
    EXPECT_EQ(AllocationsOf([&] {
                  for (int i = 0; i < 3; ++i)
                      CFArrayAppendValue(array, kCFBooleanTrue);
              }),
              0U);
    EXPECT_EQ(AllocationsOf([&] { CFArrayAppendValue(array, kCFBooleanTrue); }), 1U);
}

// Allocated are the value, its keys and the places of the table for both.
TEST(OutOfMemory, SharedValueIsNullAndTableStaysEmpty) {
    const std::uint8_t bytes[] = {1, 2, 3};
    const cf::Object* members[] = {cf::AsObject(kCFBooleanTrue)};
    cf::Pair pairs[] = {{cf::AsObject(CFSTR("key")), cf::AsObject(kCFBooleanTrue)}};
    const std::function<const cf::Object*()> creations[] = {
        [] { return cf::SharedString("name"); },
        [] { return cf::SharedInteger(kLarge); },
        [] { return cf::SharedUnsignedInteger(UINT64_MAX); },
        [] { return cf::SharedReal(1.5); },
        [] { return cf::SharedDate(1.5); },
        [&] { return cf::SharedData(bytes); },
        [&] { return cf::SharedArray(members); },
        [&] { return cf::SharedDictionary(pairs); },
    };
    for (const auto& create : creations) {
        ExpectNullWithoutMemory("shared", create);
        EXPECT_EQ(cf::MeasureSharedTable().values, 0U);
        EXPECT_EQ(cf::MeasureSharedTable().places, 0U);
    }
}

// The failing allocation is the growth of a table that is three quarters full, else the value.
TEST(OutOfMemory, SharedTableThatCannotGrowTakesValuesUpToCapacity) {
    std::vector<CFOwned<CFTypeRef>> values;
    int taken = 0;
    for (int i = 0; i < 2000; ++i) {
        const std::string text = "value " + std::to_string(i);
        const cf::Object* value = nullptr;
        {
            const AllocationFault fault(1);
            value = cf::SharedString(text);
        }
        taken += value != nullptr ? 1 : 0;
        values.emplace_back(value != nullptr ? value : cf::SharedString(text));
        ASSERT_NE(CFTypeRef{values.back()}, nullptr) << text;
    }
    EXPECT_GT(taken, 0);
    for (std::size_t i = 0; i < values.size(); ++i) {
        const CFOwned<CFTypeRef> same(cf::SharedString("value " + std::to_string(i)));
        EXPECT_EQ(CFTypeRef{same}, CFTypeRef{values[i]});
    }
}

// One part of the table has 16 places at first and grows at the thirteenth value. The failing
// allocation is that growth.
TEST(OutOfMemory, SharedTableThatCannotGrowRefusesOnlyItsLastPlace) {
    constexpr std::size_t kPlaces = 16;
    std::vector<CFOwned<CFTypeRef>> values;
    for (int i = 0; values.size() < kPlaces; ++i) {
        const std::string text = "value " + std::to_string(i);
        const std::uint32_t hash = cf::HashBytes(text.data(), text.size());
        if (&cf::PartOfSharedTable(hash) != &cf::PartOfSharedTable(0))
            continue;
        const std::size_t count = values.size();
        const cf::Object* value = nullptr;
        {
            const AllocationFault fault(count * 4 < kPlaces * 3 ? SIZE_MAX : 1);
            value = cf::SharedString(text);
        }
        EXPECT_EQ(value == nullptr, count == kPlaces - 1) << count;
        values.emplace_back(value != nullptr ? value : cf::SharedString(text));
    }
    for (const auto& value : values)
        EXPECT_EQ(ReferencesTo(value), 1);
}

TEST(OutOfMemory, FindingASharedValueDoesNotAllocate) {
    const CFOwned<CFTypeRef> value(cf::SharedString("name"));
    const AllocationFault fault(1, SIZE_MAX);
    const CFOwned<CFTypeRef> same(cf::SharedString("name"));
    EXPECT_EQ(CFTypeRef{same}, CFTypeRef{value});
}

} // namespace
