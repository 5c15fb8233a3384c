#include "objects/Dictionary.h"

#include "TestObjects.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace {

TEST(Dictionary, RetainsKeyAndValueOnce) {
    const auto key = Text("key");
    const auto value = Integer(kLarge);
    auto dictionary = NewDictionary();
    CFDictionarySetValue(dictionary, key, value);
    EXPECT_EQ(ReferencesTo(key), 2);
    EXPECT_EQ(ReferencesTo(value), 2);
    CFDictionarySetValue(dictionary, key, value);
    EXPECT_EQ(ReferencesTo(key), 2);
    EXPECT_EQ(ReferencesTo(value), 2);
    EXPECT_EQ(CFDictionaryGetValue(dictionary, CFSTR("key")), value);
    EXPECT_EQ(ReferencesTo(value), 2);
    CFRelease(dictionary.Detach());
    EXPECT_EQ(ReferencesTo(key), 1);
    EXPECT_EQ(ReferencesTo(value), 1);
}

TEST(Dictionary, ReplacesKeyAndValueByEqualKey) {
    const auto oldKey = Text("key");
    const auto newKey = Text("key");
    const auto oldValue = Integer(kLarge);
    const auto dictionary = NewDictionary();
    CFDictionarySetValue(dictionary, oldKey, oldValue);
    CFDictionarySetValue(dictionary, newKey, kCFBooleanTrue);
    EXPECT_EQ(CFDictionaryGetCount(dictionary), 1);
    EXPECT_EQ(ReferencesTo(oldKey), 1);
    EXPECT_EQ(ReferencesTo(newKey), 2);
    EXPECT_EQ(ReferencesTo(oldValue), 1);
}

TEST(Dictionary, SurvivesReplacingAValueByItself) {
    const auto dictionary = NewDictionary();
    CFNumberRef only = nullptr;
    {
        const auto value = Integer(kLarge);
        CFDictionarySetValue(dictionary, CFSTR("key"), value);
        only = value;
    }
    CFDictionarySetValue(dictionary, CFSTR("key"), only);
    EXPECT_EQ(ReferencesTo(only), 1);
}

TEST(Dictionary, RemovesAndReleases) {
    const auto key = Text("key");
    const auto value = Integer(kLarge);
    const auto dictionary = NewDictionary();
    CFDictionarySetValue(dictionary, key, value);
    CFDictionaryRemoveValue(dictionary, CFSTR("absent"));
    EXPECT_EQ(CFDictionaryGetCount(dictionary), 1);
    CFDictionaryRemoveValue(dictionary, CFSTR("key"));
    EXPECT_EQ(CFDictionaryGetCount(dictionary), 0);
    EXPECT_FALSE(CFDictionaryContainsKey(dictionary, key));
    EXPECT_EQ(ReferencesTo(key), 1);
    EXPECT_EQ(ReferencesTo(value), 1);
    CFDictionaryRemoveValue(dictionary, key);
}

TEST(Dictionary, FindsNumbersAcrossWidths) {
    const auto dictionary = NewDictionary();
    CFDictionarySetValue(dictionary, Integer(70000), CFSTR("found"));
    CFDictionarySetValue(dictionary, Integer(1), CFSTR("one"));
    const std::int32_t narrow = 70000;
    const CFOwned<CFNumberRef> narrowKey(CFNumberCreate(nullptr, kCFNumberSInt32Type, &narrow));
    EXPECT_EQ(CFDictionaryGetValue(dictionary, narrowKey), CFSTR("found"));
    EXPECT_EQ(CFDictionaryGetValue(dictionary, Real(70000.0)), CFSTR("found"));
    EXPECT_EQ(CFDictionaryGetValue(dictionary, kCFBooleanTrue), nullptr);
}

// Enough keys that they meet in their places, removed in another order than they were added.
TEST(Dictionary, KeepsItsOtherPairsWhileItGrowsAndShrinks) {
    constexpr std::int64_t kCount = 2000;
    constexpr std::int64_t kStep = 7; // has no factor in common with the count
    const auto dictionary = NewDictionary();
    for (std::int64_t i = 0; i < kCount; ++i)
        CFDictionarySetValue(dictionary, Integer(i * 1000), Integer(i));
    for (std::int64_t removed = 0; removed < kCount; ++removed) {
        const std::int64_t gone = removed * kStep % kCount;
        CFDictionaryRemoveValue(dictionary, Integer(gone * 1000));
        ASSERT_EQ(CFDictionaryGetCount(dictionary), kCount - removed - 1);
        ASSERT_FALSE(CFDictionaryContainsKey(dictionary, Integer(gone * 1000)));
        const std::int64_t next = (removed + 1) * kStep % kCount;
        ASSERT_EQ(CFDictionaryContainsKey(dictionary, Integer(next * 1000)), removed + 1 < kCount);
    }
}

TEST(Dictionary, GivesKeysAndValuesPairwise) {
    const auto dictionary = NewDictionary();
    for (std::int64_t i = 0; i < 20; ++i)
        CFDictionarySetValue(dictionary, Integer(i), Integer(i + 100000));
    std::vector<const void*> keys(20);
    std::vector<const void*> values(20);
    CFDictionaryGetKeysAndValues(dictionary, keys.data(), values.data());
    for (std::size_t i = 0; i < 20; ++i) {
        EXPECT_EQ(CFDictionaryGetValue(dictionary, keys[i]), values[i]);
        EXPECT_EQ(std::count(keys.begin(), keys.end(), keys[i]), 1);
    }
    std::vector<const void*> again(20);
    CFDictionaryGetKeysAndValues(dictionary, again.data(), nullptr);
    EXPECT_EQ(again, keys);
    CFDictionaryGetKeysAndValues(dictionary, nullptr, again.data());
    EXPECT_EQ(again, values);
}

TEST(Dictionary, CopiesShallowly) {
    const auto key = Text("key");
    const auto value = Integer(kLarge);
    const auto dictionary = NewDictionary();
    CFDictionarySetValue(dictionary, key, value);
    const CFOwned<CFMutableDictionaryRef> copy(
        CFDictionaryCreateMutableCopy(nullptr, 0, dictionary));
    EXPECT_TRUE(CFEqual(copy, dictionary));
    EXPECT_EQ(ReferencesTo(key), 3);
    EXPECT_EQ(ReferencesTo(value), 3);
    CFDictionarySetValue(copy, CFSTR("more"), kCFBooleanTrue);
    EXPECT_EQ(CFDictionaryGetCount(dictionary), 1);
}

TEST(Dictionary, EqualsByItsPairs) {
    const auto one = NewDictionary();
    const auto other = NewDictionary();
    CFDictionarySetValue(one, CFSTR("a"), Integer(70000));
    CFDictionarySetValue(one, CFSTR("b"), kCFBooleanTrue);
    CFDictionarySetValue(other, CFSTR("b"), kCFBooleanTrue);
    EXPECT_FALSE(CFEqual(one, other));
    EXPECT_FALSE(CFEqual(other, one));
    CFDictionarySetValue(other, CFSTR("a"), Real(70000.0));
    EXPECT_TRUE(CFEqual(one, other));
    EXPECT_EQ(cf::Hash(cf::AsObject(CFDictionaryRef{one})),
              cf::Hash(cf::AsObject(CFDictionaryRef{other})));
    CFDictionarySetValue(other, CFSTR("b"), kCFBooleanFalse);
    EXPECT_FALSE(CFEqual(one, other));
    CFDictionaryRemoveValue(other, CFSTR("b"));
    CFDictionarySetValue(other, CFSTR("c"), kCFBooleanTrue);
    EXPECT_FALSE(CFEqual(one, other));
}

TEST(Dictionary, TakesNoNullKeysOrValues) {
    const auto dictionary = NewDictionary();
    CFDictionarySetValue(dictionary, nullptr, kCFBooleanTrue);
    CFDictionarySetValue(dictionary, CFSTR("key"), nullptr);
    CFDictionaryRemoveValue(dictionary, nullptr);
    EXPECT_EQ(CFDictionaryGetCount(dictionary), 0);
    EXPECT_EQ(CFDictionaryGetValue(dictionary, nullptr), nullptr);
    EXPECT_FALSE(CFDictionaryContainsKey(dictionary, nullptr));
}

TEST(Dictionary, OtherObjectsAreEmptyAndStayUnchanged) {
    const auto array = NewArray();
    for (const CFTypeRef object :
         {CFTypeRef{CFSTR("x")}, CFTypeRef{array}, CFTypeRef{kCFNull}, CFTypeRef{nullptr}}) {
        auto* disguised = static_cast<CFMutableDictionaryRef>(const_cast<void*>(object));
        const void* untouched = nullptr;
        CFDictionarySetValue(disguised, CFSTR("key"), kCFBooleanTrue);
        CFDictionaryRemoveValue(disguised, CFSTR("key"));
        CFDictionaryGetKeysAndValues(disguised, &untouched, &untouched);
        EXPECT_EQ(untouched, nullptr);
        EXPECT_EQ(CFDictionaryGetCount(disguised), 0);
        EXPECT_EQ(CFDictionaryGetValue(disguised, CFSTR("key")), nullptr);
        EXPECT_EQ(CFDictionaryCreateMutableCopy(nullptr, 0, disguised), nullptr);
    }
}

} // namespace
