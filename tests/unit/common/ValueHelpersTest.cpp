/* Texts, pointers and booleans in dictionaries and arrays. */

#include "AllocationFaults.h"
#include "HelperMembers.h"
#include "support/LogCapture.h"
#include "support/Matchers.h"
#include "support/PropertyLists.h"

#include <cstdint>

namespace {

constexpr CFStringEncoding kUTF8 = kCFStringEncodingUTF8;

class ValueHelpers : public testing::Test {
protected:
    CFOwned<CFMutableDictionaryRef> dictionary = Dictionary();
    CFOwned<CFMutableArrayRef> array = Array();
    LogCapture log;
};

// ---- texts ----

TEST_F(ValueHelpers, ATextIsReadBackUnchanged) {
    char buffer[8] = "before";
    EXPECT_THAT(TakeChain(CFHDictionarySetStringValue(dictionary, CFSTR("key"), "drüben", kUTF8)),
                IsEmpty());
    EXPECT_EQ(XmlOf(dictionary), XmlOf(Dictionary({{"key", "drüben"}})));
    EXPECT_THAT(TakeChain(CFHDictionaryGetStringValue(dictionary, CFSTR("key"), sizeof buffer,
                                                      kUTF8, buffer)),
                IsEmpty());
    EXPECT_STREQ(buffer, "drüben");
}

TEST_F(ValueHelpers, AMissingTextLeavesAnEmptyBuffer) {
    char buffer[] = "before";
    EXPECT_EQ(TakeChain(CFHDictionaryGetStringValue(dictionary, CFSTR("key"), sizeof buffer, kUTF8,
                                                    buffer)),
              Chain{RaisedByHelper("CFHDictionaryGetStringValue", "fail get value from dict")});
    EXPECT_STREQ(buffer, "");
}

TEST_F(ValueHelpers, ABufferOfNoSizeIsNotTouched) {
    char buffer[] = "before";
    EXPECT_EQ(TakeChain(CFHDictionaryGetStringValue(dictionary, CFSTR("key"), 0, kUTF8, buffer)),
              Chain{RaisedByHelper("CFHDictionaryGetStringValue", "fail get value from dict")});
    dictionary = Dictionary({{"key", ""}});
    EXPECT_EQ(TakeChain(CFHDictionaryGetStringValue(dictionary, CFSTR("key"), 0, kUTF8, buffer)),
              Chain{RaisedByHelper("CFHDictionaryGetStringValue", "fail get str as C str")});
    EXPECT_STREQ(buffer, "before");
}

TEST_F(ValueHelpers, ATextMustFitTheBufferWithItsTerminator) {
    dictionary = Dictionary({{"key", "1234"}});
    array = Array({"1234"});
    char buffer[5] = "";
    EXPECT_EQ(TakeChain(CFHDictionaryGetStringValue(dictionary, CFSTR("key"), 4, kUTF8, buffer)),
              Chain{RaisedByHelper("CFHDictionaryGetStringValue", "fail get str as C str")});
    EXPECT_EQ(TakeChain(CFHArrayGetStringValue(array, 0, 4, kUTF8, buffer)),
              Chain{RaisedByHelper("CFHArrayGetStringValue", "fail get str as C str")});
    EXPECT_THAT(TakeChain(CFHDictionaryGetStringValue(dictionary, CFSTR("key"), 5, kUTF8, buffer)),
                IsEmpty());
    EXPECT_STREQ(buffer, "1234");
    buffer[0] = '\0';
    EXPECT_THAT(TakeChain(CFHArrayGetStringValue(array, 0, 5, kUTF8, buffer)), IsEmpty());
    EXPECT_STREQ(buffer, "1234");
}

TEST_F(ValueHelpers, AValueThatIsNoTextFailsTheConversion) {
    dictionary = Dictionary({{"number", 1}, {"flag", true}, {"array", Array()}});
    char buffer[32] = "";
    for (const char* key : {"number", "flag", "array"})
        EXPECT_EQ(TakeChain(CFHDictionaryGetStringValue(dictionary, Text(key), sizeof buffer, kUTF8,
                                                        buffer)),
                  Chain{RaisedByHelper("CFHDictionaryGetStringValue", "fail get str as C str")})
            << key;
}

TEST_F(ValueHelpers, BytesThatAreNoTextInTheEncodingAreNotSet) {
    dictionary = Dictionary({{"key", 7}});
    EXPECT_EQ(TakeChain(CFHDictionarySetStringValue(dictionary, CFSTR("key"), "\xFF", kUTF8)),
              Chain{RaisedByHelper("CFHDictionarySetStringValue", "fail alloc str")});
    EXPECT_EQ(TakeChain(CFHArraySetStringValue(array, 0, "\xFF", kUTF8)),
              Chain{RaisedByHelper("CFHArraySetStringValue", "fail alloc str")});
    EXPECT_EQ(TakeChain(CFHArrayAppendStringValue(array, "\xFF", kUTF8)),
              Chain{RaisedByHelper("CFHArrayAppendStringValue", "fail alloc str")});
    EXPECT_EQ(XmlOf(dictionary), XmlOf(Dictionary({{"key", 7}})));
    EXPECT_EQ(CFArrayGetCount(array), 0);
}

TEST_F(ValueHelpers, WithoutMemoryNoTextIsSet) {
    dictionary = Dictionary({{"key", 7}});
    VErrLink* setErr = nullptr;
    VErrLink* padErr = nullptr;
    VErrLink* appendErr = nullptr;
    {
        const AllocationFault fault(1);
        setErr = CFHDictionarySetStringValue(dictionary, CFSTR("key"), "a text", kUTF8);
    }
    {
        const AllocationFault fault(1);
        padErr = CFHArraySetStringValue(array, 2, "a text", kUTF8);
    }
    {
        const AllocationFault fault(1);
        appendErr = CFHArrayAppendStringValue(array, "a text", kUTF8);
    }
    EXPECT_EQ(TakeChain(setErr),
              Chain{RaisedByHelper("CFHDictionarySetStringValue", "fail alloc str")});
    EXPECT_EQ(TakeChain(padErr), Chain{RaisedByHelper("CFHArraySetStringValue", "fail alloc str")});
    EXPECT_EQ(TakeChain(appendErr),
              Chain{RaisedByHelper("CFHArrayAppendStringValue", "fail alloc str")});
    EXPECT_EQ(XmlOf(dictionary), XmlOf(Dictionary({{"key", 7}})));
    EXPECT_EQ(CFArrayGetCount(array), 0);
}

// The failing allocation may be the value's, the first padding's or a later padding's.
TEST_F(ValueHelpers, AnArraySetThatFailsLeavesNoPaddingBehind) {
    struct Set {
        VErrLink* (*call)(CFMutableArrayRef array);
        Chain failure;
    };
    constexpr CFIndex kIndex = 20;
    const Set sets[] = {
        {[](CFMutableArrayRef to) { return CFHArraySetSInt64Value(to, kIndex, 1); },
         {RaisedByHelper("CFHArraySetSInt64Value", "fail alloc num")}},
        {[](CFMutableArrayRef to) { return CFHArraySetUInt16Value(to, kIndex, 1); },
         {RaisedByHelper("CFHArraySetUInt16Value", "fail alloc num")}},
        {[](CFMutableArrayRef to) { return CFHArraySetAddrValue(to, kIndex, to); },
         {RaisedByHelper("CFHArraySetAddrValue", "fail alloc num")}},
        {[](CFMutableArrayRef to) { return CFHArraySetStringValue(to, kIndex, "text", kUTF8); },
         {RaisedByHelper("CFHArraySetStringValue", "fail alloc str")}},
        {[](CFMutableArrayRef to) { return CFHArraySetBoolValue(to, kIndex, 1); },
         {RaisedByHelper("CFHArraySetBoolValue", "fail CFHArrayPadToValueAtIndex")}},
    };
    array = Array({"first"});
    for (const Set& set : sets) {
        VErrLink* err = nullptr;
        std::size_t faults = 0;
        SweepAllocationFaults(
            [&](std::size_t) { err = set.call(array); },
            [&](std::size_t nth, bool happened) {
                faults += happened;
                EXPECT_EQ(TakeChain(err), happened ? set.failure : Chain()) << nth;
                EXPECT_EQ(CFArrayGetCount(array), happened ? 1 : kIndex + 1) << nth;
                EXPECT_TRUE(CFEqual(CFArrayGetValueAtIndex(array, 0), CFSTR("first")));
                array = Array({"first"});
            });
        EXPECT_GE(faults, 3U);
    }
}

TEST_F(ValueHelpers, TextsAreSetAndAppendedToAnArray) {
    EXPECT_THAT(TakeChain(CFHArraySetStringValue(array, 1, "one", kUTF8)), IsEmpty());
    EXPECT_THAT(TakeChain(CFHArrayAppendStringValue(array, "two", kUTF8)), IsEmpty());
    EXPECT_TRUE(CFEqual(array, Array({Share<CFTypeRef>(kCFNull), "one", "two"})));
}

TEST_F(ValueHelpers, AnAbsentTextOfAnArrayLeavesTheBufferUnchanged) {
    char buffer[] = "before";
    EXPECT_EQ(TakeChain(CFHArrayGetStringValue(array, 3, sizeof buffer, kUTF8, buffer)),
              Chain{RaisedByHelper("CFHArrayGetStringValue", "unable to get str at index 3")});
    EXPECT_STREQ(buffer, "before");
}

// ---- pointers ----

TEST_F(ValueHelpers, APointerIsReadBackUnchanged) {
    void* const pointer = reinterpret_cast<void*>(std::uintptr_t{0xFEDCBA9876543210});
    void* got = nullptr;
    EXPECT_THAT(TakeChain(CFHDictionarySetAddrValue(dictionary, CFSTR("key"), pointer)), IsEmpty());
    EXPECT_THAT(TakeChain(CFHDictionaryGetAddrValue(dictionary, CFSTR("key"), &got)), IsEmpty());
    EXPECT_EQ(got, pointer);

    EXPECT_THAT(TakeChain(CFHArrayAppendAddrValue(array, nullptr)), IsEmpty());
    EXPECT_THAT(TakeChain(CFHArraySetAddrValue(array, 1, pointer)), IsEmpty());
    EXPECT_THAT(TakeChain(CFHArrayGetAddrValue(array, 0, &got)), IsEmpty());
    EXPECT_EQ(got, nullptr);
    EXPECT_THAT(TakeChain(CFHArrayGetAddrValue(array, 1, &got)), IsEmpty());
    EXPECT_EQ(got, pointer);
}

TEST_F(ValueHelpers, AValueThatIsNoPointerLeavesTheOutputUnchanged) {
    void* got = &got;
    EXPECT_EQ(TakeChain(CFHDictionaryGetAddrValue(dictionary, CFSTR("key"), &got)),
              Chain{RaisedByHelper("CFHDictionaryGetAddrValue", "fail get value from dict")});
    EXPECT_EQ(TakeChain(CFHArrayGetAddrValue(array, 5, &got)),
              Chain{RaisedByHelper("CFHArrayGetAddrValue", "fail get value at index 5")});
    EXPECT_EQ(got, &got);
    dictionary = Dictionary({{"key", "text"}});
    array = Array({"text"});
    EXPECT_EQ(TakeChain(CFHDictionaryGetAddrValue(dictionary, CFSTR("key"), &got)),
              Chain{RaisedByHelper("CFHDictionaryGetAddrValue", "fail get num as void *")});
    EXPECT_EQ(TakeChain(CFHArrayGetAddrValue(array, 0, &got)),
              Chain{RaisedByHelper("CFHArrayGetAddrValue", "fail get num as void *")});
}

TEST_F(ValueHelpers, WithoutMemoryNoPointerIsSet) {
    VErrLink* setErr = nullptr;
    VErrLink* padErr = nullptr;
    VErrLink* appendErr = nullptr;
    {
        const AllocationFault fault(1);
        setErr = CFHDictionarySetAddrValue(dictionary, CFSTR("key"), &setErr);
    }
    {
        const AllocationFault fault(1);
        padErr = CFHArraySetAddrValue(array, 2, &setErr);
    }
    {
        const AllocationFault fault(1);
        appendErr = CFHArrayAppendAddrValue(array, &setErr);
    }
    EXPECT_EQ(TakeChain(setErr),
              Chain{RaisedByHelper("CFHDictionarySetAddrValue", "fail alloc num")});
    EXPECT_EQ(TakeChain(padErr), Chain{RaisedByHelper("CFHArraySetAddrValue", "fail alloc num")});
    EXPECT_EQ(TakeChain(appendErr),
              Chain{RaisedByHelper("CFHArrayAppendAddrValue", "fail alloc num")});
    EXPECT_EQ(CFDictionaryGetCount(dictionary), 0);
    EXPECT_EQ(CFArrayGetCount(array), 0);
}

// ---- booleans ----

TEST_F(ValueHelpers, AnyNumberButZeroSetsTrue) {
    for (const SInt32 flag : {0, 1, 2, -1}) {
        const CFBooleanRef stored = flag != 0 ? kCFBooleanTrue : kCFBooleanFalse;
        EXPECT_EQ(CFHDictionarySetBoolValue(dictionary, CFSTR("key"), flag), nullptr);
        EXPECT_EQ(CFDictionaryGetValue(dictionary, CFSTR("key")), stored);
        EXPECT_EQ(CFHArraySetBoolValue(array, 1, flag), nullptr);
        EXPECT_EQ(CFArrayGetValueAtIndex(array, 1), stored);
        EXPECT_EQ(CFHArrayAppendBoolValue(array, flag), nullptr);
        EXPECT_EQ(CFArrayGetValueAtIndex(array, CFArrayGetCount(array) - 1), stored);
    }
    EXPECT_EQ(CFArrayGetCount(array), 6);
}

TEST_F(ValueHelpers, ABooleanIsReadAsOneOrZero) {
    dictionary = Dictionary({{"true", true}, {"false", false}});
    array = Array({true, false});
    SInt32 flag = 77;
    EXPECT_THAT(TakeChain(CFHDictionaryGetBoolValue(dictionary, CFSTR("true"), &flag)), IsEmpty());
    EXPECT_EQ(flag, 1);
    EXPECT_THAT(TakeChain(CFHDictionaryGetBoolValue(dictionary, CFSTR("false"), &flag)), IsEmpty());
    EXPECT_EQ(flag, 0);
    EXPECT_THAT(TakeChain(CFHArrayGetBoolValue(array, 0, &flag)), IsEmpty());
    EXPECT_EQ(flag, 1);
    EXPECT_THAT(TakeChain(CFHArrayGetBoolValue(array, 1, &flag)), IsEmpty());
    EXPECT_EQ(flag, 0);
}

TEST_F(ValueHelpers, AValueThatIsNoBooleanLeavesTheFlagUnchanged) {
    dictionary = Dictionary({{"key", 1}});
    TakeChain(CFHArraySetBoolValue(array, 1, 1));
    SInt32 flag = 77;
    EXPECT_EQ(TakeChain(CFHDictionaryGetBoolValue(dictionary, CFSTR("key"), &flag)),
              Chain{RaisedByHelper("CFHDictionaryGetBoolValue", "bool neither true nor false")});
    EXPECT_EQ(TakeChain(CFHDictionaryGetBoolValue(dictionary, CFSTR("other"), &flag)),
              Chain{RaisedByHelper("CFHDictionaryGetBoolValue", "fail get value from dict")});
    EXPECT_EQ(TakeChain(CFHArrayGetBoolValue(array, 0, &flag)), // the padding
              Chain{RaisedByHelper("CFHArrayGetBoolValue", "bool neither true nor false")});
    EXPECT_EQ(TakeChain(CFHArrayGetBoolValue(array, 9, &flag)),
              Chain{RaisedByHelper("CFHArrayGetBoolValue", "fail get value at index 9")});
    EXPECT_EQ(flag, 77);
}

TEST_F(ValueHelpers, ASettingIsTrueOnlyAsTheSharedTrueObject) {
    dictionary = Dictionary({{"true", true}, {"false", false}, {"number", 1}});
    EXPECT_TRUE(CFHDictionaryIsTrue(dictionary, CFSTR("true")));
    EXPECT_FALSE(CFHDictionaryIsTrue(dictionary, CFSTR("false")));
    EXPECT_FALSE(CFHDictionaryIsTrue(dictionary, CFSTR("number")));
    EXPECT_FALSE(CFHDictionaryIsTrue(dictionary, CFSTR("absent")));
}

// ---- collections ----

TEST_F(ValueHelpers, ACollectionIsFoundOnlyUnderItsOwnType) {
    dictionary = Dictionary({{"dictionary", Dictionary()}, {"array", Array()}, {"text", "x"}});
    EXPECT_EQ(CFHDictionaryFindDictionary(dictionary, CFSTR("dictionary")),
              CFDictionaryGetValue(dictionary, CFSTR("dictionary")));
    EXPECT_EQ(CFHDictionaryFindArray(dictionary, CFSTR("array")),
              CFDictionaryGetValue(dictionary, CFSTR("array")));
    for (const char* key : {"array", "text", "absent"})
        EXPECT_EQ(CFHDictionaryFindDictionary(dictionary, Text(key)), nullptr) << key;
    for (const char* key : {"dictionary", "text", "absent"})
        EXPECT_EQ(CFHDictionaryFindArray(dictionary, Text(key)), nullptr) << key;
}

} // namespace
