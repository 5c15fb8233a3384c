/* What would be larger than anything may be. No test has the memory for that, so it is pretended.
 */

#include "Held.h"

#include "objects/Array.h"
#include "objects/Dictionary.h"
#include "objects/SharedValues.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <span>
#include <utility>

namespace {

constexpr auto kMostMembers = static_cast<std::uint32_t>(cf::kMaximumCapacity);

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
    EXPECT_EQ(cf::SharedArray(std::span(shared, cf::kMaximumCapacity + 1)), nullptr);
}

TEST(Capacity, DataIsNotMadeOfMoreThanHalfTheAddresses) {
    const UInt8 byte = 0;
    EXPECT_EQ(CFDataCreate(nullptr, &byte, std::numeric_limits<CFIndex>::max()), nullptr);
}

} // namespace
