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
using OwnedText = std::unique_ptr<char, Free>;

// A string that UTF-8 cannot represent.
CFOwned<CFStringRef> UnpairedSurrogate() {
    const UniChar character = 0xD800;
    return CFOwned(CFStringCreateWithCharacters(nullptr, &character, 1));
}

class TextHelpers : public testing::Test {
protected:
    char before[7] = "before";
    char* cString = before; // the place for a C string
    LogCapture log;
};

TEST_F(TextHelpers, TwoStringsAreJoined) {
    const char* const cases[][3] = {{"one ", "zwölf", "one zwölf"}, {"", "", ""}};
    for (const auto& [first, second, expected] : cases) {
        CFOwned<CFStringRef> joined;
        EXPECT_THAT(
            TakeChain(CFHStringCreateWithConcatenation(Text(first), Text(second), joined.Out())),
            IsEmpty());
        ASSERT_NE(joined, nullptr);
        EXPECT_EQ(TextOf(joined), expected);
    }
}

TEST_F(TextHelpers, JoiningANonStringFails) {
    CFStringRef joined = CFSTR("before");
    const auto number = Integer(1000);
    const auto notAString = reinterpret_cast<CFStringRef>(number.Get());
    EXPECT_EQ(
        TakeChain(CFHStringCreateWithConcatenation(CFSTR("one"), notAString, &joined)),
        FailedIn("CFHStringCreateWithConcatenation", "fail create string by combining strings"));
    EXPECT_EQ(joined, nullptr);
}

TEST_F(TextHelpers, StringsAreJoinedCompletelyOrNotWithoutMemory) {
    std::vector<Chain> failures;
    CFStringRef joined = nullptr;
    VErrLink* err = nullptr;
    const auto body = [&](std::size_t) {
        joined = CFSTR("before");
        err = CFHStringCreateWithConcatenation(CFSTR("one long text "), CFSTR("and another"),
                                               &joined);
    };
    SweepAllocationFaults(body, [&](std::size_t nth, bool) {
        const CFOwned owned(joined);
        if (const Chain chain = TakeChain(err); !chain.empty()) {
            failures.push_back(chain);
            EXPECT_EQ(joined, nullptr) << nth;
        } else {
            EXPECT_EQ(TextOf(joined), "one long text and another") << nth;
        }
    });
    EXPECT_THAT(failures, testing::IsSupersetOf({
                              FailedIn("CFHStringCreateWithConcatenation", "fail create strArr"),
                              FailedIn("CFHStringCreateWithConcatenation",
                                       "fail create string by combining strings"),
                          }));
}

TEST_F(TextHelpers, StringIsAppendedInPlace) {
    CFOwned<CFStringRef> string = Text("one");
    CFStringRef slot = string.Detach();
    EXPECT_THAT(TakeChain(CFHStringConcatenate(&slot, CFSTR(", two"))), IsEmpty());
    string = CFOwned(slot);
    EXPECT_EQ(TextOf(string), "one, two");
}

TEST_F(TextHelpers, FailedAppendLeavesTheStringUnchanged) {
    const CFOwned<CFStringRef> string = Text("one");
    CFStringRef slot = string;
    EXPECT_EQ(
        ChainWithoutMemory([&] { return CFHStringConcatenate(&slot, CFSTR(", two")); }),
        (Chain{RaisedByHelper("CFHStringCreateWithConcatenation", "fail create strArr"),
               RaisedByHelper("CFHStringConcatenate", "fail create string with concatenation")}));
    EXPECT_EQ(slot, string.Get());
    EXPECT_EQ(TextOf(string), "one");
}

TEST_F(TextHelpers, CStringIsAllocated) {
    for (const char* utf8 : {"", "plain", "zwölf €", "\xF0\x9D\x84\x9E"}) {
        EXPECT_THAT(
            TakeChain(CFHAllocCStringFromCFString(Text(utf8), kCFStringEncodingUTF8, &cString)),
            IsEmpty());
        EXPECT_STREQ(OwnedText(cString).get(), utf8);
    }
}

TEST_F(TextHelpers, CharacterThatTheEncodingLacksHasItsOwnErrorCode) {
    EXPECT_EQ(TakeChain(CFHAllocCStringFromCFString(UnpairedSurrogate(), kCFStringEncodingUTF8,
                                                    &cString)),
              FailedIn("CFHAllocCStringFromCFString",
                       "can't convert the string to the requested encoding", 0x4000000000000064));
    EXPECT_EQ(cString, nullptr);
}

TEST_F(TextHelpers, CStringOfANonStringIsNull) {
    const auto notAString = reinterpret_cast<CFStringRef>(kCFBooleanTrue);
    EXPECT_THAT(
        TakeMessages(CFHAllocCStringFromCFString(notAString, kCFStringEncodingUTF8, &cString)),
        ElementsAre("can't convert the string to the requested encoding"));
    EXPECT_EQ(cString, nullptr);
}

TEST_F(TextHelpers, CStringIsNullWithoutMemory) {
    const auto string = Text("text");
    EXPECT_EQ(ChainWithoutMemory([&] {
                  return CFHAllocCStringFromCFString(string, kCFStringEncodingUTF8, &cString);
              }),
              FailedIn("CFHAllocCStringFromCFString", "fail allocate storage for the C string"));
    EXPECT_EQ(cString, nullptr);
}

TEST_F(TextHelpers, ErrorTextIsNullIfItCannotBeConverted) {
    EXPECT_EQ(CFHAllocErrorText(nullptr), nullptr);
    EXPECT_STREQ(OwnedText(CFHAllocErrorText(CFSTR("why"))).get(), "why");
    EXPECT_EQ(CFHAllocErrorText(UnpairedSurrogate()), nullptr);
}

TEST_F(TextHelpers, Utf16IsCopiedWithoutTerminator) {
    UniChar buffer[6] = {9, 9, 9, 9, 9, 9};
    UInt16 length = 0;
    EXPECT_THAT(TakeChain(CFHConvertFromUTF8ToUniStr("a€\xF0\x9D\x84\x9E", buffer, 6, &length)),
                IsEmpty());
    EXPECT_EQ(length, 4);
    EXPECT_THAT(buffer, ElementsAre('a', 0x20AC, 0xD834, 0xDD1E, 9, 9));
}

TEST_F(TextHelpers, Utf16IsTruncatedToTheCapacity) {
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
TEST_F(TextHelpers, LengthIsTruncatedToSixteenBits) {
    UniChar buffer[8] = {};
    UInt16 length = 0;
    const std::string text(65536 + 3, 'a');
    EXPECT_THAT(TakeChain(CFHConvertFromUTF8ToUniStr(text.c_str(), buffer, 8, &length)), IsEmpty());
    EXPECT_EQ(length, 3);
    EXPECT_THAT(buffer, ElementsAre('a', 'a', 'a', 0, 0, 0, 0, 0));
}

TEST_F(TextHelpers, InvalidUtf8IsNotConverted) {
    UniChar buffer[8] = {};
    UInt16 length = 7;
    EXPECT_EQ(TakeChain(CFHConvertFromUTF8ToUniStr("\xC3", buffer, 8, &length)),
              FailedIn("CFHConvertFromUTF8ToUniStr", "fail create temp CFString from UTF8 string"));
    EXPECT_EQ(length, 7);
}

TEST_F(TextHelpers, Utf8IsWrittenIfTheBufferIsLargeEnough) {
    const UniChar characters[] = {'a', 0x20AC};
    char buffer[6] = "";
    EXPECT_THAT(TakeChain(CFHConvertFromUniStrToUTF8(characters, 2, buffer, 5)), IsEmpty());
    EXPECT_STREQ(buffer, "a€");
    EXPECT_EQ(TakeChain(CFHConvertFromUniStrToUTF8(characters, 2, buffer, 4)),
              FailedIn("CFHConvertFromUniStrToUTF8", "fail get UTF8 string from temp CFString"));
}

TEST_F(TextHelpers, ConversionsFailWithoutMemory) {
    const UniChar characters[] = {'a', 'b'};
    char bytes[8] = "";
    UniChar buffer[8] = {};
    UInt16 length = 7;
    EXPECT_EQ(
        ChainWithoutMemory([&] { return CFHConvertFromUTF8ToUniStr("text", buffer, 8, &length); }),
        FailedIn("CFHConvertFromUTF8ToUniStr", "fail create temp CFString from UTF8 string"));
    EXPECT_EQ(ChainWithoutMemory(
                  [&] { return CFHConvertFromUniStrToUTF8(characters, 2, bytes, sizeof bytes); }),
              FailedIn("CFHConvertFromUniStrToUTF8", "fail create temp CFString from uni chars"));
}

} // namespace
