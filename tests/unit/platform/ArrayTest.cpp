#include "TestObjects.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <initializer_list>
#include <iterator>
#include <limits>

namespace {

constexpr CFRange kEverything = {0, 3};

CFTypeRef At(CFArrayRef array, CFIndex index) {
    return CFArrayGetValueAtIndex(array, index);
}

CFOwned<CFArrayRef> CreateArray(std::initializer_list<const void*> members) {
    return CFOwned(CFArrayCreate(nullptr, const_cast<const void**>(members.begin()),
                                 std::ssize(members), &kCFTypeArrayCallBacks));
}

class ArrayOfThree : public testing::Test {
protected:
    ArrayOfThree() {
        for (const auto* member : {&first_, &second_, &third_})
            CFArrayAppendValue(array_, *member);
    }

    CFOwned<CFNumberRef> first_ = Integer(kLarge);
    CFOwned<CFNumberRef> second_ = Integer(kLarge + 1024);
    CFOwned<CFNumberRef> third_ = Integer(kLarge);
    CFOwned<CFMutableArrayRef> array_ = NewArray();
};

TEST_F(ArrayOfThree, RetainsItsMembersOnce) {
    EXPECT_EQ(CFArrayGetCount(array_), 3);
    EXPECT_EQ(ReferencesTo(first_), 2);
    EXPECT_EQ(At(array_, 0), first_);
    EXPECT_EQ(At(array_, 2), third_);
    EXPECT_EQ(ReferencesTo(first_), 2);
    CFRelease(array_.Detach());
    EXPECT_EQ(ReferencesTo(first_), 1);
}

TEST_F(ArrayOfThree, HasNoMembersOutsideItsCount) {
    for (const CFIndex index : {CFIndex{-1}, CFIndex{3}, std::numeric_limits<CFIndex>::max(),
                                std::numeric_limits<CFIndex>::min()})
        EXPECT_EQ(At(array_, index), nullptr) << index;
}

TEST_F(ArrayOfThree, ReplacesAtAnIndexAndReleasesTheOld) {
    CFArraySetValueAtIndex(array_, 1, kCFBooleanTrue);
    EXPECT_EQ(CFArrayGetCount(array_), 3);
    EXPECT_EQ(At(array_, 1), kCFBooleanTrue);
    EXPECT_EQ(ReferencesTo(second_), 1);
}

TEST_F(ArrayOfThree, SurvivesReplacingAMemberByItself) {
    const CFNumberRef only = first_.Detach();
    CFRelease(only); // the array holds the last reference
    CFArraySetValueAtIndex(array_, 0, only);
    EXPECT_EQ(ReferencesTo(only), 1);
}

TEST_F(ArrayOfThree, AppendsAtTheCountAndIgnoresIndicesBeyond) {
    CFArraySetValueAtIndex(array_, 3, second_);
    EXPECT_EQ(CFArrayGetCount(array_), 4);
    EXPECT_EQ(At(array_, 3), second_);
    CFArraySetValueAtIndex(array_, 5, second_);
    CFArraySetValueAtIndex(array_, -1, second_);
    EXPECT_EQ(CFArrayGetCount(array_), 4);
    EXPECT_EQ(ReferencesTo(second_), 3);
}

TEST_F(ArrayOfThree, RemovesAtAnIndexAndReleases) {
    CFArrayRemoveValueAtIndex(array_, 0);
    EXPECT_EQ(CFArrayGetCount(array_), 2);
    EXPECT_EQ(At(array_, 0), second_);
    EXPECT_EQ(At(array_, 1), third_);
    EXPECT_EQ(ReferencesTo(first_), 1);
    CFArrayRemoveValueAtIndex(array_, 2);
    CFArrayRemoveValueAtIndex(array_, -1);
    EXPECT_EQ(CFArrayGetCount(array_), 2);
}

TEST_F(ArrayOfThree, FindsTheFirstEqualMember) {
    EXPECT_EQ(CFArrayGetFirstIndexOfValue(array_, kEverything, third_), 0);
    EXPECT_EQ(CFArrayGetFirstIndexOfValue(array_, CFRangeMake(1, 2), first_), 2);
    EXPECT_EQ(CFArrayGetFirstIndexOfValue(array_, kEverything, Real(0x1p62 + 1024)), 1);
    EXPECT_EQ(CFArrayGetFirstIndexOfValue(array_, kEverything, Integer(1)), kCFNotFound);
    EXPECT_TRUE(CFArrayContainsValue(array_, kEverything, Real(0x1p62)));
    EXPECT_FALSE(CFArrayContainsValue(array_, CFRangeMake(0, 1), second_));
}

TEST_F(ArrayOfThree, FindsNothingInImpossibleRanges) {
    const CFRange ranges[] = {{-1, 1}, {0, 4}, {4, 0}, {0, -1}, {1, INT64_MAX}, {3, 0}};
    for (const CFRange range : ranges)
        EXPECT_EQ(CFArrayGetFirstIndexOfValue(array_, range, first_), kCFNotFound);
    EXPECT_EQ(CFArrayGetFirstIndexOfValue(array_, kEverything, nullptr), kCFNotFound);
}

TEST_F(ArrayOfThree, CopiesShallowly) {
    const CFOwned<CFMutableArrayRef> copy(CFArrayCreateMutableCopy(nullptr, 0, array_));
    EXPECT_NE(CFMutableArrayRef{copy}, CFMutableArrayRef{array_});
    EXPECT_TRUE(CFEqual(copy, array_));
    EXPECT_EQ(ReferencesTo(first_), 3);
    CFArrayRemoveValueAtIndex(copy, 0);
    EXPECT_EQ(CFArrayGetCount(array_), 3);
    EXPECT_FALSE(CFEqual(copy, array_));
}

TEST_F(ArrayOfThree, IgnoresNullMembers) {
    CFArrayAppendValue(array_, nullptr);
    CFArraySetValueAtIndex(array_, 0, nullptr);
    EXPECT_EQ(CFArrayGetCount(array_), 3);
    EXPECT_EQ(At(array_, 0), first_);
}

TEST(Array, BooleanIsNotFoundAsANumber) {
    const auto array = NewArray();
    CFArrayAppendValue(array, kCFBooleanTrue);
    EXPECT_FALSE(CFArrayContainsValue(array, CFRangeMake(0, 1), Integer(1)));
}

TEST(Array, GrowsBeyondItsInitialCapacity) {
    const CFOwned<CFMutableArrayRef> array(
        CFArrayCreateMutable(nullptr, 2, &kCFTypeArrayCallBacks));
    for (std::int64_t i = 0; i < 1000; ++i)
        CFArrayAppendValue(array, Integer(i));
    EXPECT_EQ(CFArrayGetCount(array), 1000);
    EXPECT_TRUE(CFEqual(At(array, 999), Integer(999)));
}

TEST(ImmutableArray, IgnoresChangesAndIsCopiedMutable) {
    const auto number = Real(70000);
    const auto array = CreateArray({number, kCFBooleanTrue});
    EXPECT_EQ(ReferencesTo(number), 2);
    auto* pretended = const_cast<CFMutableArrayRef>(CFArrayRef{array});
    CFArrayAppendValue(pretended, number);
    CFArraySetValueAtIndex(pretended, 0, kCFBooleanFalse);
    CFArrayRemoveValueAtIndex(pretended, 0);
    EXPECT_EQ(CFArrayGetCount(array), 2);
    EXPECT_EQ(At(array, 0), number);
    const CFOwned<CFMutableArrayRef> copy(CFArrayCreateMutableCopy(nullptr, 0, array));
    EXPECT_TRUE(CFEqual(copy, array));
    EXPECT_EQ(cf::Hash(cf::AsObject(CFArrayRef{array})),
              cf::Hash(cf::AsObject(CFMutableArrayRef{copy})));
}

TEST(ImmutableArray, EqualArraysOfIntegersAreOneObject) {
    const auto number = Integer(kLarge);
    const auto array = CreateArray({number, Integer(1)});
    EXPECT_EQ(CreateArray({Integer(kLarge), Integer(1)}).Get(), array.Get());
    EXPECT_TRUE(CFEqual(At(array, 0), number));
    EXPECT_EQ(ReferencesTo(number), 1);

    const auto withString = CreateArray({number, CFSTR("x")});
    EXPECT_NE(CreateArray({number, CFSTR("x")}).Get(), withString.Get());
}

TEST(ImmutableArray, IsNotCreatedOfNullsOrImpossibleCounts) {
    const void* members[] = {kCFBooleanTrue, nullptr};
    EXPECT_EQ(CFArrayCreate(nullptr, members, 2, &kCFTypeArrayCallBacks), nullptr);
    EXPECT_EQ(CFArrayCreate(nullptr, members, -1, &kCFTypeArrayCallBacks), nullptr);
    EXPECT_EQ(CFArrayCreate(nullptr, nullptr, 1, &kCFTypeArrayCallBacks), nullptr);
    const CFOwned empty(CFArrayCreate(nullptr, nullptr, 0, &kCFTypeArrayCallBacks));
    EXPECT_EQ(CFArrayGetCount(empty), 0);
    EXPECT_TRUE(CFEqual(empty, NewArray()));
}

TEST(Array, OtherObjectsAreEmptyArraysThatIgnoreChanges) {
    const auto dictionary = NewDictionary();
    for (const CFTypeRef object :
         {CFTypeRef{CFSTR("x")}, CFTypeRef{dictionary}, CFTypeRef{kCFNull}, CFTypeRef{nullptr}}) {
        auto* disguised = static_cast<CFMutableArrayRef>(const_cast<void*>(object));
        CFArrayAppendValue(disguised, kCFBooleanTrue);
        CFArraySetValueAtIndex(disguised, 0, kCFBooleanTrue);
        CFArrayRemoveValueAtIndex(disguised, 0);
        EXPECT_EQ(CFArrayGetCount(disguised), 0);
        EXPECT_EQ(At(disguised, 0), nullptr);
        EXPECT_FALSE(CFArrayContainsValue(disguised, CFRangeMake(0, 1), kCFBooleanTrue));
        EXPECT_EQ(CFArrayCreateMutableCopy(nullptr, 0, disguised), nullptr);
    }
}

} // namespace
