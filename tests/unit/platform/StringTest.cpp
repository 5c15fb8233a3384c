#include "objects/String.h"

#include "TestObjects.h"
#include "objects/Unicode.h"
#include "support/PropertyLists.h"

#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <iterator>
#include <limits>
#include <string>
#include <string_view>
#include <vector>

namespace {

constexpr CFStringEncoding kMacRoman = 0;

CFOwned<CFStringRef> Units(const std::vector<UniChar>& units) {
    return CFOwned(
        CFStringCreateWithCharacters(nullptr, units.data(), static_cast<CFIndex>(units.size())));
}

std::vector<UniChar> UnitsOf(CFStringRef string) {
    std::vector<UniChar> units(static_cast<std::size_t>(CFStringGetLength(string)));
    CFStringGetCharacters(string, CFRangeMake(0, CFStringGetLength(string)), units.data());
    return units;
}

TEST(StringGetCString, FailsWithoutCapacityForTheTerminator) {
    struct Row {
        CFStringRef string;
        CFIndex bytes;
    };
    const Row rows[] = {{CFSTR("hello"), 5}, {CFSTR("caf\u00E9"), 5}, {CFSTR(""), 0}};
    for (const Row& row : rows) {
        for (CFIndex size = 0; size <= row.bytes + 2; ++size) {
            std::array<char, 16> buffer;
            buffer.fill('#');
            const bool fits =
                CFStringGetCString(row.string, buffer.data(), size, kCFStringEncodingUTF8) != 0;
            EXPECT_EQ(fits, size > row.bytes) << size;
            EXPECT_EQ(buffer[static_cast<std::size_t>(size)], '#') << "written past the end";
            if (!fits && size > 0)
                EXPECT_EQ(buffer[0], 0);
        }
    }
}

TEST(StringGetCString, CopiesUtf8AndNoOtherEncoding) {
    struct Row {
        CFStringRef string;
        CFStringEncoding encoding;
        const char* expected; // nullptr: fails
    };
    const Row rows[] = {
        {CFSTR("plain"), kCFStringEncodingUTF8, "plain"},
        {CFSTR("caf\u00E9"), kCFStringEncodingUTF8, "caf\xC3\xA9"},
        {CFSTR("\U0001F600"), kCFStringEncodingUTF8, "\xF0\x9F\x98\x80"},
        {CFSTR("plain"), kMacRoman, nullptr},
    };
    for (const Row& row : rows) {
        char buffer[32] = "before";
        EXPECT_EQ(CFStringGetCString(row.string, buffer, sizeof buffer, row.encoding) != 0,
                  row.expected != nullptr);
        EXPECT_STREQ(buffer, row.expected != nullptr ? row.expected : "");
    }
}

TEST(StringGetCString, FailsForAnUnpairedSurrogate) {
    char buffer[16] = "before";
    EXPECT_FALSE(CFStringGetCString(Units({'a', 0xD800, 'b'}), buffer, sizeof buffer,
                                    kCFStringEncodingUTF8));
    EXPECT_EQ(buffer[0], 0);
}

TEST(StringGetCString, CopiesEmbeddedZeros) {
    char buffer[4] = "###";
    EXPECT_TRUE(CFStringGetCString(Units({'a', 0, 'b'}), buffer, 4, kCFStringEncodingUTF8));
    EXPECT_EQ(std::string(buffer, 4), std::string("a\0b\0", 4));
}

TEST(StringGetCString, FailsForOtherObjects) {
    char buffer[4] = "###";
    EXPECT_FALSE(CFStringGetCString(nullptr, buffer, 4, kCFStringEncodingUTF8));
    EXPECT_EQ(buffer[0], 0);
    buffer[0] = '#';
    const auto number = Integer(kLarge);
    const auto* disguised = static_cast<CFStringRef>(CFTypeRef{number});
    EXPECT_FALSE(CFStringGetCString(disguised, buffer, 4, kCFStringEncodingUTF8));
    EXPECT_EQ(buffer[0], 0);
    EXPECT_FALSE(CFStringGetCString(CFSTR("x"), nullptr, 4, kCFStringEncodingUTF8));
    EXPECT_EQ(CFStringGetLength(disguised), 0);
}

TEST(StringCreate, RefusesInvalidUtf8) {
    for (const char* text :
         {"\xFF", "\xC3", "\xC3\x28", "\xC0\x80", "\xC1\xBF", "\xED\xA0\x80", "\xE0\x9F\xBF",
          "\xF4\x90\x80\x80", "\xF0\x8F\xBF\xBF", "\x80", "\xE4\xB8", "\xE4\xB8\x28",
          "longer than a word, then \xFF", "\xF5\x80\x80\x80", "\xF0\x9F\x98\x28"})
        EXPECT_EQ(CFStringCreateWithCString(nullptr, text, kCFStringEncodingUTF8), nullptr) << text;
}

// Replaces each continuation byte by the value below the smallest and above the greatest one.
TEST(StringCreate, RefusesInvalidContinuationBytes) {
    for (const std::string valid : {"\xC2\x80", "\xE1\x80\x80", "\xF1\x80\x80\x80"}) {
        EXPECT_NE(Text(valid), nullptr);
        for (std::size_t i = 1; i < valid.size(); ++i) {
            for (const char byte : {'\x7F', '\xC0'}) {
                std::string text = valid;
                text[i] = byte;
                EXPECT_EQ(Text(text), nullptr) << i;
            }
        }
    }
}

TEST(StringCreate, AcceptsTheBordersOfUtf8) {
    for (const std::string_view text : {"", "\x7F", "\xC2\x80", "\xED\x9F\xBF", "\xEE\x80\x80",
                                        "\xE0\xA0\x80", "\xF0\x90\x80\x80", "\xF4\x8F\xBF\xBF"})
        EXPECT_EQ(::TextOf(Text(text)), text);
}

TEST(StringCreate, DropsALeadingByteOrderMark) {
    EXPECT_TRUE(CFEqual(Text("\xEF\xBB\xBFname"), CFSTR("name")));
    EXPECT_TRUE(CFEqual(Text("\xEF\xBB\xBF"), CFSTR("")));
}

TEST(StringCreate, RefusesOtherEncodingsAndInvalidArguments) {
    EXPECT_EQ(CFStringCreateWithCString(nullptr, "x", kMacRoman), nullptr);
    EXPECT_EQ(CFStringCreateWithCString(nullptr, nullptr, kCFStringEncodingUTF8), nullptr);
    EXPECT_EQ(CFStringCreateWithCharacters(nullptr, nullptr, 1), nullptr);
    const UniChar unit = 'x';
    EXPECT_EQ(CFStringCreateWithCharacters(nullptr, &unit, -1), nullptr);
}

TEST(StringUnits, AreKeptWhetherPairedOrNot) {
    const std::vector<UniChar> texts[] = {{},
                                          {'a', 'b'},
                                          {0xE9, 0x4E2D, 0xFFFF},
                                          {0xD83D, 0xDE00},
                                          {0xD800},
                                          {0xDE00, 0xD83D},
                                          {'a', 0xD83D, 'b'},
                                          {0xD83D, 0xD83D, 0xDE00, 0xDE00},
                                          {0, 0x7F, 0x80, 0x7FF, 0x800}};
    for (const auto& units : texts) {
        const auto string = Units(units);
        EXPECT_EQ(CFStringGetLength(string), static_cast<CFIndex>(units.size()));
        EXPECT_EQ(UnitsOf(string), units);
    }
    EXPECT_TRUE(CFEqual(CFOwned(CFStringCreateWithCharacters(nullptr, nullptr, 0)), CFSTR("")));
}

TEST(StringUnits, OfAPairCanBeReadOneByOne) {
    UniChar unit = 0;
    CFStringGetCharacters(CFSTR("\U0001F600"), CFRangeMake(0, 1), &unit);
    EXPECT_EQ(unit, 0xD83D);
    CFStringGetCharacters(CFSTR("\U0001F600"), CFRangeMake(1, 1), &unit);
    EXPECT_EQ(unit, 0xDE00);
}

TEST(StringUnits, OfARangeOfNegativeLengthAreNone) {
    const CFIndex far = CFIndex{1} << 40;
    UniChar unit = 7;
    CFStringGetCharacters(CFSTR("abc"), CFRangeMake(far, -2 * far), &unit);
    EXPECT_EQ(unit, 7);
}

TEST(StringUnits, OfTheFirstAndLastCharactersOfEachUtf8LengthAreCorrect) {
    struct Row {
        const char* utf8;
        std::vector<UniChar> units;
    };
    const Row rows[] = {
        {"\x7F", {0x7F}},
        {"\xC2\x80", {0x80}},
        {"\xC3\xBF", {0xFF}},
        {"\xDF\xBF", {0x7FF}},
        {"\xE0\xA0\x80", {0x800}},
        {"\xEF\xBF\xBF", {0xFFFF}},
        {"\xF0\x90\x80\x80", {0xD800, 0xDC00}}, // U+10000
        {"\xF0\x9F\xBF\xBF", {0xD83F, 0xDFFF}},
        {"\xF4\x8F\xBF\xBF", {0xDBFF, 0xDFFF}}, // U+10FFFF
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.utf8);
        EXPECT_EQ(UnitsOf(Text(row.utf8)), row.units);
        EXPECT_TRUE(CFEqual(Units(row.units), Text(row.utf8)));
    }
}

TEST(StringUnits, OutsideOfTheStringAreNotRead) {
    const CFRange outside[] = {{0, 4},  {3, 1}, {-1, 1},
                               {1, -1}, {4, 0}, {1, std::numeric_limits<CFIndex>::max()}};
    for (const CFRange range : outside) {
        std::array<UniChar, 8> buffer = {'#'};
        CFStringGetCharacters(CFSTR("abc"), range, buffer.data());
        EXPECT_EQ(buffer[0], '#') << range.location << ", " << range.length;
    }
}

TEST(String, LengthIsTheNumberOfUtf16Units) {
    for (const std::size_t ascii : {0U, 7U, 8U, 15U, 16U, 17U, 31U, 32U, 33U}) {
        const std::string text(ascii, 'a');
        const auto length = static_cast<CFIndex>(ascii);
        EXPECT_EQ(CFStringGetLength(Text(text)), length);
        EXPECT_EQ(CFStringGetLength(Text(text + "\xC3\xA9")), length + 1);
        EXPECT_EQ(CFStringGetLength(Text(text + "\xF0\x9F\x98\x80")), length + 2);
    }
}

TEST(String, OtherNormalFormOrCaseIsNotEqual) {
    EXPECT_FALSE(CFEqual(CFSTR("\u00E9"), CFSTR("e\u0301")));
    EXPECT_FALSE(CFEqual(CFSTR("a"), CFSTR("A")));
}

TEST(String, MaximumSizeIsThreeBytesPerUnit) {
    for (const CFIndex length : {0, 1, 10})
        EXPECT_EQ(CFStringGetMaximumSizeForEncoding(length, kCFStringEncodingUTF8), 3 * length);
    EXPECT_EQ(CFStringGetMaximumSizeForEncoding(10, kMacRoman), 0);
    const CFIndex longest = std::numeric_limits<CFIndex>::max() / 3;
    EXPECT_EQ(CFStringGetMaximumSizeForEncoding(longest, kCFStringEncodingUTF8), 3 * longest);
    for (const CFIndex length : {longest + 1, std::numeric_limits<CFIndex>::max()})
        EXPECT_EQ(CFStringGetMaximumSizeForEncoding(length, kCFStringEncodingUTF8), kCFNotFound);
}

TEST(String, NeverNeedsMoreThanTheMaximumSize) {
    for (const char* text : {"", "plain", "caf\u00E9", "\u4E2D\u6587", "\U0001F600\U0001F600"}) {
        const auto string = Text(text);
        const CFIndex size =
            CFStringGetMaximumSizeForEncoding(CFStringGetLength(string), kCFStringEncodingUTF8) + 1;
        std::vector<char> buffer(static_cast<std::size_t>(size));
        EXPECT_TRUE(CFStringGetCString(string, buffer.data(), size, kCFStringEncodingUTF8)) << text;
    }
}

TEST(StringOrder, IsThatOfUtf16Units) {
    const char* const texts[] = {"",           "1",          "10",     "2",      "A",
                                 "GUID",       "Z",          "a",      "a b",    "a_b",
                                 "ab",         "e\u0301",    "z",      "\u00E9", "\u4E2D",
                                 "\U0001F600", "\U0001F601", "\uE000", "\uFF21"};
    for (std::size_t i = 0; i < std::size(texts); ++i) {
        for (std::size_t j = 0; j < std::size(texts); ++j) {
            const auto left = Text(texts[i]);
            const auto right = Text(texts[j]);
            EXPECT_EQ(cf::CompareByUnits(left, right), i <=> j) << texts[i] << ", " << texts[j];
        }
    }
}

TEST(StringOrder, CountsUnpairedSurrogatesAsUnits) {
    const std::vector<std::vector<UniChar>> ascending = {
        {'z'}, {0xD83D}, {0xD83D, 'a'}, {0xD83D, 0xDE00}, {0xD83D, 0xE000}, {0xDE00}, {0xFF21}};
    for (std::size_t i = 0; i < ascending.size(); ++i) {
        for (std::size_t j = 0; j < ascending.size(); ++j) {
            EXPECT_EQ(cf::CompareByUnits(Units(ascending[i]), Units(ascending[j])), i <=> j)
                << i << ", " << j;
        }
    }
}

TEST(StringKind, IsValidUtf8UnlessASurrogateIsUnpaired) {
    EXPECT_EQ(CFStringRef { Units({'a', 0xD83D, 0xDE00}) } -> kind, cf::kValidUtf8);
    EXPECT_EQ(CFStringRef { Units({'a', 0xD83D}) } -> kind, cf::kWithUnpairedSurrogates);
    EXPECT_TRUE(cf::IsValidUtf8(cf::TextOf(Units({'a', 0xD83D, 0xDE00}))));
    EXPECT_FALSE(cf::IsValidUtf8(cf::TextOf(Units({'a', 0xD83D}))));
}

CFOwned<CFStringRef> Join(CFArrayRef parts, CFStringRef separator) {
    return CFOwned(CFStringCreateByCombiningStrings(nullptr, parts, separator));
}

TEST(JoinedStrings, OfEmptyOnesOrNoneAreEmpty) {
    EXPECT_TRUE(CFEqual(Join(Array(), CFSTR(", ")), CFSTR("")));
    EXPECT_TRUE(CFEqual(Join(Array({"", ""}), CFSTR("")), CFSTR("")));
}

TEST(JoinedStrings, OfOneAreThatObject) {
    const auto only = Text("only");
    const CFOwned parts = Array({only});
    EXPECT_EQ(Join(parts, CFSTR(", ")), only);
    EXPECT_EQ(ReferencesTo(only), 2);
}

TEST(JoinedStrings, HaveTheSeparatorBetween) {
    const CFOwned parts = Array({"a", "", "\u00E9\U0001F600"});
    EXPECT_TRUE(CFEqual(Join(parts, CFSTR("--")), CFSTR("a----\u00E9\U0001F600")));
    EXPECT_TRUE(CFEqual(Join(parts, nullptr), CFSTR("a\u00E9\U0001F600")));
}

TEST(JoinedStrings, PairTheSurrogatesOfTwoParts) {
    const CFOwned parts = Array({Units({'a', 0xD83D}), Units({0xDE00, 'b'})});
    EXPECT_TRUE(CFEqual(Join(parts, CFSTR("")), CFSTR("a\U0001F600b")));
}

TEST(JoinedStrings, FailForOtherObjects) {
    EXPECT_EQ(Join(Array({"a", true}), CFSTR("")), nullptr);
    EXPECT_EQ(Join(nullptr, CFSTR("")), nullptr);
}

} // namespace
