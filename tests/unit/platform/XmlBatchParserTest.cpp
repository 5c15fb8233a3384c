/* What XmlReader relies on when pugixml parses a batch of the normal form in place. If a test here
   fails after an upgrade of pugixml, XmlReader must change before the new version can be used. */

#include "plist/XmlBatchParser.h"

#include <gtest/gtest.h>

#include <string>
#include <string_view>

namespace {

using namespace std::string_literals;

class XmlBatchParser : public testing::Test {
protected:
    pugi::xml_node Parse(std::string_view batch) {
        written_ = batch;
        text_ = batch;
        cf::ParseBatch(document_, {text_.data(), text_.size(), 0, 0});
        return document_;
    }

    // The value must be the bytes at their offset in the batch, and a NUL instead of the '<'.
    void ExpectInPlace(const char* value, std::string_view expected) const {
        const std::size_t begin = written_.find(expected);
        ASSERT_NE(begin, std::string::npos);
        ASSERT_EQ(written_[begin + expected.size()], '<');
        EXPECT_EQ(value, text_.data() + begin)
            << "pugixml " << PUGIXML_VERSION << " moved or copied a value of a buffer parsed in"
            << " place. XmlReader computes the place of a malformed value from its offset.";
        EXPECT_EQ(text_[begin + expected.size()], '\0')
            << "pugixml " << PUGIXML_VERSION << " left no NUL where '<' was behind a value parsed"
            << " in place. XmlReader reads the scalars of a value up to that NUL.";
        EXPECT_EQ(std::string_view(text_).substr(begin, expected.size()), expected)
            << "pugixml " << PUGIXML_VERSION << " changed the bytes of a value. XmlReader needs"
            << " the normal form as XmlNormalizer wrote it.";
    }

private:
    std::string written_;
    std::string text_;
    pugi::xml_document document_;
};

TEST_F(XmlBatchParser, ValueBeforeClosingTagEndsWithNulInPlace) {
    const pugi::xml_node array = Parse("<a>i1\xFEi2\xFE</a>").first_child();
    ExpectInPlace(array.value(), "i1\xFEi2\xFE");
    EXPECT_FALSE(array.first_child()) << "the text must be the value of its element";
}

TEST_F(XmlBatchParser, ValuesBeforeAndBehindElementsEndWithNulInPlace) {
    const pugi::xml_node array = Parse("<a>i1\xFE<d></d>i2\xFE<d></d>i3\xFE</a>").first_child();
    ExpectInPlace(array.value(), "i1\xFE");
    const pugi::xml_node behind = array.first_child().next_sibling();
    EXPECT_EQ(behind.type(), pugi::node_pcdata);
    ExpectInPlace(behind.value(), "i2\xFE");
    ExpectInPlace(behind.next_sibling().next_sibling().value(), "i3\xFE");
}

TEST_F(XmlBatchParser, KeyBeforeElementsOfContainerIsItsValue) {
    const pugi::xml_node inner = Parse("<d>\x80\x81\x80\x80<a></a></d>").first_child();
    ExpectInPlace(inner.value(), "\x80\x81\x80\x80");
}

TEST_F(XmlBatchParser, BytesOfValueAreUnchanged) {
    const std::string value = "s \t\r\n\r&amp;&#65;]]>\xFF\xFE\x01\x7F\xC3\xA9 \xFE";
    ExpectInPlace(Parse("<a>" + value + "</a>").first_child().value(), value);
}

TEST_F(XmlBatchParser, ElementWithoutTextHasAnEmptyValue) {
    EXPECT_STREQ(Parse("<a><d></d></a>").first_child().value(), "");
}

TEST_F(XmlBatchParser, ScalarsOutsideOfElementsAreText) {
    const pugi::xml_node text = Parse("si\xFE").first_child();
    EXPECT_EQ(text.type(), pugi::node_pcdata);
    EXPECT_STREQ(text.value(), "si\xFE");
}

} // namespace
