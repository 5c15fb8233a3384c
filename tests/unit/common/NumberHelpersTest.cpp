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
    static constexpr typename Member::Native kMin =
        std::numeric_limits<typename Member::Native>::min();
    static constexpr typename Member::Native kMax =
        std::numeric_limits<typename Member::Native>::max();
    static constexpr typename Member::Native kMinusOne = static_cast<typename Member::Native>(-1);
    // Neither small nor a limit. AllocationFault(1) makes CFNumberCreate fail for any number.
    static constexpr typename Member::Native kOrdinary = 1000;

    static std::string Name(const std::string& container, const std::string& verb) {
        return "CFH" + container + verb + Member::kWord + "Value";
    }
    static std::string ConversionFailure() {
        return std::string("fail get num as ") + Member::kWord;
    }

    CFOwned<CFMutableDictionaryRef> dictionary = Dictionary();
    CFOwned<CFMutableArrayRef> array = Array();
    LogCapture log;
};
TYPED_TEST_SUITE(NumberHelpers, HelperMembers, HelperMemberNames);

// ---- dictionaries ----

TYPED_TEST(NumberHelpers, ADictionaryGivesBackWhatWasSet) {
    for (const auto set : {this->kMin, this->kMax, this->kMinusOne, this->kOrdinary}) {
        typename TypeParam::Native got = 77;
        EXPECT_THAT(TakeChain(TypeParam::kDictionarySet(this->dictionary, CFSTR("key"), set)),
                    IsEmpty());
        EXPECT_THAT(TakeChain(TypeParam::kDictionaryGet(this->dictionary, CFSTR("key"), &got)),
                    IsEmpty());
        EXPECT_EQ(got, set);
    }
    EXPECT_EQ(CFDictionaryGetCount(this->dictionary), 1);
}

TYPED_TEST(NumberHelpers, AnUnsignedNumberIsStoredAsTheSignedOneOfItsWidth) {
    using Native = typename TypeParam::Native;
    TakeChain(TypeParam::kDictionarySet(this->dictionary, CFSTR("key"), this->kMax));
    TakeChain(TypeParam::kArrayAppend(this->array, this->kMax));
    const std::int64_t stored = static_cast<std::make_signed_t<Native>>(this->kMax);
    EXPECT_EQ(XmlOf(this->dictionary), XmlOf(Dictionary({{"key", stored}})));
    EXPECT_EQ(XmlOf(this->array), XmlOf(Array({stored})));
}

TYPED_TEST(NumberHelpers, AMissingKeyLeavesTheOutputUnchanged) {
    typename TypeParam::Native value = 77;
    EXPECT_EQ(TakeChain(TypeParam::kDictionaryGet(this->dictionary, CFSTR("key"), &value)),
              Chain{RaisedByHelper(this->Name("Dictionary", "Get"), "fail get value from dict")});
    EXPECT_EQ(value, 77);
}

TYPED_TEST(NumberHelpers, AValueThatIsNoNumberFailsTheConversion) {
    this->dictionary = Dictionary({{"text", "1"},
                                   {"array", Array({1})},
                                   {"null", Share<CFTypeRef>(kCFNull)},
                                   {"flag", true}});
    for (const char* key : {"text", "array", "null", "flag"}) {
        typename TypeParam::Native value = 77;
        EXPECT_EQ(TakeChain(TypeParam::kDictionaryGet(this->dictionary, Text(key), &value)),
                  Chain{RaisedByHelper(this->Name("Dictionary", "Get"), this->ConversionFailure())})
            << key;
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
        TakeChain(TypeParam::kDictionarySet(this->dictionary, CFSTR("key"), each.value));
        EXPECT_THAT(
            TakeChain(TypeParam::kDictionaryAdjust(this->dictionary, CFSTR("key"), each.delta)),
            IsEmpty());
        Native sum = 77;
        TakeChain(TypeParam::kDictionaryGet(this->dictionary, CFSTR("key"), &sum));
        EXPECT_EQ(sum, each.sum);

        TakeChain(TypeParam::kArraySet(this->array, 0, each.value));
        EXPECT_THAT(TakeChain(TypeParam::kArrayAdjust(this->array, 0, each.delta)), IsEmpty());
        TakeChain(TypeParam::kArrayGet(this->array, 0, &sum));
        EXPECT_EQ(sum, each.sum);
    }
    EXPECT_EQ(CFArrayGetCount(this->array), 1);
}

TYPED_TEST(NumberHelpers, AdjustOfAMissingKeyFails) {
    EXPECT_EQ(
        TakeChain(TypeParam::kDictionaryAdjust(this->dictionary, CFSTR("key"), 1)),
        (Chain{RaisedByHelper(this->Name("Dictionary", "Get"), "fail get value from dict"),
               RaisedByHelper(this->Name("Dictionary", "Adjust"), TypeParam::kAdjustFailure)}));
    EXPECT_EQ(CFDictionaryGetCount(this->dictionary), 0);
}

TYPED_TEST(NumberHelpers, AdjustOfAValueThatIsNoNumberFails) {
    this->dictionary = Dictionary({{"key", "text"}});
    EXPECT_EQ(
        TakeChain(TypeParam::kDictionaryAdjust(this->dictionary, CFSTR("key"), 1)),
        (Chain{RaisedByHelper(this->Name("Dictionary", "Get"), this->ConversionFailure()),
               RaisedByHelper(this->Name("Dictionary", "Adjust"), TypeParam::kAdjustFailure)}));
}

TYPED_TEST(NumberHelpers, WithoutMemorySetLeavesTheDictionaryAsItWas) {
    this->dictionary = Dictionary({{"key", 7}});
    VErrLink* err = nullptr;
    {
        const AllocationFault fault(1);
        err = TypeParam::kDictionarySet(this->dictionary, CFSTR("key"), this->kOrdinary);
    }
    EXPECT_EQ(TakeChain(err),
              Chain{RaisedByHelper(this->Name("Dictionary", "Set"), "fail alloc num")});
    EXPECT_EQ(XmlOf(this->dictionary), XmlOf(Dictionary({{"key", 7}})));
}

TYPED_TEST(NumberHelpers, WithoutMemoryAdjustLeavesTheDictionaryAsItWas) {
    this->dictionary = Dictionary({{"key", 7}});
    VErrLink* err = nullptr;
    {
        const AllocationFault fault(1);
        err = TypeParam::kDictionaryAdjust(this->dictionary, CFSTR("key"), this->kOrdinary);
    }
    EXPECT_EQ(
        TakeChain(err),
        (Chain{RaisedByHelper(this->Name("Dictionary", "Set"), "fail alloc num"),
               RaisedByHelper(this->Name("Dictionary", "Adjust"), "fail set adjusted value")}));
    EXPECT_EQ(XmlOf(this->dictionary), XmlOf(Dictionary({{"key", 7}})));
}

TYPED_TEST(NumberHelpers, WithoutAnyMemoryFailuresAreLogged) {
    this->dictionary = Dictionary({{"key", 7}});
    VErrLink* err = nullptr;
    {
        const AllocationFault fault(1, 1000);
        err = TypeParam::kDictionaryAdjust(this->dictionary, CFSTR("key"), this->kOrdinary);
    }
    EXPECT_EQ(err, &g_genericVErr);
    EXPECT_THAT(this->log.TakeWithoutLineNumbers(),
                ElementsAre("fail alloc num", "CFHelpers:123, " + this->Name("Dictionary", "Set"),
                            "fail set adjusted value",
                            "CFHelpers:123, " + this->Name("Dictionary", "Adjust")));
}

// ---- arrays ----

TYPED_TEST(NumberHelpers, NumbersSetAndAppendedToAnArrayAreReadBack) {
    typename TypeParam::Native value = 77;
    EXPECT_THAT(TakeChain(TypeParam::kArraySet(this->array, 0, this->kMin)), IsEmpty());
    EXPECT_THAT(TakeChain(TypeParam::kArrayAppend(this->array, this->kMax)), IsEmpty());
    ASSERT_EQ(CFArrayGetCount(this->array), 2);
    EXPECT_THAT(TakeChain(TypeParam::kArrayGet(this->array, 0, &value)), IsEmpty());
    EXPECT_EQ(value, this->kMin);
    EXPECT_THAT(TakeChain(TypeParam::kArrayGet(this->array, 1, &value)), IsEmpty());
    EXPECT_EQ(value, this->kMax);
}

TYPED_TEST(NumberHelpers, SetBeyondTheEndFillsTheGapWithNull) {
    EXPECT_THAT(TakeChain(TypeParam::kArraySet(this->array, 3, 5)), IsEmpty());
    const auto null = Share<CFTypeRef>(kCFNull);
    EXPECT_TRUE(CFEqual(this->array, Array({null, null, null, 5})));
}

TYPED_TEST(NumberHelpers, SetAtTheCountAppendsAndInsideReplaces) {
    this->array = Array({1, 2});
    EXPECT_THAT(TakeChain(TypeParam::kArraySet(this->array, 2, 3)), IsEmpty());
    EXPECT_THAT(TakeChain(TypeParam::kArraySet(this->array, 0, 4)), IsEmpty());
    EXPECT_EQ(XmlOf(this->array), XmlOf(Array({4, 2, 3})));
}

TYPED_TEST(NumberHelpers, ANullElementFailsTheConversion) {
    TakeChain(TypeParam::kArraySet(this->array, 1, 5));
    typename TypeParam::Native value = 77;
    EXPECT_EQ(TakeChain(TypeParam::kArrayGet(this->array, 0, &value)),
              Chain{RaisedByHelper(this->Name("Array", "Get"), this->ConversionFailure())});
}

TYPED_TEST(NumberHelpers, AnAbsentElementIsNamedByItsIndex) {
    typename TypeParam::Native value = 77;
    EXPECT_EQ(TakeChain(TypeParam::kArrayGet(this->array, 12, &value)),
              Chain{RaisedByHelper(this->Name("Array", "Get"), "fail get value at index 12")});
    EXPECT_EQ(value, 77);
    EXPECT_EQ(TakeChain(TypeParam::kArrayAdjust(this->array, 12, 1)),
              (Chain{RaisedByHelper(this->Name("Array", "Get"), "fail get value at index 12"),
                     RaisedByHelper(this->Name("Array", "Adjust"), "fail get value at index 12")}));
}

TYPED_TEST(NumberHelpers, WithoutMemoryTheArrayStaysAsItWas) {
    this->array = Array({7});
    VErrLink* setErr = nullptr;
    VErrLink* appendErr = nullptr;
    VErrLink* adjustErr = nullptr;
    {
        const AllocationFault fault(1);
        setErr = TypeParam::kArraySet(this->array, 3, this->kOrdinary);
    }
    {
        const AllocationFault fault(1);
        appendErr = TypeParam::kArrayAppend(this->array, this->kOrdinary);
    }
    {
        const AllocationFault fault(1);
        adjustErr = TypeParam::kArrayAdjust(this->array, 0, this->kOrdinary);
    }
    EXPECT_EQ(TakeChain(setErr),
              Chain{RaisedByHelper(this->Name("Array", "Set"), "fail alloc num")});
    EXPECT_EQ(TakeChain(appendErr),
              Chain{RaisedByHelper(this->Name("Array", "Append"), "fail alloc num")});
    EXPECT_EQ(TakeChain(adjustErr),
              (Chain{RaisedByHelper(this->Name("Array", "Set"), "fail alloc num"),
                     RaisedByHelper(this->Name("Array", "Adjust"),
                                    "fail set adjusted value at index 0")}));
    EXPECT_EQ(XmlOf(this->array), XmlOf(Array({7})));
}

// ---- what one width alone shows ----

TEST(NumberConversion, ANumberThatDoesNotFitFailsAndLeavesItsLowBits) {
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

TEST(NumberConversion, ASixteenBitGetTakesTheUnsignedValuesOfItsWidth) {
    const auto dictionary = Dictionary({{"positive", 40000}, {"negative", -25536}});
    for (CFStringRef key : {CFSTR("positive"), CFSTR("negative")}) {
        UInt16 value = 0;
        EXPECT_THAT(TakeChain(CFHDictionaryGetUInt16Value(dictionary, key, &value)), IsEmpty());
        EXPECT_EQ(value, 40000);
    }
}

TEST(NumberConversion, GUIDsOf64BitsAreReadBackUnchanged) {
    const auto dictionary = Dictionary();
    UInt64 value = 0;
    TakeChain(CFHDictionarySetUInt64Value(dictionary, CFSTR("GUID"), 0x9EDCBA9876543210));
    EXPECT_EQ(XmlOf(dictionary), XmlOf(Dictionary({{"GUID", -6999514556857568752}})));
    TakeChain(CFHDictionaryGetUInt64Value(dictionary, CFSTR("GUID"), &value));
    EXPECT_EQ(value, 0x9EDCBA9876543210);
}

TEST(Padding, FillsTheGapWithNullAndNeverFails) {
    const auto array = Array({1});
    EXPECT_EQ(CFHArrayPadToValueAtIndex(array, 3, CFSTR("x")), nullptr);
    EXPECT_EQ(CFHArrayPadToValueAtIndex(array, 0, CFSTR("y")), nullptr);
    const auto null = Share<CFTypeRef>(kCFNull);
    EXPECT_TRUE(CFEqual(array, Array({"y", null, null, "x"})));
}

} // namespace
