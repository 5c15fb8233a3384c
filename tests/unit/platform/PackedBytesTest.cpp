/* Operations on eight bytes at a time. Tests of the XML reader would not notice an error in them:
   the reader would only take a slower path. */

#include "plist/PackedBytes.h"

#include "plist/XmlTag.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <string>
#include <string_view>

namespace cf {
namespace {

std::uint64_t Word(std::string_view bytes) {
    std::string eight(bytes);
    eight.resize(8);
    return LoadWord(eight.data());
}

TEST(PackedBytesTest, FirstByteIsTheLowest) {
    EXPECT_EQ(Word("\x01\x02\x03\x04\x05\x06\x07\x08"), 0x0807060504030201U);
}

TEST(PackedBytesTest, LowBytesAreKeptAndTheOthersCleared) {
    const std::uint64_t word = 0xFFEEDDCCBBAA9988U;
    std::uint64_t expected = 0;
    for (std::size_t count = 0; count <= 8; ++count) {
        EXPECT_EQ(LowBytes(word, count), expected) << count;
        if (count < 8)
            expected |= word & (std::uint64_t{0xFF} << (8 * count));
    }
}

TEST(PackedBytesTest, StartsWithComparesUpToEightBytes) {
    EXPECT_TRUE(StartsWith(Word("</key>ab"), WordPrefix("</key>")));
    EXPECT_FALSE(StartsWith(Word("</kez>ab"), WordPrefix("</key>")));
    EXPECT_FALSE(StartsWith(Word("</key"), WordPrefix("</key>")));
    EXPECT_FALSE(StartsWith(Word("x/key>ab"), WordPrefix("</key>")));
    EXPECT_TRUE(StartsWith(Word("12345678"), WordPrefix("12345678")));
    EXPECT_FALSE(StartsWith(Word("1234567x"), WordPrefix("12345678")));
    EXPECT_TRUE(StartsWith(Word("12345678"), WordPrefix("")));
}

TEST(PackedBytesTest, LeadingBytesAreCounted) {
    EXPECT_EQ(CountLeading(Word("<"), '\t'), 0U);
    EXPECT_EQ(CountLeading(Word("\t<\t"), '\t'), 1U);
    EXPECT_EQ(CountLeading(Word("\t\t\t\t\t\t\t<"), '\t'), 7U);
    EXPECT_EQ(CountLeading(Word("\t\t\t\t\t\t\t\t"), '\t'), 8U);
    EXPECT_EQ(CountLeading(Word("\xFF\xFF-"), '\xFF'), 2U);
}

// Each place, behind bytes that differ from the searched one in the highest or lowest bit.
TEST(PackedBytesTest, FirstEqualByteIsFound) {
    for (const char other : {'\0', '=', '\xBC', '\xFF'})
        for (std::size_t place = 0; place < 8; ++place) {
            std::string bytes(8, other);
            EXPECT_EQ(BytesEqual(Word(bytes), '<'), 0U);
            bytes[place] = '<';
            EXPECT_EQ(FirstByte(BytesEqual(Word(bytes), '<')), place);
            bytes[7] = '<';
            EXPECT_EQ(FirstByte(BytesEqual(Word(bytes), '<')), place);
        }
}

TEST(PackedBytesTest, FirstHighByteIsFound) {
    EXPECT_EQ(HighBytes(Word("abcdefg\x7F")), 0U);
    for (std::size_t place = 0; place < 8; ++place) {
        std::string bytes(8, 'a');
        bytes[place] = '\x80';
        EXPECT_EQ(FirstByte(HighBytes(Word(bytes))), place);
    }
}

TEST(XmlTagTest, NamesArePackedFromTheLowestByteOn) {
    EXPECT_EQ(PackName("key"), 0x79656BU);
    EXPECT_EQ(PackName("integer"), 0x72656765746E69U);
    EXPECT_EQ(NameOf(XmlTag::kKey).closing, 0x3E79656BU);
    EXPECT_EQ(NameOf(XmlTag::kInteger).closing, 0x3E72656765746E69U);
}

TEST(XmlTagTest, TagOfNameHasThatNameAndOthersAreUnknown) {
    for (const std::string_view name : {"array", "data", "date", "dict", "false", "integer", "key",
                                        "plist", "real", "string", "true"}) {
        EXPECT_EQ(NameOf(TagOf(name)).text, name);
        EXPECT_EQ(TagOf(name.substr(1)), XmlTag::kUnknown);
    }
    EXPECT_EQ(TagOf(""), XmlTag::kUnknown);
}

} // namespace
} // namespace cf
