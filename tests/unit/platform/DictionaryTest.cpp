#include "objects/Dictionary.h"

#include "TestObjects.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

namespace {

class DictionaryOfOnePair : public testing::Test {
protected:
    DictionaryOfOnePair() {
        CFDictionarySetValue(dictionary_, key_, value_);
    }

    using References = std::pair<int, int>;
    References ReferencesToPair() const {
        return {ReferencesTo(key_), ReferencesTo(value_)};
    }

    const CFOwned<CFStringRef> key_ = Text("key");
    const CFOwned<CFNumberRef> value_ = Integer(kLarge);
    CFOwned<CFMutableDictionaryRef> dictionary_ = NewDictionary();
};

TEST_F(DictionaryOfOnePair, RetainsKeyAndValueOnce) {
    EXPECT_EQ(ReferencesToPair(), References(2, 2));
    CFDictionarySetValue(dictionary_, key_, value_);
    EXPECT_EQ(ReferencesToPair(), References(2, 2));
    EXPECT_EQ(CFDictionaryGetValue(dictionary_, CFSTR("key")), value_);
    EXPECT_EQ(ReferencesToPair(), References(2, 2));
    CFRelease(dictionary_.Detach());
    EXPECT_EQ(ReferencesToPair(), References(1, 1));
}

TEST_F(DictionaryOfOnePair, RemovesAndReleases) {
    CFDictionaryRemoveValue(dictionary_, CFSTR("absent"));
    EXPECT_EQ(CFDictionaryGetCount(dictionary_), 1);
    CFDictionaryRemoveValue(dictionary_, CFSTR("key"));
    EXPECT_EQ(CFDictionaryGetCount(dictionary_), 0);
    EXPECT_FALSE(CFDictionaryContainsKey(dictionary_, key_));
    EXPECT_EQ(ReferencesToPair(), References(1, 1));
    CFDictionaryRemoveValue(dictionary_, key_);
}

TEST_F(DictionaryOfOnePair, CopiesShallowly) {
    const CFOwned copy(CFDictionaryCreateMutableCopy(nullptr, 0, dictionary_));
    EXPECT_TRUE(CFEqual(copy, dictionary_));
    EXPECT_EQ(ReferencesToPair(), References(3, 3));
    CFDictionarySetValue(copy, CFSTR("more"), kCFBooleanTrue);
    EXPECT_EQ(CFDictionaryGetCount(dictionary_), 1);
}

TEST(Dictionary, EqualKeyReplacesKeyAndValue) {
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
    const CFNumberRef only = Integer(kLarge).Detach();
    CFDictionarySetValue(dictionary, CFSTR("key"), only);
    CFRelease(only); // the dictionary holds the last reference
    CFDictionarySetValue(dictionary, CFSTR("key"), only);
    EXPECT_EQ(ReferencesTo(only), 1);
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

// Enough keys for collisions in the table, removed in another order than they were added.
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

TEST(Dictionary, EqualPairsMakeEqualDictionaries) {
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

TEST(Dictionary, NullKeysAndValuesAreIgnored) {
    const auto dictionary = NewDictionary();
    CFDictionarySetValue(dictionary, nullptr, kCFBooleanTrue);
    CFDictionarySetValue(dictionary, CFSTR("key"), nullptr);
    CFDictionaryRemoveValue(dictionary, nullptr);
    EXPECT_EQ(CFDictionaryGetCount(dictionary), 0);
    EXPECT_EQ(CFDictionaryGetValue(dictionary, nullptr), nullptr);
    EXPECT_FALSE(CFDictionaryContainsKey(dictionary, nullptr));
}

TEST(Dictionary, OtherObjectsAreEmptyDictionariesThatIgnoreChanges) {
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
