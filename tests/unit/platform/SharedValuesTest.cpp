#include "objects/SharedValues.h"

#include "TestObjects.h"
#include "objects/SharedTable.h"
#include "plist/DictionaryShape.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <bit>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <set>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

namespace {

using Value = CFOwned<CFTypeRef>;

Value String(std::string_view text) {
    return Value(cf::SharedString(text));
}

Value Array(const std::vector<CFTypeRef>& members) {
    std::vector<const cf::Object*> objects;
    for (const CFTypeRef member : members)
        objects.push_back(cf::AsObject(member));
    return Value(cf::SharedArray(objects));
}

Value Dictionary(const std::vector<std::pair<CFTypeRef, CFTypeRef>>& pairs) {
    std::vector<cf::Pair> objects;
    for (const auto& [key, value] : pairs)
        objects.push_back({cf::AsObject(key), cf::AsObject(value)});
    return Value(cf::SharedDictionary(objects));
}

CFDictionaryRef AsDictionary(CFTypeRef value) {
    return static_cast<CFDictionaryRef>(value);
}

class SharedValues : public testing::Test {
protected:
    // Nothing stays behind a test, neither values nor the table's own memory.
    ~SharedValues() override {
        EXPECT_EQ(cf::MeasureSharedTable().values, 0U);
        EXPECT_EQ(cf::MeasureSharedTable().places, 0U);
    }
};

TEST_F(SharedValues, EqualOnesAreOneObject) {
    const std::uint8_t bytes[] = {1, 2, 3};
    const auto make = [&](int which) {
        switch (which) {
        case 0:
            return String("name");
        case 1:
            return Value(cf::SharedInteger(kLarge));
        case 2:
            return Value(cf::SharedUnsignedInteger(UINT64_MAX));
        case 3:
            return Value(cf::SharedReal(1.5));
        case 4:
            return Value(cf::SharedDate(1.5));
        case 5:
            return Value(cf::SharedData(bytes));
        case 6:
            return Array({kCFBooleanTrue, String("name")});
        default:
            return Dictionary({{String("a"), String("name")}, {String("b"), kCFBooleanTrue}});
        }
    };
    for (int which = 0; which < 8; ++which) {
        const Value one = make(which);
        const Value same = make(which);
        EXPECT_EQ(CFTypeRef{one}, CFTypeRef{same}) << which;
        EXPECT_EQ(ReferencesTo(one), 2) << which;
        for (int other = 0; other < which; ++other)
            EXPECT_FALSE(CFEqual(one, make(other))) << which << ", " << other;
    }
}

TEST_F(SharedValues, KindsOfNumbersStayApart) {
    const Value integer(cf::SharedInteger(70000));
    const Value real(cf::SharedReal(70000.0));
    EXPECT_NE(CFTypeRef{integer}, CFTypeRef{real});
    EXPECT_TRUE(CFEqual(integer, real));
    const Value zero(cf::SharedReal(0.0));
    const Value negativeZero(cf::SharedReal(-0.0));
    EXPECT_NE(CFTypeRef{zero}, CFTypeRef{negativeZero});
    const Value notANumber(cf::SharedReal(std::nan("")));
    EXPECT_EQ(CFTypeRef{notANumber}, CFTypeRef{Value(cf::SharedReal(std::nan("")))});
    const std::int64_t bits = std::bit_cast<std::int64_t>(UINT64_MAX - 7);
    EXPECT_NE(CFTypeRef{Value(cf::SharedInteger(bits))},
              CFTypeRef{Value(cf::SharedUnsignedInteger(UINT64_MAX - 7))});
}

TEST_F(SharedValues, IntegersThatNeedNoObjectAreTheUsualOnes) {
    EXPECT_EQ(CFTypeRef{Value(cf::SharedInteger(7))}, CFTypeRef{Integer(7)});
    EXPECT_EQ(cf::MeasureSharedTable().values, 0U);
}

TEST_F(SharedValues, MayHoldZeros) {
    const Value text = String(std::string_view("a\0b", 3));
    EXPECT_EQ(CFStringGetLength(static_cast<CFStringRef>(CFTypeRef{text})), 3);
    EXPECT_NE(CFTypeRef{text}, CFTypeRef{String("a")});
}

TEST_F(SharedValues, EqualOrdinaryOnes) {
    const auto array = NewArray();
    CFArrayAppendValue(array, CFSTR("name"));
    EXPECT_TRUE(CFEqual(Array({String("name")}), array));
    EXPECT_TRUE(CFEqual(array, Array({String("name")})));
    const auto dictionary = NewDictionary();
    CFDictionarySetValue(dictionary, CFSTR("key"), array);
    EXPECT_TRUE(CFEqual(Dictionary({{String("key"), Array({String("name")})}}), dictionary));
    EXPECT_TRUE(CFEqual(dictionary, Dictionary({{String("key"), Array({String("name")})}})));
}

TEST_F(SharedValues, DictionariesFindWhatAnyEqualKeyNames) {
    std::vector<std::pair<CFTypeRef, CFTypeRef>> pairs;
    std::vector<Value> owned;
    for (int i = 0; i < 100; ++i) {
        owned.push_back(String("key " + std::to_string(i)));
        owned.push_back(Value(cf::SharedInteger(100000 + i)));
        pairs.emplace_back(owned[owned.size() - 2], owned.back());
    }
    const Value dictionary = Dictionary(pairs);
    EXPECT_EQ(CFDictionaryGetCount(AsDictionary(dictionary)), 100);
    for (int i = 0; i < 100; ++i) {
        const auto key = Text(("key " + std::to_string(i)).c_str());
        EXPECT_TRUE(
            CFEqual(CFDictionaryGetValue(AsDictionary(dictionary), key), Integer(100000 + i)));
    }
    EXPECT_EQ(CFDictionaryGetValue(AsDictionary(dictionary), CFSTR("key")), nullptr);
    EXPECT_EQ(CFDictionaryGetValue(AsDictionary(dictionary), kCFBooleanTrue), nullptr);
}

TEST_F(SharedValues, DictionariesTakeConstantKeys) {
    const Value dictionary = Dictionary({{CFSTR("key"), kCFBooleanTrue}});
    EXPECT_EQ(CFDictionaryGetValue(AsDictionary(dictionary), String("key")), kCFBooleanTrue);
}

TEST_F(SharedValues, TheOrderOfPairsIsOfNoAccount) {
    const Value a = String("a");
    const Value b = String("b");
    EXPECT_EQ(CFTypeRef{Dictionary({{a, kCFBooleanTrue}, {b, kCFBooleanFalse}})},
              CFTypeRef{Dictionary({{b, kCFBooleanFalse}, {a, kCFBooleanTrue}})});
    EXPECT_NE(CFTypeRef{Dictionary({{a, kCFBooleanTrue}, {b, kCFBooleanFalse}})},
              CFTypeRef{Dictionary({{a, kCFBooleanFalse}, {b, kCFBooleanTrue}})});
}

TEST_F(SharedValues, EmptyCollectionsWork) {
    const Value dictionary = Dictionary({});
    const Value array = Array({});
    EXPECT_EQ(CFTypeRef{dictionary}, CFTypeRef{Dictionary({})});
    EXPECT_EQ(CFDictionaryGetCount(AsDictionary(dictionary)), 0);
    EXPECT_EQ(CFDictionaryGetValue(AsDictionary(dictionary), CFSTR("key")), nullptr);
    EXPECT_TRUE(CFEqual(dictionary, NewDictionary()));
    EXPECT_TRUE(CFEqual(array, NewArray()));
}

TEST_F(SharedValues, DoNotChange) {
    const Value key = String("key");
    const Value dictionary = Dictionary({{key, kCFBooleanTrue}});
    auto* pretended = const_cast<CFMutableDictionaryRef>(AsDictionary(dictionary));
    CFDictionarySetValue(pretended, CFSTR("key"), kCFBooleanFalse);
    CFDictionarySetValue(pretended, CFSTR("more"), kCFBooleanFalse);
    CFDictionaryRemoveValue(pretended, key);
    EXPECT_EQ(CFDictionaryGetCount(pretended), 1);
    EXPECT_EQ(CFDictionaryGetValue(pretended, key), kCFBooleanTrue);
    const CFOwned<CFMutableDictionaryRef> copy(
        CFDictionaryCreateMutableCopy(nullptr, 0, pretended));
    CFDictionarySetValue(copy, CFSTR("more"), kCFBooleanFalse);
    EXPECT_EQ(CFDictionaryGetCount(copy), 2);
}

TEST_F(SharedValues, DictionariesGiveTheirPairs) {
    const Value a = String("a");
    const Value b = String("b");
    const Value dictionary = Dictionary({{a, b}, {b, a}});
    const void* keys[2];
    const void* values[2];
    CFDictionaryGetKeysAndValues(AsDictionary(dictionary), keys, values);
    EXPECT_TRUE((keys[0] == a && values[0] == b && keys[1] == b && values[1] == a) ||
                (keys[0] == b && values[0] == a && keys[1] == a && values[1] == b));
}

TEST_F(SharedValues, GoWithTheirLastUser) {
    {
        const Value list = Array({Dictionary({{String("key"), Array({String("deep")})}})});
        // Two strings, two arrays, one dictionary and the array of its keys.
        EXPECT_EQ(cf::MeasureSharedTable().values, 6U);
    }
    EXPECT_EQ(cf::MeasureSharedTable().values, 0U);
}

TEST_F(SharedValues, ManyComeAndGo) {
    constexpr int kMany = 20000;
    std::vector<Value> values;
    for (int i = 0; i < kMany; ++i)
        values.push_back(String("value " + std::to_string(i)));
    for (int i = 0; i < kMany; ++i) {
        ASSERT_EQ(CFTypeRef{String("value " + std::to_string(i))},
                  CFTypeRef{values[static_cast<std::size_t>(i)]});
    }
    EXPECT_GE(cf::MeasureSharedTable().places, std::size_t{kMany});
    EXPECT_LT(cf::MeasureSharedTable().places, std::size_t{4} * kMany);
    for (int kept = kMany; kept > 100; kept /= 2)
        values.erase(values.begin() + kept / 2, values.end());
    for (const Value& value : values)
        EXPECT_EQ(ReferencesTo(value), 1);
    EXPECT_EQ(cf::MeasureSharedTable().values, values.size());
    EXPECT_LT(cf::MeasureSharedTable().places, std::size_t{1000});
    EXPECT_EQ(CFTypeRef{String("value 17")}, CFTypeRef{values[17]});
}

// So many that some have the same hash value.
TEST_F(SharedValues, OfEqualHashStayApart) {
    constexpr int kMany = 20000;
    std::vector<Value> values;
    std::set<CFTypeRef> objects;
    for (int i = 0; i < kMany; ++i) {
        const Value key = String(std::to_string(i));
        values.push_back(Dictionary({{key, kCFBooleanTrue}}));
        objects.insert(values.back());
        values.push_back(Dictionary({{CFSTR("key"), key}}));
        objects.insert(values.back());
        values.push_back(Array({key, kCFBooleanTrue}));
        objects.insert(values.back());
    }
    EXPECT_EQ(objects.size(), values.size());
}

// All threads make and drop the same few values, so that many a search meets one whose last
// reference has just gone.
TEST_F(SharedValues, AreOneObjectWhileThreadsMakeAndDropThem) {
    constexpr int kThreads = 4;
    constexpr int kRounds = 20000;
    std::atomic<int> mismatches = 0;
    const auto work = [&mismatches] {
        for (int round = 0; round < kRounds; ++round) {
            const std::string name = "medium " + std::to_string(round % 3);
            const Value key = String("name");
            const Value value = String(name);
            const Value list = Array({Dictionary({{key, value}}), value});
            const Value same = Array({Dictionary({{key, value}}), value});
            const auto* found = CFDictionaryGetValue(
                AsDictionary(CFArrayGetValueAtIndex(static_cast<CFArrayRef>(CFTypeRef{list}), 0)),
                CFSTR("name"));
            if (CFTypeRef{list} != CFTypeRef{same} || found != value ||
                !CFEqual(value, Text(name.c_str())))
                ++mismatches;
        }
    };
    std::vector<std::jthread> threads;
    for (int i = 0; i < kThreads; ++i)
        threads.emplace_back(work);
    threads.clear();
    EXPECT_EQ(mismatches, 0);
}

// ---- the shape of a dictionary ----

TEST_F(SharedValues, ADictionaryIsExpectedToBeLikeTheOneBefore) {
    const Value first = String("first");
    const Value second = String("second");
    const cf::Object* yes = cf::AsObject(kCFBooleanTrue);
    const cf::Object* no = cf::AsObject(kCFBooleanFalse);
    const std::vector<cf::Pair> written = {{cf::AsObject(first), yes}, {cf::AsObject(second), no}};
    cf::DictionaryShape shape;
    EXPECT_FALSE(shape.Fits(written));

    std::vector<cf::Pair> pairs = written;
    const Value dictionary(shape.ShareAndRemember(pairs));
    EXPECT_TRUE(shape.Fits(written));
    EXPECT_FALSE(shape.Fits({}));
    EXPECT_EQ(Value(shape.Share(written)).operator CFTypeRef(), dictionary.operator CFTypeRef());

    pairs = {{cf::AsObject(first), no}, {cf::AsObject(second), yes}};
    const Value other(shape.Share(pairs));
    EXPECT_EQ(
        other.operator CFTypeRef(),
        Dictionary({{first, kCFBooleanFalse}, {second, kCFBooleanTrue}}).operator CFTypeRef());

    const std::vector<cf::Pair> reversed = {written[1], written[0]};
    pairs = reversed;
    EXPECT_FALSE(shape.Fits(reversed));
    EXPECT_EQ(Value(shape.ShareAndRemember(pairs)).operator CFTypeRef(),
              dictionary.operator CFTypeRef());
    EXPECT_TRUE(shape.Fits(reversed));
    EXPECT_FALSE(shape.Fits(written));
}

TEST_F(SharedValues, PendingDictionariesBecomeTheMembersWithTheirIndices) {
    const Value key = String("key");
    std::vector<cf::Pair> pairs = {{cf::AsObject(key), cf::AsObject(kCFBooleanTrue)}};
    const auto setValue = [&pairs](int number) {
        pairs[0].value = cf::SharedString("value " + std::to_string(number));
    };
    std::vector<const cf::Object*> members(4);
    cf::DictionaryShape shape;
    members[0] = shape.ShareAndRemember(pairs);
    for (const int index : {2, 1, 3}) {
        setValue(index);
        ASSERT_TRUE(shape.Fits(pairs));
        ASSERT_EQ(shape.FindLast(pairs), nullptr);
        shape.Enqueue(pairs, static_cast<std::size_t>(index));
    }
    EXPECT_EQ(shape.PendingCount(), 3U);
    shape.SharePending(members);
    EXPECT_EQ(shape.PendingCount(), 0U);
    for (int i = 1; i <= 3; ++i) {
        const Value value = String("value " + std::to_string(i));
        EXPECT_EQ(members[static_cast<std::size_t>(i)],
                  Dictionary({{key, value}}).operator CFTypeRef());
    }
    for (const cf::Object* member : members)
        cf::Release(member);
}

TEST_F(SharedValues, PendingDictionariesOfAShapeThatEndsLeaveNothing) {
    const Value key = String("key");
    std::vector<cf::Pair> pairs = {{cf::AsObject(key), cf::AsObject(kCFBooleanTrue)}};
    cf::DictionaryShape shape;
    const Value first(shape.ShareAndRemember(pairs));
    pairs[0].value = cf::SharedString("value");
    shape.Enqueue(pairs, 0);
}

TEST_F(SharedValues, ADictionaryOfManyKeysIsNoShape) {
    std::vector<Value> keys;
    std::vector<cf::Pair> pairs;
    for (std::size_t i = 0; i <= cf::DictionaryShape::kMaximumKeys; ++i) {
        keys.push_back(String(std::to_string(i)));
        pairs.push_back({cf::AsObject(keys.back()), cf::AsObject(kCFBooleanTrue)});
    }
    cf::DictionaryShape shape;
    std::vector<cf::Pair> written = pairs;
    const Value many(shape.ShareAndRemember(written));
    EXPECT_FALSE(shape.Fits(pairs));
    pairs.pop_back();
    written = pairs;
    const Value fewer(shape.ShareAndRemember(written));
    EXPECT_TRUE(shape.Fits(pairs));
}

} // namespace
