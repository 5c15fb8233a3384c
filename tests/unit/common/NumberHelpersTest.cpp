/* Numbers in dictionaries and arrays, the same for each width and signedness. */

#include "AllocationFaults.h"
#include "HelperMembers.h"
#include "support/LogCapture.h"
#include "support/Matchers.h"
#include "support/PropertyLists.h"
#include "support/WithoutMemory.h"

#include <cstdint>
#include <limits>
#include <string>
#include <type_traits>

namespace {

template<typename Member>
class NumberHelpers : public testing::Test {
protected:
    using Number = typename Member::Native;

    static constexpr Number kMin = std::numeric_limits<Number>::min();
    static constexpr Number kMax = std::numeric_limits<Number>::max();
    static constexpr Number kMinusOne = static_cast<Number>(-1);

    // The function is named by container and verb: "DictionaryGet".
    static RaisedLink Raised(const std::string& function, const std::string& message) {
        return RaisedByHelper("CFH" + function + Member::kWord + "Value", message);
    }
    static RaisedLink NotConverted(const std::string& function) {
        return Raised(function, std::string("fail get num as ") + Member::kWord);
    }

    VErrLink* Set(Number value) {
        return Member::kDictionarySet(dictionary, CFSTR("key"), value);
    }
    VErrLink* Get(Number* value) {
        return Member::kDictionaryGet(dictionary, CFSTR("key"), value);
    }
    VErrLink* Adjust(Number delta) {
        return Member::kDictionaryAdjust(dictionary, CFSTR("key"), delta);
    }
    void ExpectInDictionary(Number expected) {
        Number value = 77;
        EXPECT_THAT(TakeChain(Get(&value)), IsEmpty());
        EXPECT_EQ(value, expected);
    }
    void ExpectInArray(CFIndex index, Number expected) {
        Number value = 77;
        EXPECT_THAT(TakeChain(Member::kArrayGet(array, index, &value)), IsEmpty());
        EXPECT_EQ(value, expected);
    }

    CFOwned<CFMutableDictionaryRef> dictionary = Dictionary();
    CFOwned<CFMutableArrayRef> array = Array();
    LogCapture log;
};
TYPED_TEST_SUITE(NumberHelpers, HelperMembers, HelperMemberNames);

// ---- dictionaries ----

TYPED_TEST(NumberHelpers, NumberSetInADictionaryIsReadBack) {
    using Native = typename TypeParam::Native;
    for (const auto set : {this->kMin, this->kMax, this->kMinusOne, Native{1000}}) {
        EXPECT_THAT(TakeChain(this->Set(set)), IsEmpty());
        this->ExpectInDictionary(set);
    }
    EXPECT_EQ(CFDictionaryGetCount(this->dictionary), 1);
}

TYPED_TEST(NumberHelpers, UnsignedNumberIsStoredAsTheSignedOneOfItsWidth) {
    TakeChain(this->Set(this->kMax));
    TakeChain(TypeParam::kArrayAppend(this->array, this->kMax));
    const std::int64_t stored =
        static_cast<std::make_signed_t<typename TypeParam::Native>>(this->kMax);
    EXPECT_EQ(XmlOf(this->dictionary), XmlOf(Dictionary({{"key", stored}})));
    EXPECT_EQ(XmlOf(this->array), XmlOf(Array({stored})));
}

TYPED_TEST(NumberHelpers, MissingKeyFailsAndLeavesTheOutputUnchanged) {
    typename TypeParam::Native value = 77;
    const RaisedLink missing = this->Raised("DictionaryGet", "fail get value from dict");
    EXPECT_EQ(TakeChain(this->Get(&value)), Chain{missing});
    EXPECT_EQ(value, 77);
    EXPECT_EQ(TakeChain(this->Adjust(1)),
              (Chain{missing, this->Raised("DictionaryAdjust", TypeParam::kAdjustFailure)}));
    EXPECT_EQ(CFDictionaryGetCount(this->dictionary), 0);
}

TYPED_TEST(NumberHelpers, ValueThatIsNoNumberFailsTheConversion) {
    const RaisedLink failed = this->NotConverted("DictionaryGet");
    for (const Value& value :
         {Value("1"), Value(Array({1})), Value(Share<CFTypeRef>(kCFNull)), Value(true)}) {
        this->dictionary = Dictionary({{"key", value}});
        typename TypeParam::Native got = 77;
        EXPECT_EQ(TakeChain(this->Get(&got)), Chain{failed}) << XmlOf(this->dictionary);
        EXPECT_EQ(TakeChain(this->Adjust(1)),
                  (Chain{failed, this->Raised("DictionaryAdjust", TypeParam::kAdjustFailure)}));
    }
}

TYPED_TEST(NumberHelpers, AdjustAddsTheDeltaAndWrapsInTheWidth) {
    using Native = typename TypeParam::Native;
    struct {
        Native value, delta, sum;
    } const cases[] = {
        {5, 3, 8},
        {5, this->kMinusOne, 4},
        {this->kMax, 1, this->kMin},
        {this->kMin, this->kMinusOne, this->kMax},
        {this->kMax, this->kMax, static_cast<Native>(-2)},
    };
    for (const auto& each : cases) {
        TakeChain(this->Set(each.value));
        EXPECT_THAT(TakeChain(this->Adjust(each.delta)), IsEmpty());
        this->ExpectInDictionary(each.sum);

        TakeChain(TypeParam::kArraySet(this->array, 0, each.value));
        EXPECT_THAT(TakeChain(TypeParam::kArrayAdjust(this->array, 0, each.delta)), IsEmpty());
        this->ExpectInArray(0, each.sum);
    }
    EXPECT_EQ(CFArrayGetCount(this->array), 1);
}

TYPED_TEST(NumberHelpers, DictionaryIsUnchangedWithoutMemory) {
    this->dictionary = Dictionary({{"key", 7}});
    const RaisedLink failed = this->Raised("DictionarySet", "fail alloc num");
    EXPECT_EQ(ChainWithoutMemory([&] { return this->Set(1000); }), Chain{failed});
    EXPECT_EQ(ChainWithoutMemory([&] { return this->Adjust(1000); }),
              (Chain{failed, this->Raised("DictionaryAdjust", "fail set adjusted value")}));
    EXPECT_EQ(XmlOf(this->dictionary), XmlOf(Dictionary({{"key", 7}})));
}

TYPED_TEST(NumberHelpers, FailuresAreLoggedWithoutAnyMemory) {
    this->dictionary = Dictionary({{"key", 7}});
    VErrLink* err = nullptr;
    {
        const AllocationFault fault(1, 1000);
        err = this->Adjust(1000);
    }
    EXPECT_EQ(err, &g_genericVErr);
    const std::string type = TypeParam::kWord;
    EXPECT_THAT(this->log.TakeWithoutLineNumbers(),
                ElementsAre("fail alloc num", "CFHelpers:123, CFHDictionarySet" + type + "Value",
                            "fail set adjusted value",
                            "CFHelpers:123, CFHDictionaryAdjust" + type + "Value"));
}

// ---- arrays ----

TYPED_TEST(NumberHelpers, NumbersSetAndAppendedToAnArrayAreReadBack) {
    EXPECT_THAT(TakeChain(TypeParam::kArraySet(this->array, 0, this->kMin)), IsEmpty());
    EXPECT_THAT(TakeChain(TypeParam::kArrayAppend(this->array, this->kMax)), IsEmpty());
    ASSERT_EQ(CFArrayGetCount(this->array), 2);
    this->ExpectInArray(0, this->kMin);
    this->ExpectInArray(1, this->kMax);
}

TYPED_TEST(NumberHelpers, SetBeyondTheEndFillsTheGapWithNull) {
    EXPECT_THAT(TakeChain(TypeParam::kArraySet(this->array, 3, 5)), IsEmpty());
    const auto null = Share<CFTypeRef>(kCFNull);
    EXPECT_TRUE(CFEqual(this->array, Array({null, null, null, 5})));
    typename TypeParam::Native value = 77;
    EXPECT_EQ(TakeChain(TypeParam::kArrayGet(this->array, 0, &value)),
              Chain{this->NotConverted("ArrayGet")});
}

TYPED_TEST(NumberHelpers, SetAtTheCountAppendsAndInsideReplaces) {
    this->array = Array({1, 2});
    EXPECT_THAT(TakeChain(TypeParam::kArraySet(this->array, 2, 3)), IsEmpty());
    EXPECT_THAT(TakeChain(TypeParam::kArraySet(this->array, 0, 4)), IsEmpty());
    EXPECT_EQ(XmlOf(this->array), XmlOf(Array({4, 2, 3})));
}

TYPED_TEST(NumberHelpers, AbsentElementIsReportedWithItsIndex) {
    typename TypeParam::Native value = 77;
    const RaisedLink absent = this->Raised("ArrayGet", "fail get value at index 12");
    EXPECT_EQ(TakeChain(TypeParam::kArrayGet(this->array, 12, &value)), Chain{absent});
    EXPECT_EQ(value, 77);
    EXPECT_EQ(TakeChain(TypeParam::kArrayAdjust(this->array, 12, 1)),
              (Chain{absent, this->Raised("ArrayAdjust", "fail get value at index 12")}));
}

TYPED_TEST(NumberHelpers, ArrayIsUnchangedWithoutMemory) {
    this->array = Array({7});
    const RaisedLink failed = this->Raised("ArraySet", "fail alloc num");
    EXPECT_EQ(ChainWithoutMemory([&] { return TypeParam::kArraySet(this->array, 3, 1000); }),
              Chain{failed});
    EXPECT_EQ(ChainWithoutMemory([&] { return TypeParam::kArrayAppend(this->array, 1000); }),
              Chain{this->Raised("ArrayAppend", "fail alloc num")});
    EXPECT_EQ(ChainWithoutMemory([&] { return TypeParam::kArrayAdjust(this->array, 0, 1000); }),
              (Chain{failed, this->Raised("ArrayAdjust", "fail set adjusted value at index 0")}));
    EXPECT_EQ(XmlOf(this->array), XmlOf(Array({7})));
}

// ---- single widths ----

TEST(NumberConversion, NumberThatDoesNotFitFailsAndLeavesItsLowBits) {
    const auto dictionary = Dictionary({{"16", 70000}, {"32", 0x100000005}});
    SInt16 narrow = 77;
    EXPECT_EQ(TakeChain(CFHDictionaryGetSInt16Value(dictionary, CFSTR("16"), &narrow)),
              Chain{RaisedByHelper("CFHDictionaryGetSInt16Value", "fail get num as SInt16")});
    EXPECT_EQ(narrow, 4464);
    SInt32 wide = 77;
    EXPECT_EQ(TakeChain(CFHDictionaryGetSInt32Value(dictionary, CFSTR("32"), &wide)),
              Chain{RaisedByHelper("CFHDictionaryGetSInt32Value", "fail get num as SInt32")});
    EXPECT_EQ(wide, 5);
}

TEST(NumberConversion, SixteenBitGetAcceptsTheUnsignedValuesOfItsWidth) {
    const auto dictionary = Dictionary({{"positive", 40000}, {"negative", -25536}});
    for (CFStringRef key : {CFSTR("positive"), CFSTR("negative")}) {
        UInt16 value = 0;
        EXPECT_THAT(TakeChain(CFHDictionaryGetUInt16Value(dictionary, key, &value)), IsEmpty());
        EXPECT_EQ(value, 40000);
    }
}

TEST(NumberConversion, GuidOf64BitsIsReadBackUnchanged) {
    const auto dictionary = Dictionary();
    UInt64 value = 0;
    TakeChain(CFHDictionarySetUInt64Value(dictionary, CFSTR("GUID"), 0x9EDCBA9876543210));
    EXPECT_EQ(XmlOf(dictionary), XmlOf(Dictionary({{"GUID", -6999514556857568752}})));
    TakeChain(CFHDictionaryGetUInt64Value(dictionary, CFSTR("GUID"), &value));
    EXPECT_EQ(value, 0x9EDCBA9876543210);
}

TEST(Padding, GapIsFilledWithNull) {
    const auto array = Array({1});
    EXPECT_EQ(CFHArrayPadToValueAtIndex(array, 3, CFSTR("x")), nullptr);
    EXPECT_EQ(CFHArrayPadToValueAtIndex(array, 0, CFSTR("y")), nullptr);
    const auto null = Share<CFTypeRef>(kCFNull);
    EXPECT_TRUE(CFEqual(array, Array({"y", null, null, "x"})));
}

} // namespace
