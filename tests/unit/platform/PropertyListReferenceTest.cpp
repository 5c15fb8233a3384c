/* libplist as an independent reference: each side reads the random lists that the other side wrote,
   and must get equal lists. */

#include "LibplistReference.h"
#include "Lists.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <iterator>
#include <random>
#include <string>

namespace {

// Makes random lists.
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

    // libplist strips blanks at the ends: a letter stands at each end.
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

// `write` is plist_to_xml or plist_to_bin.
std::string WrittenBy(decltype(plist_to_xml) write, plist_t list) {
    char* bytes = nullptr;
    std::uint32_t length = 0;
    write(list, &bytes, &length);
    std::string written(bytes, length);
    std::free(bytes);
    return written;
}

class PropertyListReference : public testing::TestWithParam<unsigned> {
protected:
    const Node list_{Generator(GetParam()).Dictionary(4)};
};

TEST_P(PropertyListReference, LibplistXmlReadsEqual) {
    const std::string xml = WrittenBy(plist_to_xml, list_.get());
    const ReadResult result = ReadList(xml);
    ASSERT_TRUE(result.list) << result.error << "\n" << xml;
    EXPECT_EQ(DifferenceOf(cf::AsObject(result.list.Get()), LibplistFromXml(xml).get()), "");
}

TEST_P(PropertyListReference, LibplistBinaryReadsEqual) {
    for (const CFOptionFlags mutability :
         {kCFPropertyListImmutable, kCFPropertyListMutableContainersAndLeaves}) {
        const ReadResult result = ReadList(WrittenBy(plist_to_bin, list_.get()), mutability);
        ASSERT_TRUE(result.list) << result.error;
        EXPECT_EQ(DifferenceOf(cf::AsObject(result.list.Get()), list_.get()), "");
    }
}

TEST_P(PropertyListReference, WrittenXmlReadsEqualAndIsWrittenAgainUnchanged) {
    const ReadResult ours = ReadList(WrittenBy(plist_to_bin, list_.get()));
    const std::string xml = XmlOf(ours.list.Get());
    ASSERT_NE(xml, "");
    EXPECT_EQ(DifferenceOf(cf::AsObject(ours.list.Get()), LibplistFromXml(xml).get()), "");
    const ReadResult again = ReadList(xml);
    ASSERT_TRUE(again.list) << again.error;
    EXPECT_EQ(again.list.Get(), ours.list.Get());
    EXPECT_EQ(XmlOf(again.list.Get()), xml);
}

INSTANTIATE_TEST_SUITE_P(Seeds, PropertyListReference, testing::Range(0U, 50U));

} // namespace
