/* Joining strings, and converting texts between encodings. */

#include "AllocationFaults.h"
#include "HelperMembers.h"
#include "support/LogCapture.h"
#include "support/Matchers.h"
#include "support/PropertyLists.h"
#include "support/WithoutMemory.h"

#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

namespace {

struct Free {
    void operator()(char* text) const {
        free(text);
    }
};
using HeldText = std::unique_ptr<char, Free>;

class TextHelpers : public testing::Test {
protected:
    LogCapture log;
};

TEST_F(TextHelpers, JoinsTwoStrings) {
    CFOwned<CFStringRef> joined;
    EXPECT_THAT(
        TakeChain(CFHStringCreateWithConcatenation(CFSTR("one "), Text("zwölf"), joined.Out())),
        IsEmpty());
    EXPECT_EQ(TextOf(joined), "one zwölf");
}

TEST_F(TextHelpers, TwoEmptyStringsGiveAnEmptyOne) {
    CFOwned<CFStringRef> joined;
    EXPECT_THAT(TakeChain(CFHStringCreateWithConcatenation(CFSTR(""), CFSTR(""), joined.Out())),
                IsEmpty());
    ASSERT_NE(joined, nullptr);
    EXPECT_EQ(CFStringGetLength(joined), 0);
}

TEST_F(TextHelpers, JoiningAValueThatIsNoStringFails) {
    CFStringRef joined = CFSTR("before");
    const auto number = Integer(1000);
    const auto notAString = reinterpret_cast<CFStringRef>(number.Get());
    EXPECT_EQ(TakeChain(CFHStringCreateWithConcatenation(CFSTR("one"), notAString, &joined)),
              Chain{RaisedByHelper("CFHStringCreateWithConcatenation",
                                   "fail create string by combining strings")});
    EXPECT_EQ(joined, nullptr);
}

TEST_F(TextHelpers, WithoutMemoryStringsAreJoinedWholeOrNotAtAll) {
    std::vector<Chain> failures;
    CFStringRef joined = nullptr;
    VErrLink* err = nullptr;
    const auto body = [&](std::size_t) {
        joined = CFSTR("before");
        err = CFHStringCreateWithConcatenation(CFSTR("one long text "), CFSTR("and another"),
                                               &joined);
    };
    SweepAllocationFaults(body, [&](std::size_t nth, bool) {
        const CFOwned held(joined);
        if (const Chain chain = TakeChain(err); !chain.empty()) {
            failures.push_back(chain);
            EXPECT_EQ(joined, nullptr) << nth;
        } else {
            EXPECT_EQ(TextOf(joined), "one long text and another") << nth;
        }
    });
    const auto raised = [](const char* message) {
        return Chain{RaisedByHelper("CFHStringCreateWithConcatenation", message)};
    };
    EXPECT_THAT(failures, testing::IsSupersetOf({raised("fail create strArr"),
                                                 raised("fail create string by combining "
                                                        "strings")}));
}

TEST_F(TextHelpers, AppendsInPlace) {
    CFOwned<CFStringRef> string = Text("one");
    CFStringRef slot = string.Detach();
    EXPECT_THAT(TakeChain(CFHStringConcatenate(&slot, CFSTR(", two"))), IsEmpty());
    string = CFOwned(slot);
    EXPECT_EQ(TextOf(string), "one, two");
}

TEST_F(TextHelpers, AFailedAppendLeavesTheStringAsItWas) {
    const CFOwned<CFStringRef> string = Text("one");
    CFStringRef slot = string;
    VErrLink* err = nullptr;
    {
        const AllocationFault fault(1);
        err = CFHStringConcatenate(&slot, CFSTR(", two"));
    }
    EXPECT_EQ(
        TakeChain(err),
        (Chain{RaisedByHelper("CFHStringCreateWithConcatenation", "fail create strArr"),
               RaisedByHelper("CFHStringConcatenate", "fail create string with concatenation")}));
    EXPECT_EQ(slot, string.Get());
    EXPECT_EQ(TextOf(string), "one");
}

TEST_F(TextHelpers, AllocatesACString) {
    for (const char* utf8 : {"", "plain", "zwölf €", "\xF0\x9D\x84\x9E"}) {
        char* text = nullptr;
        EXPECT_THAT(
            TakeChain(CFHAllocCStringFromCFString(Text(utf8), kCFStringEncodingUTF8, &text)),
            IsEmpty());
        EXPECT_STREQ(HeldText(text).get(), utf8);
    }
}

TEST_F(TextHelpers, ACharacterThatTheEncodingLacksFailsWithItsOwnCode) {
    char before[] = "before";
    char* text = before;
    const UniChar unpairedSurrogate = 0xD800;
    const CFOwned string(CFStringCreateWithCharacters(nullptr, &unpairedSurrogate, 1));
    EXPECT_EQ(TakeChain(CFHAllocCStringFromCFString(string, kCFStringEncodingUTF8, &text)),
              Chain{RaisedByHelper("CFHAllocCStringFromCFString",
                                   "can't convert the string to the requested encoding",
                                   0x4000000000000064)});
    EXPECT_EQ(text, nullptr);
}

TEST_F(TextHelpers, AValueThatIsNoStringHasNoCString) {
    char before[] = "before";
    char* text = before;
    const auto notAString = reinterpret_cast<CFStringRef>(kCFBooleanTrue);
    EXPECT_THAT(TakeMessages(CFHAllocCStringFromCFString(notAString, kCFStringEncodingUTF8, &text)),
                ElementsAre("can't convert the string to the requested encoding"));
    EXPECT_EQ(text, nullptr);
}

TEST_F(TextHelpers, WithoutMemoryThereIsNoCString) {
    char before[] = "before";
    char* text = before;
    const auto string = Text("text");
    EXPECT_EQ(ChainWithoutMemory([&] {
                  return CFHAllocCStringFromCFString(string, kCFStringEncodingUTF8, &text);
              }),
              Chain{RaisedByHelper("CFHAllocCStringFromCFString",
                                   "fail allocate storage for the C string")});
    EXPECT_EQ(text, nullptr);
}

TEST_F(TextHelpers, AnErrorTextIsACStringOrNullIfItCannotBeConverted) {
    EXPECT_EQ(CFHAllocErrorText(nullptr), nullptr);
    EXPECT_STREQ(HeldText(CFHAllocErrorText(CFSTR("why"))).get(), "why");
    const UniChar halfAPair[] = {0xD800};
    const CFOwned unpaired(CFStringCreateWithCharacters(nullptr, halfAPair, 1));
    EXPECT_EQ(CFHAllocErrorText(unpaired), nullptr);
}

TEST_F(TextHelpers, CopiesUTF16WithoutTerminator) {
    UniChar buffer[6] = {9, 9, 9, 9, 9, 9};
    UInt16 length = 0;
    EXPECT_THAT(TakeChain(CFHConvertFromUTF8ToUniStr("a€\xF0\x9D\x84\x9E", buffer, 6, &length)),
                IsEmpty());
    EXPECT_EQ(length, 4);
    EXPECT_THAT(buffer, ElementsAre('a', 0x20AC, 0xD834, 0xDD1E, 9, 9));
}

TEST_F(TextHelpers, CutsUTF16AtTheCapacity) {
    UniChar buffer[256];
    buffer[255] = 9;
    UInt16 length = 0;
    const std::string text = std::string(254, 'a') + "b" + std::string(45, 'c');
    EXPECT_THAT(TakeChain(CFHConvertFromUTF8ToUniStr(text.c_str(), buffer, 255, &length)),
                IsEmpty());
    EXPECT_EQ(length, 255);
    EXPECT_EQ(buffer[253], 'a');
    EXPECT_EQ(buffer[254], 'b');
    EXPECT_EQ(buffer[255], 9);
}

// The length is truncated to 16 bits before the comparison with the capacity.
TEST_F(TextHelpers, ALengthBeyondSixteenBitsIsTruncatedFirst) {
    UniChar buffer[8] = {};
    UInt16 length = 0;
    const std::string text(65536 + 3, 'a');
    EXPECT_THAT(TakeChain(CFHConvertFromUTF8ToUniStr(text.c_str(), buffer, 8, &length)), IsEmpty());
    EXPECT_EQ(length, 3);
    EXPECT_THAT(buffer, ElementsAre('a', 'a', 'a', 0, 0, 0, 0, 0));
}

TEST_F(TextHelpers, BytesThatAreNotUTF8AreNotConverted) {
    UniChar buffer[8] = {};
    UInt16 length = 7;
    EXPECT_EQ(TakeChain(CFHConvertFromUTF8ToUniStr("\xC3", buffer, 8, &length)),
              Chain{RaisedByHelper("CFHConvertFromUTF8ToUniStr",
                                   "fail create temp CFString from UTF8 string")});
    EXPECT_EQ(length, 7);
}

TEST_F(TextHelpers, WritesUTF8IntoABufferThatFits) {
    const UniChar characters[] = {'a', 0x20AC};
    char buffer[6] = "";
    EXPECT_THAT(TakeChain(CFHConvertFromUniStrToUTF8(characters, 2, buffer, 5)), IsEmpty());
    EXPECT_STREQ(buffer, "a€");
    EXPECT_EQ(TakeChain(CFHConvertFromUniStrToUTF8(characters, 2, buffer, 4)),
              Chain{RaisedByHelper("CFHConvertFromUniStrToUTF8",
                                   "fail get UTF8 string from temp CFString")});
}

TEST_F(TextHelpers, WithoutMemoryNothingIsConverted) {
    const UniChar characters[] = {'a', 'b'};
    char bytes[8] = "";
    UniChar buffer[8] = {};
    UInt16 length = 7;
    VErrLink* toUTF16 = nullptr;
    VErrLink* toUTF8 = nullptr;
    {
        const AllocationFault fault(1);
        toUTF16 = CFHConvertFromUTF8ToUniStr("text", buffer, 8, &length);
    }
    {
        const AllocationFault fault(1);
        toUTF8 = CFHConvertFromUniStrToUTF8(characters, 2, bytes, sizeof bytes);
    }
    EXPECT_EQ(TakeChain(toUTF16), Chain{RaisedByHelper("CFHConvertFromUTF8ToUniStr",
                                                       "fail create temp CFString from UTF8 "
                                                       "string")});
    EXPECT_EQ(TakeChain(toUTF8), Chain{RaisedByHelper("CFHConvertFromUniStrToUTF8",
                                                      "fail create temp CFString from uni chars")});
}

} // namespace
