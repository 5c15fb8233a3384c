#include "simulator/Words.h"

#include <gtest/gtest.h>

#include <string>

namespace simulator {
namespace {

TEST(CommandLineTest, LineIsSplitIntoCommandAndArguments) {
    const CommandLine line = ParseCommandLine("  fault on=\"mount disc\"\tcode=1021 text=a=b\r");
    EXPECT_EQ(line.word, "fault");
    ASSERT_EQ(line.values.size(), 3u);
    EXPECT_EQ(line.values.at("on"), "mount disc");
    EXPECT_EQ(line.values.at("code"), "1021");
    EXPECT_EQ(line.values.at("text"), "a=b");
}

TEST(CommandLineTest, EmptyLinesAndCommentsHaveNoCommand) {
    for (const char* line : {"", " \t ", "  # put slot=1"})
        EXPECT_EQ(ParseCommandLine(line).word, "") << line;
}

TEST(CommandLineTest, InvalidSyntaxThrows) {
    for (const char* line : {"put slot", "put slot=\"1", "put slot=\"\\x4\"", "put slot=1 slot=2"})
        EXPECT_THROW(ParseCommandLine(line), CommandError) << line;
}

TEST(QuoteTest, QuotedTextParsesToTheSameText) {
    const std::string text = std::string("a \"b\" \\ \n\t\x01\x7F caf\xC3\xA9 \xFF", 21);
    const CommandLine line = ParseCommandLine("word key=" + QuoteValue(text));
    EXPECT_EQ(line.values.at("key"), text);
    EXPECT_EQ(QuoteValue(text).find('\n'), std::string::npos);
}

TEST(QuoteTest, PlainValueIsNotQuoted) {
    EXPECT_EQ(QuoteValue("/tmp/a-1"), "/tmp/a-1");
    EXPECT_EQ(QuoteValue(""), "\"\"");
}

TEST(HexBytesTest, PairsOfDigitsAreDecodedAndOthersThrow) {
    EXPECT_EQ(ParseHexBytes("00fFa1"), std::string("\x00\xFF\xA1", 3));
    EXPECT_THROW(ParseHexBytes("0"), CommandError);
    EXPECT_THROW(ParseHexBytes("0g"), CommandError);
}

TEST(FieldsTest, FieldsAreWrittenInOrderOfTheCalls) {
    const Fields fields =
        Fields().AddChanger(0xA1).Add("slot", 3).Add("cached", false).Add("path", "/a b");
    EXPECT_EQ(fields.Text(), " changer=00000000000000A1 slot=3 cached=no path=\"/a b\"");
}

} // namespace
} // namespace simulator
