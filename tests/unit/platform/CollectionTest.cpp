/* The release of nested collections. */

#include "TestObjects.h"

#include <gtest/gtest.h>

#include <pthread.h>

#include <cstddef>

namespace {

constexpr int kDeep = 200000;
constexpr std::size_t kSmallStack = std::size_t{128} << 10;

CFOwned<CFMutableArrayRef> ArrayAround(CFTypeRef member) {
    auto array = NewArray();
    CFArrayAppendValue(array, kCFBooleanTrue);
    CFArrayAppendValue(array, member);
    CFArrayAppendValue(array, kCFBooleanFalse);
    return array;
}

// Arrays in dictionaries in arrays and so on, in turn as values and as keys, around the number.
CFTypeRef NestAround(CFNumberRef number) {
    CFTypeRef inner = CFRetain(number);
    for (int level = 0; level < kDeep; level += 2) {
        const CFOwned<CFTypeRef> owned(inner);
        auto dictionary = NewDictionary();
        CFDictionarySetValue(dictionary, CFSTR("before"), kCFBooleanTrue);
        if (level % 4 == 0)
            CFDictionarySetValue(dictionary, CFSTR("inner"), owned);
        else
            CFDictionarySetValue(dictionary, owned, CFSTR("inner"));
        inner = ArrayAround(dictionary).Detach();
    }
    return inner;
}

void* ReleaseIt(void* object) {
    CFRelease(object);
    return nullptr;
}

TEST(Collection, DeeplyNestedIsReleasedOnASmallStack) {
    const auto innermost = Integer(kLarge);
    const CFTypeRef outermost = NestAround(innermost);
    EXPECT_EQ(ReferencesTo(innermost), 2);
    pthread_attr_t attributes;
    pthread_t thread;
    ASSERT_EQ(pthread_attr_init(&attributes), 0);
    ASSERT_EQ(pthread_attr_setstacksize(&attributes, kSmallStack), 0);
    ASSERT_EQ(pthread_create(&thread, &attributes, ReleaseIt, const_cast<void*>(outermost)), 0);
    ASSERT_EQ(pthread_join(thread, nullptr), 0);
    pthread_attr_destroy(&attributes);
    EXPECT_EQ(ReferencesTo(innermost), 1);
}

TEST(Collection, EveryMemberIsReleasedOnceAtAnyPosition) {
    const auto number = Integer(kLarge);
    const auto kept = ArrayAround(number);
    {
        const auto outer = NewArray();
        for (int i = 0; i < 3; ++i) {
            CFArrayAppendValue(outer, number);
            CFArrayAppendValue(outer, kept);
            CFArrayAppendValue(outer, ArrayAround(ArrayAround(number)));
        }
        EXPECT_EQ(ReferencesTo(number), 2 + 3 + 3);
        EXPECT_EQ(ReferencesTo(kept), 1 + 3);
    }
    EXPECT_EQ(ReferencesTo(number), 2);
    EXPECT_EQ(ReferencesTo(kept), 1);
    EXPECT_EQ(CFArrayGetCount(kept), 3);
}

} // namespace
