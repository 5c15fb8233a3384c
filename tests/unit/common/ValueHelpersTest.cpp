/* Texts, pointers and booleans in dictionaries and arrays. */

#include "AllocationFaults.h"
#include "HelperMembers.h"
#include "support/LogCapture.h"
#include "support/Matchers.h"
#include "support/PropertyLists.h"
#include "support/WithoutMemory.h"

#include <cstddef>
#include <cstdint>

namespace {

constexpr CFStringEncoding kUTF8 = kCFStringEncodingUTF8;

class ValueHelpers : public testing::Test {
protected:
    Chain GetText(char* buffer, CFIndex size) {
        return TakeChain(
            CFHDictionaryGetStringValue(dictionary, CFSTR("key"), size, kUTF8, buffer));
    }
    Chain GetTextAt(CFIndex index, char* buffer, CFIndex size) {
        return TakeChain(CFHArrayGetStringValue(array, index, size, kUTF8, buffer));
    }

    CFOwned<CFMutableDictionaryRef> dictionary = Dictionary();
    CFOwned<CFMutableArrayRef> array = Array();
    LogCapture log;
};

// ---- texts ----

const Chain kNoText = FailedIn("CFHDictionaryGetStringValue", "fail get value from dict");
const Chain kTextNotConverted = FailedIn("CFHDictionaryGetStringValue", "fail get str as C str");

TEST_F(ValueHelpers, TextSetInADictionaryIsReadBack) {
    char buffer[8] = "before";
    EXPECT_THAT(TakeChain(CFHDictionarySetStringValue(dictionary, CFSTR("key"), "drüben", kUTF8)),
                IsEmpty());
    EXPECT_EQ(XmlOf(dictionary), XmlOf(Dictionary({{"key", "drüben"}})));
    EXPECT_THAT(GetText(buffer, sizeof buffer), IsEmpty());
    EXPECT_STREQ(buffer, "drüben");
}

TEST_F(ValueHelpers, MissingTextLeavesAnEmptyBuffer) {
    char buffer[] = "before";
    EXPECT_EQ(GetText(buffer, sizeof buffer), kNoText);
    EXPECT_STREQ(buffer, "");
}

TEST_F(ValueHelpers, BufferOfNoSizeIsNotWritten) {
    char buffer[] = "before";
    EXPECT_EQ(GetText(buffer, 0), kNoText);
    dictionary = Dictionary({{"key", ""}});
    EXPECT_EQ(GetText(buffer, 0), kTextNotConverted);
    EXPECT_STREQ(buffer, "before");
}

TEST_F(ValueHelpers, TextMustFitTheBufferWithItsTerminator) {
    dictionary = Dictionary({{"key", "1234"}});
    array = Array({"1234"});
    char buffer[5] = "";
    EXPECT_EQ(GetText(buffer, 4), kTextNotConverted);
    EXPECT_EQ(GetTextAt(0, buffer, 4), FailedIn("CFHArrayGetStringValue", "fail get str as C str"));
    EXPECT_THAT(GetText(buffer, 5), IsEmpty());
    EXPECT_STREQ(buffer, "1234");
    buffer[0] = '\0';
    EXPECT_THAT(GetTextAt(0, buffer, 5), IsEmpty());
    EXPECT_STREQ(buffer, "1234");
}

TEST_F(ValueHelpers, ValueThatIsNoTextFailsTheConversion) {
    char buffer[32] = "";
    for (const Value& value : {Value(1), Value(true), Value(Array())}) {
        dictionary = Dictionary({{"key", value}});
        EXPECT_EQ(GetText(buffer, sizeof buffer), kTextNotConverted) << XmlOf(dictionary);
    }
}

TEST_F(ValueHelpers, TextsAreSetAndAppendedToAnArray) {
    EXPECT_THAT(TakeChain(CFHArraySetStringValue(array, 1, "one", kUTF8)), IsEmpty());
    EXPECT_THAT(TakeChain(CFHArrayAppendStringValue(array, "two", kUTF8)), IsEmpty());
    EXPECT_TRUE(CFEqual(array, Array({Share<CFTypeRef>(kCFNull), "one", "two"})));
}

TEST_F(ValueHelpers, AbsentTextOfAnArrayLeavesTheBufferUnchanged) {
    char buffer[] = "before";
    EXPECT_EQ(GetTextAt(3, buffer, sizeof buffer),
              FailedIn("CFHArrayGetStringValue", "unable to get str at index 3"));
    EXPECT_STREQ(buffer, "before");
}

// ---- pointers ----

TEST_F(ValueHelpers, PointerIsReadBackUnchanged) {
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

TEST_F(ValueHelpers, ValueThatIsNoPointerFails) {
    void* got = &got;
    EXPECT_EQ(TakeChain(CFHDictionaryGetAddrValue(dictionary, CFSTR("key"), &got)),
              FailedIn("CFHDictionaryGetAddrValue", "fail get value from dict"));
    EXPECT_EQ(TakeChain(CFHArrayGetAddrValue(array, 5, &got)),
              FailedIn("CFHArrayGetAddrValue", "fail get value at index 5"));
    EXPECT_EQ(got, &got);
    dictionary = Dictionary({{"key", "text"}});
    array = Array({"text"});
    EXPECT_EQ(TakeChain(CFHDictionaryGetAddrValue(dictionary, CFSTR("key"), &got)),
              FailedIn("CFHDictionaryGetAddrValue", "fail get num as void *"));
    EXPECT_EQ(TakeChain(CFHArrayGetAddrValue(array, 0, &got)),
              FailedIn("CFHArrayGetAddrValue", "fail get num as void *"));
}

// ---- failing setters ----

TEST_F(ValueHelpers, BytesThatAreNoTextInTheEncodingAreNotSet) {
    dictionary = Dictionary({{"key", 7}});
    EXPECT_EQ(TakeChain(CFHDictionarySetStringValue(dictionary, CFSTR("key"), "\xFF", kUTF8)),
              FailedIn("CFHDictionarySetStringValue", "fail alloc str"));
    EXPECT_EQ(TakeChain(CFHArraySetStringValue(array, 0, "\xFF", kUTF8)),
              FailedIn("CFHArraySetStringValue", "fail alloc str"));
    EXPECT_EQ(TakeChain(CFHArrayAppendStringValue(array, "\xFF", kUTF8)),
              FailedIn("CFHArrayAppendStringValue", "fail alloc str"));
    EXPECT_EQ(XmlOf(dictionary), XmlOf(Dictionary({{"key", 7}})));
    EXPECT_EQ(CFArrayGetCount(array), 0);
}

TEST_F(ValueHelpers, DictionaryIsUnchangedWithoutMemory) {
    dictionary = Dictionary({{"key", 7}});
    EXPECT_EQ(ChainWithoutMemory([&] {
                  return CFHDictionarySetStringValue(dictionary, CFSTR("key"), "a text", kUTF8);
              }),
              FailedIn("CFHDictionarySetStringValue", "fail alloc str"));
    EXPECT_EQ(ChainWithoutMemory(
                  [&] { return CFHDictionarySetAddrValue(dictionary, CFSTR("new"), this); }),
              FailedIn("CFHDictionarySetAddrValue", "fail alloc num"));
    EXPECT_EQ(XmlOf(dictionary), XmlOf(Dictionary({{"key", 7}})));
}

struct ArraySetter {
    VErrLink* (*call)(CFMutableArrayRef array);
    Chain failure;
    CFIndex added; // elements added on success, with the padding
};

constexpr CFIndex kIndex = 20; // of an element behind the end of the array

const ArraySetter kArraySetters[] = {
    {[](CFMutableArrayRef to) { return CFHArraySetSInt64Value(to, kIndex, 1); },
     FailedIn("CFHArraySetSInt64Value", "fail alloc num"), kIndex},
    {[](CFMutableArrayRef to) { return CFHArraySetUInt16Value(to, kIndex, 1); },
     FailedIn("CFHArraySetUInt16Value", "fail alloc num"), kIndex},
    {[](CFMutableArrayRef to) { return CFHArraySetAddrValue(to, kIndex, to); },
     FailedIn("CFHArraySetAddrValue", "fail alloc num"), kIndex},
    {[](CFMutableArrayRef to) { return CFHArraySetStringValue(to, kIndex, "text", kUTF8); },
     FailedIn("CFHArraySetStringValue", "fail alloc str"), kIndex},
    {[](CFMutableArrayRef to) { return CFHArraySetBoolValue(to, kIndex, 1); },
     FailedIn("CFHArraySetBoolValue", "fail CFHArrayPadToValueAtIndex"), kIndex},
    {[](CFMutableArrayRef to) { return CFHArrayAppendAddrValue(to, to); },
     FailedIn("CFHArrayAppendAddrValue", "fail alloc num"), 1},
    {[](CFMutableArrayRef to) { return CFHArrayAppendStringValue(to, "text", kUTF8); },
     FailedIn("CFHArrayAppendStringValue", "fail alloc str"), 1},
};

// The failing allocation may be that of the value, or of any element of the padding.
TEST_F(ValueHelpers, FailedArraySetterLeavesNoValueAndNoPadding) {
    for (const ArraySetter& setter : kArraySetters) {
        SCOPED_TRACE(setter.failure[0].function);
        array = Array({"first"});
        VErrLink* err = nullptr;
        const std::size_t runs = SweepAllocationFaults(
            [&](std::size_t) { err = setter.call(array); },
            [&](std::size_t nth, bool happened) {
                EXPECT_EQ(TakeChain(err), happened ? setter.failure : Chain()) << nth;
                EXPECT_EQ(CFArrayGetCount(array), happened ? 1 : 1 + setter.added) << nth;
                EXPECT_TRUE(CFEqual(CFArrayGetValueAtIndex(array, 0), CFSTR("first")));
                array = Array({"first"});
            });
        EXPECT_GT(runs, setter.added > 1 ? 3u : 1u);
    }
}

// ---- booleans ----

TEST_F(ValueHelpers, AnyNumberExceptZeroSetsTrue) {
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

TEST_F(ValueHelpers, BooleanIsReadAsOneOrZero) {
    for (const bool stored : {true, false}) {
        dictionary = Dictionary({{"key", stored}});
        array = Array({stored});
        SInt32 flag = 77;
        EXPECT_THAT(TakeChain(CFHDictionaryGetBoolValue(dictionary, CFSTR("key"), &flag)),
                    IsEmpty());
        EXPECT_EQ(flag, stored ? 1 : 0);
        flag = 77;
        EXPECT_THAT(TakeChain(CFHArrayGetBoolValue(array, 0, &flag)), IsEmpty());
        EXPECT_EQ(flag, stored ? 1 : 0);
    }
}

TEST_F(ValueHelpers, ValueThatIsNoBooleanLeavesTheFlagUnchanged) {
    dictionary = Dictionary({{"key", 1}});
    TakeChain(CFHArraySetBoolValue(array, 1, 1));
    SInt32 flag = 77;
    EXPECT_EQ(TakeChain(CFHDictionaryGetBoolValue(dictionary, CFSTR("key"), &flag)),
              FailedIn("CFHDictionaryGetBoolValue", "bool neither true nor false"));
    EXPECT_EQ(TakeChain(CFHDictionaryGetBoolValue(dictionary, CFSTR("other"), &flag)),
              FailedIn("CFHDictionaryGetBoolValue", "fail get value from dict"));
    EXPECT_EQ(TakeChain(CFHArrayGetBoolValue(array, 0, &flag)), // the padding
              FailedIn("CFHArrayGetBoolValue", "bool neither true nor false"));
    EXPECT_EQ(TakeChain(CFHArrayGetBoolValue(array, 9, &flag)),
              FailedIn("CFHArrayGetBoolValue", "fail get value at index 9"));
    EXPECT_EQ(flag, 77);
}

TEST_F(ValueHelpers, OnlyTheSharedTrueObjectIsTrue) {
    dictionary = Dictionary({{"true", true}, {"false", false}, {"number", 1}});
    EXPECT_TRUE(CFHDictionaryIsTrue(dictionary, CFSTR("true")));
    EXPECT_FALSE(CFHDictionaryIsTrue(dictionary, CFSTR("false")));
    EXPECT_FALSE(CFHDictionaryIsTrue(dictionary, CFSTR("number")));
    EXPECT_FALSE(CFHDictionaryIsTrue(dictionary, CFSTR("absent")));
}

// ---- collections ----

TEST_F(ValueHelpers, CollectionIsFoundOnlyWithItsOwnType) {
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
