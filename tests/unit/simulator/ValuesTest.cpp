#include "simulator/Values.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace simulator {
namespace {

constexpr std::string_view kXmlHead =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?><plist version=\"1.0\">";

TEST(ValueTest, XmlIsParsedToTheSameValues) {
    Value written = Value::MakeDictionary();
    written.Set("integer", -25536)
        .Set("text", "caf\xC3\xA9 & <tea>")
        .Set("yes", true)
        .Set("no", false);
    const Value read = Value::ParseXml(written.ToXml());
    EXPECT_EQ(read.FindInteger("integer"), -25536);
    EXPECT_EQ(read.FindString("text"), "caf\xC3\xA9 & <tea>");
    EXPECT_TRUE(read.IsTrue("yes"));
    EXPECT_FALSE(read.IsTrue("no"));
}

TEST(ValueTest, UnsignedNumberIsWrittenAsSignedOfTheSameBits) {
    Value value = Value::MakeDictionary();
    value.Set("GUID", std::uint64_t{0xFEDCBA9876543210});
    EXPECT_NE(value.ToXml().find("<integer>-81985529216486896</integer>"), std::string::npos);
}

TEST(ValueTest, BinaryFormBeginsWithItsSignature) {
    EXPECT_TRUE(Value::MakeDictionary().ToBinary().starts_with("bplist00"));
}

TEST(ValueTest, ValueOfWrongTypeIsNotFound) {
    Value value = Value::MakeDictionary();
    value.Set("text", "1").Set("number", 1).Set("array", Value::MakeArray());
    EXPECT_EQ(value.FindInteger("text"), std::nullopt);
    EXPECT_EQ(value.FindString("number"), std::nullopt);
    EXPECT_FALSE(value.IsTrue("number"));
    EXPECT_EQ(value.FindInteger("array"), std::nullopt);
    EXPECT_EQ(Value::MakeArray().FindInteger("key"), std::nullopt);
    EXPECT_THROW(Value::MakeArray().Set("key", 1), ValueError);
}

TEST(ValueTest, InvalidXmlThrows) {
    EXPECT_THROW(Value::ParseXml(""), ValueError);
    EXPECT_THROW(Value::ParseXml("no list"), ValueError);
    EXPECT_THROW(Value::ParseXml(std::string(kXmlHead) + "<dict><key>a"), ValueError);
}

TEST(ValueTest, DeeplyNestedXmlThrows) {
    std::string opening;
    std::string closing;
    for (int depth = 0; depth < 1000; ++depth) {
        opening += "<array>";
        closing += "</array>";
    }
    const std::string xml = std::string(kXmlHead) + opening + closing + "</plist>";
    EXPECT_THROW(Value::ParseXml(xml), ValueError);
}

TEST(ValueTest, WithWrongTypesChangesEachType) {
    Value value = Value::MakeDictionary();
    value.Set("text", "a").Set("number", 1).Set("yes", true).Set("array", Value::MakeArray());
    const Value wrong = value.WithWrongTypes();
    EXPECT_EQ(wrong.Keys(), value.Keys());
    EXPECT_EQ(wrong.Describe("text"), "1");
    EXPECT_EQ(wrong.Describe("number"), "not a number");
    EXPECT_EQ(wrong.Describe("yes"), "1");
    EXPECT_EQ(wrong.Describe("array"), "<dictionary>");
}

} // namespace
} // namespace simulator
