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
#include <functional>
#include <set>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

namespace {

using Value = CFOwned<CFTypeRef>;
using Pairs = std::vector<cf::Pair>;

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
    Pairs objects;
    for (const auto& [key, value] : pairs)
        objects.push_back({cf::AsObject(key), cf::AsObject(value)});
    return Value(cf::SharedDictionary(objects));
}

CFTypeRef Find(CFTypeRef dictionary, CFTypeRef key) {
    return CFDictionaryGetValue(static_cast<CFDictionaryRef>(dictionary), key);
}

CFIndex CountPairs(CFTypeRef dictionary) {
    return CFDictionaryGetCount(static_cast<CFDictionaryRef>(dictionary));
}

class SharedValues : public testing::Test {
protected:
    // A test leaves no values, and the table no memory for them.
    ~SharedValues() override {
        EXPECT_EQ(cf::MeasureSharedTable().values, 0U);
        EXPECT_EQ(cf::MeasureSharedTable().places, 0U);
    }
};

TEST_F(SharedValues, EqualOnesAreOneObject) {
    const std::uint8_t bytes[] = {1, 2, 3};
    const std::function<Value()> makers[] = {
        [] { return String("name"); },
        [] { return Value(cf::SharedInteger(kLarge)); },
        [] { return Value(cf::SharedUnsignedInteger(UINT64_MAX)); },
        [] { return Value(cf::SharedReal(1.5)); },
        [] { return Value(cf::SharedDate(1.5)); },
        [&] { return Value(cf::SharedData(bytes)); },
        [] { return Array({kCFBooleanTrue, String("name")}); },
        [] { return Dictionary({{String("a"), String("name")}, {String("b"), kCFBooleanTrue}}); },
    };
    for (const auto& make : makers) {
        const auto index = &make - makers;
        const Value one = make();
        const Value same = make();
        EXPECT_EQ(one.Get(), same.Get()) << index;
        EXPECT_EQ(ReferencesTo(one), 2) << index;
        for (const auto* other = makers; other != &make; ++other)
            EXPECT_FALSE(CFEqual(one, (*other)())) << index << ", " << other - makers;
    }
}

TEST_F(SharedValues, NumbersOfOtherKindsOrBitsAreOtherObjects) {
    const Value integer(cf::SharedInteger(70000));
    const Value real(cf::SharedReal(70000.0));
    EXPECT_NE(integer.Get(), real.Get());
    EXPECT_TRUE(CFEqual(integer, real));
    const Value zero(cf::SharedReal(0.0));
    const Value negativeZero(cf::SharedReal(-0.0));
    EXPECT_NE(zero.Get(), negativeZero.Get());
    const Value notANumber(cf::SharedReal(std::nan("")));
    EXPECT_EQ(notANumber.Get(), Value(cf::SharedReal(std::nan(""))).Get());
    const std::int64_t bits = std::bit_cast<std::int64_t>(UINT64_MAX - 7);
    EXPECT_NE(Value(cf::SharedInteger(bits)).Get(),
              Value(cf::SharedUnsignedInteger(UINT64_MAX - 7)).Get());
}

TEST_F(SharedValues, SmallIntegersAreTaggedReferences) {
    EXPECT_EQ(Value(cf::SharedInteger(7)).Get(), Integer(7).Get());
    EXPECT_EQ(cf::MeasureSharedTable().values, 0U);
}

TEST_F(SharedValues, StringsMayContainNul) {
    const Value text = String(std::string_view("a\0b", 3));
    EXPECT_EQ(CFStringGetLength(static_cast<CFStringRef>(text.Get())), 3);
    EXPECT_NE(text.Get(), String("a").Get());
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

TEST_F(SharedValues, DictionariesFindValuesByEqualKeys) {
    std::vector<std::pair<CFTypeRef, CFTypeRef>> pairs;
    std::vector<Value> owned;
    for (int i = 0; i < 100; ++i) {
        owned.push_back(String("key " + std::to_string(i)));
        owned.push_back(Value(cf::SharedInteger(100000 + i)));
        pairs.emplace_back(owned[owned.size() - 2], owned.back());
    }
    const Value dictionary = Dictionary(pairs);
    EXPECT_EQ(CountPairs(dictionary), 100);
    for (int i = 0; i < 100; ++i) {
        const auto key = Text("key " + std::to_string(i));
        EXPECT_TRUE(CFEqual(Find(dictionary, key), Integer(100000 + i)));
    }
    EXPECT_EQ(Find(dictionary, CFSTR("key")), nullptr);
    EXPECT_EQ(Find(dictionary, kCFBooleanTrue), nullptr);
}

TEST_F(SharedValues, DictionariesTakeConstantKeys) {
    const Value dictionary = Dictionary({{CFSTR("key"), kCFBooleanTrue}});
    EXPECT_EQ(Find(dictionary, String("key")), kCFBooleanTrue);
}

TEST_F(SharedValues, OrderOfPairsIsIgnored) {
    const Value a = String("a");
    const Value b = String("b");
    EXPECT_EQ(Dictionary({{a, kCFBooleanTrue}, {b, kCFBooleanFalse}}).Get(),
              Dictionary({{b, kCFBooleanFalse}, {a, kCFBooleanTrue}}).Get());
    EXPECT_NE(Dictionary({{a, kCFBooleanTrue}, {b, kCFBooleanFalse}}).Get(),
              Dictionary({{a, kCFBooleanFalse}, {b, kCFBooleanTrue}}).Get());
}

TEST_F(SharedValues, EmptyCollectionsWork) {
    const Value dictionary = Dictionary({});
    const Value array = Array({});
    EXPECT_EQ(dictionary.Get(), Dictionary({}).Get());
    EXPECT_EQ(CountPairs(dictionary), 0);
    EXPECT_EQ(Find(dictionary, CFSTR("key")), nullptr);
    EXPECT_TRUE(CFEqual(dictionary, NewDictionary()));
    EXPECT_TRUE(CFEqual(array, NewArray()));
}

TEST_F(SharedValues, DoNotChange) {
    const Value key = String("key");
    const Value dictionary = Dictionary({{key, kCFBooleanTrue}});
    auto* immutable = static_cast<CFMutableDictionaryRef>(const_cast<void*>(dictionary.Get()));
    CFDictionarySetValue(immutable, CFSTR("key"), kCFBooleanFalse);
    CFDictionarySetValue(immutable, CFSTR("more"), kCFBooleanFalse);
    CFDictionaryRemoveValue(immutable, key);
    EXPECT_EQ(CFDictionaryGetCount(immutable), 1);
    EXPECT_EQ(CFDictionaryGetValue(immutable, key), kCFBooleanTrue);
    const CFOwned<CFMutableDictionaryRef> copy(
        CFDictionaryCreateMutableCopy(nullptr, 0, immutable));
    CFDictionarySetValue(copy, CFSTR("more"), kCFBooleanFalse);
    EXPECT_EQ(CFDictionaryGetCount(copy), 2);
}

TEST_F(SharedValues, DictionariesGiveTheirPairs) {
    const Value a = String("a");
    const Value b = String("b");
    const Value dictionary = Dictionary({{a, b}, {b, a}});
    const void* keys[2];
    const void* values[2];
    CFDictionaryGetKeysAndValues(static_cast<CFDictionaryRef>(dictionary.Get()), keys, values);
    EXPECT_TRUE((keys[0] == a && values[0] == b && keys[1] == b && values[1] == a) ||
                (keys[0] == b && values[0] == a && keys[1] == a && values[1] == b));
}

TEST_F(SharedValues, AreReleasedWithTheLastReference) {
    {
        const Value list = Array({Dictionary({{String("key"), Array({String("deep")})}})});
        // Two strings, two arrays, one dictionary and the array of its keys.
        EXPECT_EQ(cf::MeasureSharedTable().values, 6U);
    }
    EXPECT_EQ(cf::MeasureSharedTable().values, 0U);
}

TEST_F(SharedValues, TableGrowsAndShrinksWithManyValues) {
    constexpr int kMany = 20000;
    std::vector<Value> values;
    for (int i = 0; i < kMany; ++i)
        values.push_back(String("value " + std::to_string(i)));
    for (int i = 0; i < kMany; ++i) {
        ASSERT_EQ(String("value " + std::to_string(i)).Get(),
                  values[static_cast<std::size_t>(i)].Get());
    }
    EXPECT_GE(cf::MeasureSharedTable().places, std::size_t{kMany});
    EXPECT_LT(cf::MeasureSharedTable().places, std::size_t{4} * kMany);
    for (int kept = kMany; kept > 100; kept /= 2)
        values.erase(values.begin() + kept / 2, values.end());
    for (const Value& value : values)
        EXPECT_EQ(ReferencesTo(value), 1);
    EXPECT_EQ(cf::MeasureSharedTable().values, values.size());
    EXPECT_LT(cf::MeasureSharedTable().places, std::size_t{1000});
    EXPECT_EQ(String("value 17").Get(), values[17].Get());
}

// 60,000 values: some have the same hash value.
TEST_F(SharedValues, OfEqualHashAreDifferentObjects) {
    constexpr int kMany = 20000;
    std::vector<Value> values;
    for (int i = 0; i < kMany; ++i) {
        const Value key = String(std::to_string(i));
        values.push_back(Dictionary({{key, kCFBooleanTrue}}));
        values.push_back(Dictionary({{CFSTR("key"), key}}));
        values.push_back(Array({key, kCFBooleanTrue}));
    }
    const std::set<CFTypeRef> objects(values.begin(), values.end());
    EXPECT_EQ(objects.size(), values.size());
}

// All threads create and release the same few values, so a search often finds one whose last
// reference was just released.
TEST_F(SharedValues, AreOneObjectWhileThreadsCreateAndReleaseThem) {
    constexpr int kThreads = 4;
    constexpr int kIterations = 20000;
    std::atomic<int> mismatches = 0;
    const auto work = [&mismatches] {
        for (int i = 0; i < kIterations; ++i) {
            const std::string name = "medium " + std::to_string(i % 3);
            const Value key = String("name");
            const Value value = String(name);
            const Value list = Array({Dictionary({{key, value}}), value});
            const Value same = Array({Dictionary({{key, value}}), value});
            const auto* member = CFArrayGetValueAtIndex(static_cast<CFArrayRef>(list.Get()), 0);
            const auto* found = Find(member, CFSTR("name"));
            if (list.Get() != same.Get() || found != value || !CFEqual(value, Text(name.c_str())))
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

TEST_F(SharedValues, ShapeFitsTheKeysOfTheDictionaryBefore) {
    const Value first = String("first");
    const Value second = String("second");
    const cf::Object* yes = cf::AsObject(kCFBooleanTrue);
    const cf::Object* no = cf::AsObject(kCFBooleanFalse);
    const Pairs written = {{cf::AsObject(first), yes}, {cf::AsObject(second), no}};
    cf::DictionaryShape shape;
    EXPECT_FALSE(shape.Fits(written));

    Pairs pairs = written;
    const Value dictionary(shape.ShareAndRemember(pairs));
    EXPECT_TRUE(shape.Fits(written));
    EXPECT_FALSE(shape.Fits({}));
    EXPECT_EQ(Value(shape.Share(written)).Get(), dictionary.Get());

    pairs = {{cf::AsObject(first), no}, {cf::AsObject(second), yes}};
    const Value other(shape.Share(pairs));
    EXPECT_EQ(other.Get(), Dictionary({{first, kCFBooleanFalse}, {second, kCFBooleanTrue}}).Get());

    const Pairs reversed = {written[1], written[0]};
    pairs = reversed;
    EXPECT_FALSE(shape.Fits(reversed));
    EXPECT_EQ(Value(shape.ShareAndRemember(pairs)).Get(), dictionary.Get());
    EXPECT_TRUE(shape.Fits(reversed));
    EXPECT_FALSE(shape.Fits(written));
}

TEST_F(SharedValues, PendingDictionariesBecomeTheMembersAtTheirIndices) {
    const Value key = String("key");
    Pairs pairs = {{cf::AsObject(key), cf::AsObject(kCFBooleanTrue)}};
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
        EXPECT_EQ(members[static_cast<std::size_t>(i)], Dictionary({{key, value}}).Get());
    }
    for (const cf::Object* member : members)
        cf::Release(member);
}

TEST_F(SharedValues, DestroyedShapeReleasesPendingDictionaries) {
    const Value key = String("key");
    Pairs pairs = {{cf::AsObject(key), cf::AsObject(kCFBooleanTrue)}};
    cf::DictionaryShape shape;
    const Value first(shape.ShareAndRemember(pairs));
    pairs[0].value = cf::SharedString("value");
    shape.Enqueue(pairs, 0);
}

TEST_F(SharedValues, DictionaryOfTooManyKeysHasNoShape) {
    std::vector<Value> keys;
    Pairs pairs;
    for (std::size_t i = 0; i <= cf::DictionaryShape::kMaximumKeys; ++i) {
        keys.push_back(String(std::to_string(i)));
        pairs.push_back({cf::AsObject(keys.back()), cf::AsObject(kCFBooleanTrue)});
    }
    cf::DictionaryShape shape;
    Pairs written = pairs;
    const Value many(shape.ShareAndRemember(written));
    EXPECT_FALSE(shape.Fits(pairs));
    pairs.pop_back();
    written = pairs;
    const Value fewer(shape.ShareAndRemember(written));
    EXPECT_TRUE(shape.Fits(pairs));
}

} // namespace
