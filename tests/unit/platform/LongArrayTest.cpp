/*
 * Arrays that are too long for one block and are therefore kept in pieces. The reference for each
 * operation is a flat array: a mutable one with the same members.
 */

#include "AllocationFaults.h"
#include "TestObjects.h"
#include "objects/Array.h"
#include "objects/SharedTable.h"
#include "objects/SharedValues.h"

#include <CoreFoundation/CoreFoundation.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <string>
#include <vector>

namespace {

using Value = CFOwned<CFTypeRef>;

CFArrayRef AsArray(const Value& value) {
    return static_cast<CFArrayRef>(CFTypeRef{value});
}

std::vector<Value> MakeTexts(std::size_t count) {
    std::vector<Value> texts;
    for (std::size_t i = 0; i < count; ++i)
        texts.emplace_back(cf::SharedString("text " + std::to_string(i)));
    return texts;
}

std::vector<const cf::Object*> ObjectsOf(const std::vector<Value>& values) {
    std::vector<const cf::Object*> objects;
    for (const Value& value : values)
        objects.push_back(cf::AsObject(value));
    return objects;
}

CFOwned<CFMutableArrayRef> FlatArrayOf(const std::vector<Value>& values) {
    auto flat = NewArray();
    for (const Value& value : values)
        CFArrayAppendValue(flat, value);
    return flat;
}

Value SharedArrayOf(const std::vector<Value>& values) {
    return Value(cf::SharedArray(ObjectsOf(values)));
}

Value SharedArrayWithChange(const std::vector<Value>& values, CFIndex changed) {
    std::vector<const cf::Object*> members = ObjectsOf(values);
    members[static_cast<std::size_t>(changed)] = cf::AsObject(CFSTR("changed"));
    return Value(cf::SharedArray(members));
}

class LongArray : public testing::TestWithParam<std::size_t> {
protected:
    CFIndex Count() const {
        return static_cast<CFIndex>(GetParam());
    }
    // The first and last of pieces, and some between.
    std::vector<CFIndex> Indices() const {
        std::vector<CFIndex> indices = {0, 1, 30, 31, 32, 33, 1022, 1023, 1024, 1025, 32767, 32768};
        for (const CFIndex more : {Count() / 2, Count() - 2, Count() - 1})
            indices.push_back(more);
        std::erase_if(indices, [this](CFIndex index) { return index >= Count(); });
        return indices;
    }

    std::vector<Value> members_ = MakeTexts(GetParam());
    Value array_ = SharedArrayOf(members_);
    CFOwned<CFMutableArrayRef> flat_ = FlatArrayOf(members_);
};

TEST_P(LongArray, GivesCountAndMembersOfTheFlatArray) {
    ASSERT_EQ(CFArrayGetCount(AsArray(array_)), Count());
    for (CFIndex i = 0; i < Count(); ++i)
        ASSERT_EQ(CFArrayGetValueAtIndex(AsArray(array_), i), CFArrayGetValueAtIndex(flat_, i))
            << i;
    for (const CFIndex outside : {CFIndex{-1}, Count(), Count() + 1, CFIndex{1} << 40})
        EXPECT_EQ(CFArrayGetValueAtIndex(AsArray(array_), outside), nullptr) << outside;
}

TEST_P(LongArray, FindsWhatTheFlatArrayFinds) {
    for (const CFIndex index : Indices()) {
        const auto* sought = CFArrayGetValueAtIndex(flat_, index);
        for (const CFRange range :
             {CFRangeMake(0, Count()), CFRangeMake(index, Count() - index), CFRangeMake(index, 1),
              CFRangeMake(0, index), CFRangeMake(index + 1, Count() - index - 1)}) {
            EXPECT_EQ(CFArrayGetFirstIndexOfValue(AsArray(array_), range, sought),
                      CFArrayGetFirstIndexOfValue(flat_, range, sought))
                << index << " from " << range.location;
            EXPECT_EQ(CFArrayContainsValue(AsArray(array_), range, sought),
                      CFArrayContainsValue(flat_, range, sought));
        }
    }
    const CFRange everything = CFRangeMake(0, Count());
    EXPECT_FALSE(CFArrayContainsValue(AsArray(array_), everything, CFSTR("absent")));
    EXPECT_FALSE(CFArrayContainsValue(AsArray(array_), CFRangeMake(1, Count()), CFSTR("text 1")));
}

TEST_P(LongArray, IsEqualToTheFlatArrayInBothDirections) {
    EXPECT_TRUE(CFEqual(array_, flat_));
    EXPECT_TRUE(CFEqual(flat_, array_));
    EXPECT_EQ(cf::Hash(cf::AsObject(array_)), cf::Hash(cf::AsObject(CFTypeRef{flat_})));
}

TEST_P(LongArray, DiffersFromAnArrayWithOneMemberChanged) {
    for (const CFIndex index : Indices()) {
        const CFOwned<CFMutableArrayRef> changed(CFArrayCreateMutableCopy(nullptr, 0, flat_));
        CFArraySetValueAtIndex(changed, index, CFSTR("changed"));
        EXPECT_FALSE(CFEqual(array_, changed)) << index;
        EXPECT_FALSE(CFEqual(changed, array_)) << index;
        const Value shared = SharedArrayWithChange(members_, index);
        EXPECT_FALSE(CFEqual(array_, shared)) << index;
        EXPECT_TRUE(CFEqual(changed, shared)) << index;
    }
}

TEST_P(LongArray, DiffersFromAnArrayOfOneMemberLess) {
    members_.pop_back();
    const Value shorter = SharedArrayOf(members_);
    EXPECT_FALSE(CFEqual(array_, shorter));
    EXPECT_FALSE(CFEqual(shorter, array_));
    EXPECT_TRUE(CFEqual(shorter, FlatArrayOf(members_)));
}

TEST_P(LongArray, MutableCopyIsAFlatArrayOfTheSameMembers) {
    const CFOwned<CFMutableArrayRef> copy(CFArrayCreateMutableCopy(nullptr, 0, AsArray(array_)));
    EXPECT_TRUE(CFEqual(copy, flat_));
    CFArrayRemoveValueAtIndex(copy, Count() - 1);
    CFArrayAppendValue(copy, CFSTR("last"));
    EXPECT_EQ(CFArrayGetCount(copy), Count());
    EXPECT_FALSE(CFEqual(copy, array_));
}

TEST_P(LongArray, IgnoresChangesWhenCastToMutable) {
    auto* pretended = const_cast<CFMutableArrayRef>(AsArray(array_));
    CFArrayAppendValue(pretended, CFSTR("more"));
    CFArraySetValueAtIndex(pretended, 0, CFSTR("other"));
    CFArrayRemoveValueAtIndex(pretended, 0);
    EXPECT_TRUE(CFEqual(array_, flat_));
}

TEST_P(LongArray, IsJoinedAsTheFlatArray) {
    const auto join = [](CFArrayRef array) {
        return TextOf(CFOwned(CFStringCreateByCombiningStrings(nullptr, array, CFSTR(","))));
    };
    EXPECT_EQ(join(AsArray(array_)), join(flat_));
}

TEST_P(LongArray, IsWrittenAndReadAsTheFlatArray) {
    const std::string written = XmlOf(array_);
    ASSERT_EQ(written, XmlOf(flat_));
    const CFOwned read(CFPropertyListCreateFromXMLData(nullptr, Bytes(written),
                                                       kCFPropertyListImmutable, nullptr));
    EXPECT_EQ(read, array_);
}

TEST_P(LongArray, EqualArraysAreOneObject) {
    const Value same = SharedArrayOf(members_);
    EXPECT_EQ(CFTypeRef{same}, CFTypeRef{array_});
    EXPECT_EQ(ReferencesTo(array_), 2);
}

TEST_P(LongArray, ArrayCreatedOfIntegersIsTheSharedOne) {
    std::vector<Value> integers;
    std::vector<const void*> members;
    for (CFIndex i = 0; i < Count(); ++i) {
        integers.emplace_back(Integer(kLarge + i % 3).Detach());
        members.push_back(integers.back());
    }
    const auto create = [&] {
        return CFOwned(CFArrayCreate(nullptr, members.data(), Count(), &kCFTypeArrayCallBacks));
    };
    const auto first = create();
    EXPECT_EQ(first.Get(), create().Get());
    EXPECT_TRUE(CFEqual(first, FlatArrayOf(integers)));
    EXPECT_EQ(CFArrayGetFirstIndexOfValue(first, CFRangeMake(0, Count()), integers[2]), 2);
}

TEST_P(LongArray, ArrayWithOneMemberChangedAddsOneArrayForEachLevel) {
    const std::size_t before = cf::MeasureSharedTable().values;
    std::size_t levels = 1;
    for (std::size_t length = 32; length < GetParam(); length *= 32)
        ++levels;
    for (const CFIndex index : Indices()) {
        const Value changed = SharedArrayWithChange(members_, index);
        EXPECT_LE(cf::MeasureSharedTable().values, before + levels) << index;
        EXPECT_GT(cf::MeasureSharedTable().values, before) << index;
    }
    EXPECT_EQ(cf::MeasureSharedTable().values, before);
}

TEST_P(LongArray, ReleasesMembersAndPiecesWithItsLastReference) {
    const auto references = [this] {
        return std::pair(ReferencesTo(members_.front()), ReferencesTo(members_.back()));
    };
    EXPECT_EQ(references(), std::pair(3, 3));
    array_ = Value(nullptr);
    EXPECT_EQ(references(), std::pair(2, 2));
    EXPECT_EQ(cf::MeasureSharedTable().values, members_.size());
}

INSTANTIATE_TEST_SUITE_P(Lengths, LongArray,
                         testing::Values(31U, 32U, 33U, 1023U, 1024U, 1025U, 65535U));

TEST(LongArrayOfTwoLevels, EqualPiecesAreOneObject) {
    const std::vector<const cf::Object*> members(1024, cf::AsObject(kCFBooleanTrue));
    const Value array(cf::SharedArray(members));
    EXPECT_EQ(cf::MeasureSharedTable().values, 2U);
    EXPECT_EQ(CFArrayGetCount(AsArray(array)), 1024);
    EXPECT_EQ(CFArrayGetValueAtIndex(AsArray(array), 1023), kCFBooleanTrue);
}

// Internally, the array is a block of two pieces.
TEST(LongArrayOfTwoLevels, IsNotTheArrayOfItsPieces) {
    const std::vector<Value> texts = MakeTexts(40);
    const auto objects = ObjectsOf(texts);
    const Value array(cf::SharedArray(objects));
    const Value firstPiece(cf::SharedArray(std::span(objects).first(32)));
    const Value secondPiece(cf::SharedArray(std::span(objects).subspan(32)));
    const cf::Object* pieces[] = {cf::AsObject(firstPiece), cf::AsObject(secondPiece)};
    const Value arrayOfArrays(cf::SharedArray(pieces));
    EXPECT_NE(CFTypeRef{arrayOfArrays}, CFTypeRef{array});
    EXPECT_EQ(CFArrayGetCount(AsArray(arrayOfArrays)), 2);
    EXPECT_EQ(CFArrayGetCount(AsArray(array)), 40);
    EXPECT_FALSE(CFEqual(array, arrayOfArrays));
}

// A dictionary has its keys in one block, without pieces.
TEST(LongArrayOfTwoLevels, IsNotTheKeysOfADictionary) {
    const std::vector<Value> texts = MakeTexts(40);
    std::vector<cf::Pair> pairs;
    for (const Value& text : texts)
        pairs.push_back({cf::AsObject(text), cf::AsObject(kCFBooleanTrue)});
    const Value dictionary(cf::SharedDictionary(pairs));
    std::vector<const cf::Object*> keys; // in the order of the dictionary
    for (const cf::Pair& pair : pairs)
        keys.push_back(pair.key);
    const Value array(cf::SharedArray(keys));
    EXPECT_EQ(CFArrayGetCount(AsArray(array)), 40);
    EXPECT_EQ(CFArrayGetValueAtIndex(AsArray(array), 39), keys[39]);
    for (const Value& text : texts)
        EXPECT_EQ(CFDictionaryGetValue(static_cast<CFDictionaryRef>(CFTypeRef{dictionary}), text),
                  kCFBooleanTrue);
}

// Releasing half of the texts leaves capacity in every part of the table of shared values: growing
// would be one more allocation, whose failure is harmless.
TEST(LongArrayOutOfMemory, FailedCreationLeavesTheSharedTableUnchanged) {
    for (const std::size_t count : {std::size_t{33}, std::size_t{1024}, std::size_t{1100}}) {
        std::vector<Value> texts = MakeTexts(2 * count);
        texts.erase(texts.begin() + static_cast<std::ptrdiff_t>(count), texts.end());
        const auto members = ObjectsOf(texts);
        CFTypeRef array = cf::SharedArray(members);
        const std::size_t arrays = cf::MeasureSharedTable().values - count;
        CFRelease(array);
        const std::size_t runs =
            SweepAllocationFaults([&](std::size_t) { array = cf::SharedArray(members); },
                                  [&](std::size_t nth, bool happened) {
                                      EXPECT_EQ(array == nullptr, happened) << nth;
                                      CFRelease(array);
                                      EXPECT_EQ(cf::MeasureSharedTable().values, count) << nth;
                                      EXPECT_EQ(ReferencesTo(texts.back()), 1) << nth;
                                  });
        EXPECT_EQ(runs, arrays + 1) << count;
    }
}

} // namespace
