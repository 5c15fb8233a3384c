/*
 * libplist as an independent witness: lists drawn at random are written by one side and read by
 * the other, in both formats and both directions, and must come out alike.
 */

#include "Lists.h"

#include "objects/Array.h"
#include "objects/Data.h"
#include "objects/Date.h"
#include "objects/Dictionary.h"
#include "objects/Number.h"
#include "objects/String.h"

#include <gtest/gtest.h>
#include <plist/plist.h>

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <random>

namespace {

struct FreeNode {
    void operator()(void* node) const {
        plist_free(node);
    }
};
using Node = std::unique_ptr<void, FreeNode>;

// Drawing lists

class Generator {
public:
    explicit Generator(unsigned seed) : random_(seed) {}

    plist_t Dictionary(int levels) {
        plist_t dictionary = plist_new_dict();
        for (unsigned i = 4 + Below(25); i > 0; --i)
            plist_dict_set_item(dictionary, Text().c_str(), List(levels));
        return dictionary;
    }

private:
    plist_t List(int levels) {
        switch (Below(levels > 0 ? 10 : 8)) {
        case 0:
        case 1:
            return plist_new_string(Text().c_str());
        case 2:
            return plist_new_uint(random_() >> Below(64));
        case 3:
            return plist_new_uint(Below(300));
        case 4:
            return plist_new_bool(static_cast<std::uint8_t>(Below(2)));
        case 5:
            return plist_new_real(std::ldexp(static_cast<double>(random_() >> 12), -20));
        case 6:
            return plist_new_date(static_cast<std::int32_t>(random_() >> 33), 0);
        case 7:
            return Data();
        case 8:
            return Array(levels - 1);
        default:
            return Dictionary(levels - 1);
        }
    }

    unsigned Below(unsigned bound) {
        return static_cast<unsigned>(random_() % bound);
    }

    // A letter at each end: libplist strips blanks.
    std::string Text() {
        constexpr const char* kPieces[] = {"a",
                                           "Z",
                                           "&",
                                           "<",
                                           ">",
                                           "\"",
                                           "'",
                                           "&lt;",
                                           " ",
                                           "_",
                                           "7",
                                           "\n",
                                           "\xC3\xA9",
                                           "\xE4\xB8\xAD",
                                           "\xF0\x9F\x98\x80"};
        std::string text = "t";
        for (unsigned i = Below(30); i > 0; --i)
            text += kPieces[Below(std::size(kPieces))];
        return text + "t";
    }

    plist_t Data() {
        std::string bytes;
        for (unsigned i = 1 + Below(200); i > 0; --i)
            bytes += static_cast<char>(Below(256));
        return plist_new_data(bytes.data(), bytes.size());
    }

    plist_t Array(int levels) {
        plist_t array = plist_new_array();
        for (unsigned i = Below(8); i > 0; --i)
            plist_array_append_item(array, List(levels));
        return array;
    }

    std::mt19937_64 random_;
};

// Comparing them

void ExpectSame(const cf::Object* ours, plist_t theirs);

void ExpectSameText(const cf::Object* ours, plist_t theirs) {
    const auto* string = cf::As<cf::String>(ours);
    ASSERT_NE(string, nullptr);
    char* text = nullptr;
    plist_get_string_val(theirs, &text);
    EXPECT_EQ(cf::TextOf(string), text);
    std::free(text);
}

void ExpectSameInteger(const cf::Object* ours, plist_t theirs) {
    const auto* number = cf::As<cf::Number>(ours);
    ASSERT_NE(number, nullptr);
    ASSERT_NE(number->kind, cf::kRealNumber);
    std::uint64_t value = 0;
    plist_get_uint_val(theirs, &value);
    EXPECT_EQ(number->Unsigned(), value);
}

void ExpectSameReal(const cf::Object* ours, plist_t theirs) {
    const auto* number = cf::As<cf::Number>(ours);
    ASSERT_NE(number, nullptr);
    ASSERT_EQ(number->kind, cf::kRealNumber);
    double value = 0;
    plist_get_real_val(theirs, &value);
    EXPECT_DOUBLE_EQ(number->Real(), value);
}

void ExpectSameDate(const cf::Object* ours, plist_t theirs) {
    const auto* date = cf::As<cf::Date>(ours);
    ASSERT_NE(date, nullptr);
    std::int32_t seconds = 0;
    std::int32_t microseconds = 0;
    plist_get_date_val(theirs, &seconds, &microseconds);
    EXPECT_EQ(date->absoluteTime, seconds);
}

void ExpectSameBytes(const cf::Object* ours, plist_t theirs) {
    const auto* data = cf::As<cf::Data>(ours);
    ASSERT_NE(data, nullptr);
    std::uint64_t length = 0;
    const auto* bytes = reinterpret_cast<const std::uint8_t*>(plist_get_data_ptr(theirs, &length));
    EXPECT_TRUE(std::ranges::equal(cf::BytesOf(data), std::span(bytes, length)));
}

void ExpectSameMembers(const cf::Object* ours, plist_t theirs) {
    const auto* array = cf::As<cf::Array>(ours);
    ASSERT_NE(array, nullptr);
    const auto members = cf::MembersOf(array);
    ASSERT_EQ(members.size(), plist_array_get_size(theirs));
    for (std::uint32_t i = 0; i < members.size(); ++i)
        ExpectSame(members[i], plist_array_get_item(theirs, i));
}

void ExpectSamePairs(const cf::Object* ours, plist_t theirs) {
    const auto* dictionary = cf::As<cf::Dictionary>(ours);
    ASSERT_NE(dictionary, nullptr);
    ASSERT_EQ(dictionary->count, plist_dict_get_size(theirs));
    cf::VisitPairs(dictionary, [&](const cf::Object* key, const cf::Object* value) {
        const std::string text(cf::TextOf(cf::As<cf::String>(key)));
        ExpectSame(value, plist_dict_get_item(theirs, text.c_str()));
    });
}

void ExpectSame(const cf::Object* ours, plist_t theirs) {
    ASSERT_NE(theirs, nullptr);
    std::uint8_t truth = 0;
    switch (plist_get_node_type(theirs)) {
    case PLIST_STRING:
        return ExpectSameText(ours, theirs);
    case PLIST_UINT:
        return ExpectSameInteger(ours, theirs);
    case PLIST_REAL:
        return ExpectSameReal(ours, theirs);
    case PLIST_DATE:
        return ExpectSameDate(ours, theirs);
    case PLIST_DATA:
        return ExpectSameBytes(ours, theirs);
    case PLIST_ARRAY:
        return ExpectSameMembers(ours, theirs);
    case PLIST_DICT:
        return ExpectSamePairs(ours, theirs);
    case PLIST_BOOLEAN:
        plist_get_bool_val(theirs, &truth);
        EXPECT_EQ(ours, cf::AsObject(truth ? kCFBooleanTrue : kCFBooleanFalse));
        return;
    default:
        FAIL() << "unexpected kind of node";
    }
}

std::string XmlOf(plist_t list) {
    char* text = nullptr;
    std::uint32_t length = 0;
    plist_to_xml(list, &text, &length);
    std::string xml(text, length);
    plist_to_xml_free(text);
    return xml;
}

std::string BinaryOf(plist_t list) {
    char* bytes = nullptr;
    std::uint32_t length = 0;
    plist_to_bin(list, &bytes, &length);
    std::string binary(bytes, length);
    plist_to_bin_free(bytes);
    return binary;
}

Node FromXml(const std::string& xml) {
    plist_t list = nullptr;
    plist_from_xml(xml.data(), static_cast<std::uint32_t>(xml.size()), &list);
    return Node(list);
}

class PropertyListOracle : public testing::TestWithParam<unsigned> {
protected:
    const Node list_{Generator(GetParam()).Dictionary(4)};
};

TEST_P(PropertyListOracle, ItsXmlIsReadAlike) {
    const std::string xml = XmlOf(list_.get());
    const ReadResult result = ReadList(xml);
    ASSERT_TRUE(result.list) << result.error << "\n" << xml;
    ExpectSame(cf::AsObject(result.list.Get()), FromXml(xml).get());
}

TEST_P(PropertyListOracle, ItsBinaryIsReadAlike) {
    for (const CFOptionFlags mutability :
         {kCFPropertyListImmutable, kCFPropertyListMutableContainersAndLeaves}) {
        const ReadResult result = ReadList(BinaryOf(list_.get()), mutability);
        ASSERT_TRUE(result.list) << result.error;
        ExpectSame(cf::AsObject(result.list.Get()), list_.get());
    }
}

TEST_P(PropertyListOracle, OurXmlIsReadAlikeAndWrittenAgainTheSame) {
    const ReadResult ours = ReadList(BinaryOf(list_.get()));
    const std::string xml = WriteList(ours.list.Get());
    ASSERT_NE(xml, "");
    ExpectSame(cf::AsObject(ours.list.Get()), FromXml(xml).get());
    const ReadResult again = ReadList(xml);
    ASSERT_TRUE(again.list) << again.error;
    EXPECT_EQ(again.list.Get(), ours.list.Get());
    EXPECT_EQ(WriteList(again.list.Get()), xml);
}

INSTANTIATE_TEST_SUITE_P(Seeds, PropertyListOracle, testing::Range(0U, 50U));

} // namespace
