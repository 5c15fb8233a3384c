/*
 * The error in a reply, from the server's text to the log lines. The first byte of an input selects
 * the type of the code, the second the type of the text; a number of eight bytes and the bytes of a
 * text follow.
 */

#include "ChangerServerConnectionLib/ChangerServerMessages.h"
#include "Target.h"
#include "support/LogCapture.h"
#include "support/PropertyLists.h"

#include <gtest/gtest.h>

#include <bit>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

namespace {

constexpr std::size_t kNumberAt = 2;
constexpr std::size_t kTextAt = kNumberAt + sizeof(std::int64_t);

enum Choice { kInteger, kText, kReal, kData, kArray, kTrue, kNone, kChoices };

CFOwned<CFTypeRef> Chosen(int choice, std::int64_t number, const std::string& text) {
    const auto real = std::bit_cast<double>(number);
    switch (choice) {
    case kInteger:
        return Integer(number);
    case kText:
        return Text(text);
    case kReal:
        return CFOwned<CFTypeRef>(CFNumberCreate(nullptr, kCFNumberFloat64Type, &real));
    case kData:
        return Bytes(text);
    case kArray:
        return Array({number});
    case kTrue:
        return Share<CFTypeRef>(kCFBooleanTrue);
    default:
        return {};
    }
}

CFOwned<CFMutableDictionaryRef> ReplyOf(CFTypeRef code, CFTypeRef text) {
    auto reply = Dictionary();
    if (code != nullptr)
        CFDictionarySetValue(reply, CFSTR("error code"), code);
    if (text != nullptr)
        CFDictionarySetValue(reply, CFSTR("error string"), text);
    return reply;
}

// The result of printf for a format without arguments.
std::string Formatted(std::string_view format) {
    std::string text;
    for (std::size_t i = 0; i < format.size(); ++i) {
        text += format[i];
        if (format.substr(i).starts_with("%%"))
            ++i;
    }
    return text;
}

// The error must be a chain of one link and one line in the log.
void ExpectError(VErrLink* reported, std::int64_t code, const std::string& text) {
    EXPECT_EQ(reported == nullptr, code == 0);
    if (reported == nullptr)
        return;
    EXPECT_EQ(reported->code, code);
    EXPECT_EQ(reported->message, text);
    LogCapture log;
    VErrLog(reported);
    const std::vector<std::string> lines = log.Take();
    EXPECT_EQ(lines.size(), 1U);
    EXPECT_NE(lines.front().find(", GetMessageReplyErr: " + text), std::string::npos);
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < kTextAt)
        return 0;
    const int codeChoice = data[0] % kChoices;
    const int textChoice = data[1] % kChoices;
    std::int64_t number = 0;
    std::memcpy(&number, data + kNumberAt, sizeof number);
    const std::string bytes(TextOfInput(data, size).substr(kTextAt));
    const CFOwned<CFTypeRef> text = Chosen(textChoice, number, bytes);

    VErrLink* reported = nullptr;
    VErrLink* err = GetMessageReplyErr(ReplyOf(Chosen(codeChoice, number, bytes), text), &reported);
    if (codeChoice == kInteger && textChoice == kText && text != nullptr) {
        EXPECT_EQ(err, nullptr);
        ExpectError(reported, number, Formatted(TextOf(static_cast<CFStringRef>(text.Get()))));
    }
    VErrCatch(&err);
    VErrCatch(&reported);
    return 0;
}
