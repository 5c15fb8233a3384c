#include "changerctl/PrintableText.h"

#include <gtest/gtest.h>

#include <clocale>
#include <string>

using namespace std::string_literals;

namespace changerctl {
namespace {

TEST(PrintableText, TextOfAnyLanguageStaysAsItIs) {
    for (const char* text :
         {"", "disc 7", "100 %", "\"quoted\"", "h\u00e9", "\u65e5\u672c", "\U0001F4C0", "\u00a0"})
        EXPECT_EQ(Printable(text), text);
}

TEST(PrintableText, ControlCharactersAreEscaped) {
    EXPECT_EQ(Printable("\033[2Jx"), "\\x1B[2Jx");
    EXPECT_EQ(Printable("a\nb\tc\rd"), "a\\nb\\tc\\x0Dd");
    EXPECT_EQ(Printable("\0\x7F"s), "\\x00\\x7F");
    EXPECT_EQ(Printable("\u0080\u009b\u009f"), "\\x80\\x9B\\x9F");
}

TEST(PrintableText, BackslashIsDoubled) {
    EXPECT_EQ(Printable("\\x1B"), "\\\\x1B");
}

TEST(PrintableText, CharactersThatChangeTheLayoutAreEscaped) {
    EXPECT_EQ(Printable("\u2028\u2029\u202A\u202E"), "\\u2028\\u2029\\u202A\\u202E");
    EXPECT_EQ(Printable("\u2066\u2069\u200E\u200F\u061C"), "\\u2066\\u2069\\u200E\\u200F\\u061C");
    EXPECT_EQ(Printable("\u2027\u202F\u2065\u206A\u200D"), "\u2027\u202F\u2065\u206A\u200D");
}

TEST(PrintableText, BytesThatAreNotUtf8AreEscaped) {
    EXPECT_EQ(Printable("\xFF"), "\\xFF");
    EXPECT_EQ(Printable("\x80"), "\\x80");
    EXPECT_EQ(Printable("\xC3"), "\\xC3");          // cut
    EXPECT_EQ(Printable("\xC3x"), "\\xC3x");        // no continuation
    EXPECT_EQ(Printable("\xC0\x9B"), "\\xC0\\x9B"); // overlong escape character
    EXPECT_EQ(Printable("\xE0\x80\x9B"), "\\xE0\\x80\\x9B");
    EXPECT_EQ(Printable("\xF0\x80\x80\x9B"), "\\xF0\\x80\\x80\\x9B");
    EXPECT_EQ(Printable("\xED\xA0\x80"), "\\xED\\xA0\\x80"); // surrogate
    EXPECT_EQ(Printable("\xF4\x90\x80\x80"), "\\xF4\\x90\\x80\\x80");
    EXPECT_EQ(Printable("\xF5\x80\x80\x80"), "\\xF5\\x80\\x80\\x80");
}

class Columns : public testing::Test {
protected:
    Columns() {
        std::setlocale(LC_CTYPE, "C.UTF-8");
    }
};

TEST_F(Columns, WideAndCombiningCharactersAreCountedAsTheTerminalShowsThem) {
    EXPECT_EQ(ColumnsOf(""), 0U);
    EXPECT_EQ(ColumnsOf("disc"), 4U);
    EXPECT_EQ(ColumnsOf("h\u00e9"), 2U);
    EXPECT_EQ(ColumnsOf("\u65e5\u672c"), 4U);
    EXPECT_EQ(ColumnsOf("e\u0301"), 1U);
}

TEST_F(Columns, TextIsClippedBetweenCharacters) {
    EXPECT_EQ(ClippedTo(3, "disc"), "dis");
    EXPECT_EQ(ClippedTo(4, "disc"), "disc");
    EXPECT_EQ(ClippedTo(0, "disc"), "");
    EXPECT_EQ(ClippedTo(3, "\u65e5\u672c"), "\u65e5") << "half a character fits nowhere";
    EXPECT_EQ(ClippedTo(1, "e\u0301x"), "e\u0301");
}

} // namespace
} // namespace changerctl
