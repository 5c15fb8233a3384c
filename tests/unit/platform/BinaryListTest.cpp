/* Lists that the binary reader accepts and refuses, and the work that untrusted lists cause. */

#include "AddedValues.h"
#include "Lists.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

namespace {

using namespace std::string_literals;

std::string BigEndian(std::uint64_t value, std::size_t size) {
    std::string bytes;
    for (std::size_t i = size; i > 0; --i)
        bytes += i > sizeof value ? '\0' : static_cast<char>(value >> (8 * (i - 1)));
    return bytes;
}

std::string Integer128(std::uint64_t upperHalf, std::uint64_t lowerHalf) {
    return "\x14" + BigEndian(upperHalf, 8) + BigEndian(lowerHalf, 8);
}

// A binary list of the given encoded objects. The fields of the trailer can be falsified.
struct BinaryList {
    explicit BinaryList(std::vector<std::string> objectBytes) : objects(std::move(objectBytes)) {
        objectCount = objects.size();
    }

    std::string Bytes() const {
        std::string bytes = "bplist00";
        std::string table;
        for (const std::string& object : objects) {
            table += BigEndian(bytes.size(), offsetSize);
            bytes += object;
        }
        const std::size_t tableOffset = bytes.size() + tableShift;
        return bytes + table + std::string(6, '\0') + BigEndian(offsetSize, 1) +
               BigEndian(referenceSize, 1) + BigEndian(objectCount, 8) + BigEndian(topObject, 8) +
               BigEndian(tableOffset, 8);
    }

    std::vector<std::string> objects;
    std::size_t offsetSize = 3;
    std::size_t referenceSize = 1;
    std::uint64_t objectCount;
    std::uint64_t topObject = 0;
    std::uint64_t tableShift = 0;
};

constexpr const char* kRefused = "Unexpected character b at line 1";
constexpr CFOptionFlags kMutabilities[] = {kCFPropertyListImmutable,
                                           kCFPropertyListMutableContainersAndLeaves};

// The list of the objects, with two bytes per reference.
std::string BytesWithWideReferences(const std::vector<std::string>& objects) {
    BinaryList list(objects);
    list.referenceSize = 2;
    return list.Bytes();
}

// The body of the XML for the list that is read from the objects, or the error.
std::string WriteBinary(const std::vector<std::string>& objects) {
    const ReadResult result = ReadList(BinaryList(objects).Bytes());
    return result.list ? WriteBody(result.list.Get()) : result.error;
}

// Objects

TEST(BinaryList, HandWrittenDictionaryIsRead) {
    const std::string bytes = "bplist00\xD1\x01\x02\x5C"
                              "Changer GUID"
                              "\x13\x12\x34\x56\x78\x9A\xBC\xDE\xF0\x08\x0B\x18"s +
                              BigEndian(0x101, 8) + BigEndian(3, 8) + BigEndian(0, 8) +
                              BigEndian(0x21, 8);
    const ReadResult result = ReadList(bytes);
    ASSERT_TRUE(result.list);
    EXPECT_EQ(WriteBody(result.list.Get()),
              "<dict>\n\t<key>Changer GUID</key>\n\t<integer>1311768467463790320</integer>\n"
              "</dict>\n");
}

struct Scalar {
    const char* name;
    std::string object;
    const char* body; // of its XML

    friend void PrintTo(const Scalar& scalar, std::ostream* out) {
        *out << scalar.name;
    }
};

class BinaryScalar : public testing::TestWithParam<Scalar> {};

TEST_P(BinaryScalar, IsRead) {
    EXPECT_EQ(WriteBinary({GetParam().object}), GetParam().body);
}

INSTANTIATE_TEST_SUITE_P(
    , BinaryScalar,
    testing::ValuesIn(std::vector<Scalar>{
        {"Integer8", "\x10\xFF", "<integer>255</integer>\n"},
        {"Integer16", "\x11\xFF\xFF", "<integer>65535</integer>\n"},
        {"Integer32", "\x12\xFF\xFF\xFF\xFF", "<integer>4294967295</integer>\n"},
        {"Integer64IsSigned", "\x13" + BigEndian(~0ULL, 8), "<integer>-1</integer>\n"},
        {"Integer128", Integer128(0, 5), "<integer>5</integer>\n"},
        {"Integer128Unsigned", Integer128(0, ~0ULL), "<integer>18446744073709551615</integer>\n"},
        {"Integer128Negative", Integer128(~0ULL, ~0ULL), "<integer>-1</integer>\n"},
        {"Integer128TooLargeGivesLowerHalf", Integer128(1, 5), "<integer>5</integer>\n"},
        {"Integer128LowerHalfIsSigned", Integer128(1, ~0ULL), "<integer>-1</integer>\n"},
        {"Integer128TooSmallGivesLowerHalf", Integer128(~0ULL, 0), "<integer>0</integer>\n"},
        {"False", "\x08", "<false/>\n"},
        {"True", "\x09", "<true/>\n"},
        {"Real32", "\x22\x3F\xC0\x00\x00"s, "<real>1.5</real>\n"},
        {"Real64", "\x23\xBF\xF8" + std::string(6, '\0'), "<real>-1.5</real>\n"},
        {"Date", "\x33" + std::string(8, '\0'), "<date>2001-01-01T00:00:00Z</date>\n"},
        {"Data", "\x43\x01\x02\x03", "<data>\nAQID\n</data>\n"},
        {"EmptyData", "\x40", "<data>\n</data>\n"},
        {"EmptyString", "\x50", "<string></string>\n"},
        {"String", "\x52xy", "<string>xy</string>\n"},
        {"StringOfCount8", "\x5F\x10\x01z", "<string>z</string>\n"},
        {"LongString", "\x5F\x10\x10ghijklmnopqrstuv", "<string>ghijklmnopqrstuv</string>\n"},
        {"StringOfCount16", "\x5F\x11" + BigEndian(1, 2) + "a", "<string>a</string>\n"},
        {"StringOfCount32", "\x5F\x12" + BigEndian(1, 4) + "a", "<string>a</string>\n"},
        {"StringOfCount64", "\x5F\x13" + BigEndian(1, 8) + "a", "<string>a</string>\n"},
        {"StringOfByte80IsLatin1", "\x51\x80", "<string>\u0080</string>\n"},
        {"StringIsLatin1", "\x54z\x80\xE9\xFF", "<string>z\u0080\u00E9\u00FF</string>\n"},
        {"Utf16String", "\x63\x00\xE9\xD8\x3D\xDE\x00"s, "<string>\u00E9\U0001F600</string>\n"},
    }),
    [](const auto& test) { return test.param.name; });

TEST(BinaryList, IntegersOfSixteenAndOfEightBytesShareTheirValues) {
    for (const std::uint64_t value : {0ULL, 1ULL, ~0ULL >> 1})
        EXPECT_EQ(ReadList(BinaryList({Integer128(0, value)}).Bytes()).list.Get(),
                  ReadList(BinaryList({"\x13" + BigEndian(value, 8)}).Bytes()).list.Get());
}

TEST(BinaryList, MalformedAndUnknownObjectsAreRefused) {
    const std::string refused[] = {
        "",                                    // no byte
        "\x0F",                                // fill byte
        "\x20\x00"s,                           // real of one byte
        "\x32" + std::string(4, '\0'),         // date of four bytes
        "\x32" + std::string(8, '\0'),         // date of four bytes and more
        "\x33\x7F\xF8" + std::string(6, '\0'), // not a number
        "\x33\x7F\xE0" + std::string(6, '\0'), // beyond the calendar
        "\x61\xD8\x00"s,                       // unpaired surrogate
        "\x81\x01",                            // identifier cut by one byte
        "\xC1\x00"s,                           // set that contains itself
        "\xC1\x07",                            // set of a missing object
        "\x01",                                // unknown types
        "\x70",
        "\x90",
        "\x15" + std::string(32, '\0'), // integer of 32 bytes
        "\xE0",
        "\xF0",
        "\x5F",                              // no count
        "\x5F\x50",                          // count that is a string
        "\x5F\x14" + BigEndian(1, 16) + "a", // count of 16 bytes
        "\x5F\x0F" + std::string(32767, '\0') + "\x01" + std::string(32768, 'a'),
        "\x5F\x13" + BigEndian(~0ULL, 8),      // count beyond the file
        "\x6F\x13" + BigEndian(1ULL << 63, 8), // count that overflows with its size
        "\xDF\x13" + BigEndian(1ULL << 63, 8),
        "\x52y", // cut
        "\x13" + BigEndian(0, 7),
    };
    for (const std::string& object : refused)
        EXPECT_EQ(WriteBinary({object}), kRefused) << testing::PrintToString(object);
}

TEST(BinaryList, ContainersWithWideReferencesAreRead) {
    for (const std::size_t size : {std::size_t{5}, std::size_t{8}}) {
        BinaryList list({"\xA2" + BigEndian(1, size) + BigEndian(2, size),
                         "\xD1" + BigEndian(3, size) + BigEndian(2, size), "\x09", "\x51k"});
        list.referenceSize = size;
        list.offsetSize = 8;
        const ReadResult result = ReadList(list.Bytes());
        ASSERT_TRUE(result.list) << size << ": " << result.error;
        EXPECT_EQ(WriteBody(result.list.Get()), "<array>\n\t<dict>\n\t\t<key>k</key>\n\t\t<true/>\n"
                                                "\t</dict>\n\t<true/>\n</array>\n");
    }
}

TEST(BinaryList, KeyIsLatin1) {
    EXPECT_EQ(WriteBinary({"\xD1\x01\x02", "\x51\xE9", "\x09"}),
              "<dict>\n\t<key>\u00E9</key>\n\t<true/>\n</dict>\n");
}

TEST(BinaryList, FirstOfEqualKeysCounts) {
    EXPECT_EQ(WriteBinary({"\xD2\x01\x01\x02\x03", "\x51k", "\x08", "\x09"}),
              "<dict>\n\t<key>k</key>\n\t<false/>\n</dict>\n");
    EXPECT_EQ(WriteBinary(
                  {"\xD3\x01\x02\x03\x04\x05\x05", "\x51k", "\x51j", "\x61\x00k"s, "\x08", "\x09"}),
              "<dict>\n\t<key>j</key>\n\t<true/>\n\t<key>k</key>\n\t<false/>\n</dict>\n");
}

TEST(BinaryList, FirstOfManyEqualKeysCounts) {
    std::string dictionary = "\xDF\x10\x64" + std::string(100, '\x01');
    std::vector<std::string> objects = {"", "\x51k"};
    for (char i = 0; i < 100; ++i) {
        dictionary += static_cast<char>(i + 2);
        objects.push_back({'\x10', i});
    }
    objects[0] = dictionary;
    EXPECT_EQ(WriteBinary(objects), "<dict>\n\t<key>k</key>\n\t<integer>0</integer>\n</dict>\n");
}

TEST(BinaryList, ObjectsOfArchivesAreNullAndTheMembersBesideThemAreRead) {
    const std::string objects[] = {
        "\x00"s,                          // null
        "\x80\x01",                       // identifier
        "\x8F" + std::string(16, '\x01'), // the longest one
        "\xC0",                           // set
        "\xC2\x02\x02",
        "\xB1\x02", // ordered set
    };
    for (const std::string& object : objects) {
        for (const CFOptionFlags mutability : kMutabilities) {
            SCOPED_TRACE(testing::PrintToString(object));
            const BinaryList list({"\xA2\x01\x02", object, "\x51k"});
            const ReadResult result = ReadList(list.Bytes(), mutability);
            ASSERT_TRUE(result.list) << result.error;
            const auto array = static_cast<CFArrayRef>(result.list.Get());
            ASSERT_EQ(CFArrayGetCount(array), 2);
            EXPECT_EQ(CFArrayGetValueAtIndex(array, 0), kCFNull);
            EXPECT_TRUE(CFEqual(CFArrayGetValueAtIndex(array, 1), CFSTR("k")));
        }
    }
}

TEST(BinaryList, PairsBesideKeysThatAreNoStringsAreRead) {
    const std::string keys[] = {"\x09",     "\x10\x01", "\xA0",
                                "\xD0",     "\x00"s,    "\x80\x01",
                                "\xC1\x02", "\x40",     "\x23\x3F\xF0" + std::string(6, '\0'),
                                "\xA1\x02"};
    for (const std::string& key : keys) {
        for (const CFOptionFlags mutability : kMutabilities) {
            SCOPED_TRACE(testing::PrintToString(key));
            const BinaryList list(
                {"\xD4\x01\x02\x01\x05\x03\x04\x03\x03", key, "\x51k", "\x08", "\x09", "\x51j"});
            const ReadResult result = ReadList(list.Bytes(), mutability);
            ASSERT_TRUE(result.list) << result.error;
            const auto dictionary = static_cast<CFDictionaryRef>(result.list.Get());
            EXPECT_EQ(CFDictionaryGetValue(dictionary, CFSTR("k")), kCFBooleanTrue);
            EXPECT_EQ(CFDictionaryGetValue(dictionary, CFSTR("j")), kCFBooleanFalse);
        }
    }
}

// The trailer

TEST(BinaryList, WrongTrailersAreRefused) {
    const BinaryList good({"\x09"});
    ASSERT_TRUE(ReadList(good.Bytes()).list);
    const auto refused = [&](auto falsify) {
        BinaryList list = good;
        falsify(list);
        EXPECT_EQ(ReadList(list.Bytes()).error, kRefused);
    };
    refused([](BinaryList& list) { list.objectCount = 0; });
    refused([](BinaryList& list) { list.objectCount = 2; });
    refused([](BinaryList& list) { list.objectCount = ~0ULL; });
    refused([](BinaryList& list) { list.objectCount = 0x5555555555555556; }); // times 3: 2
    refused([](BinaryList& list) { list.objects.push_back("\x08"); }); // more offsets than objects
    refused([](BinaryList& list) { list.topObject = 1; });
    refused([](BinaryList& list) { list.topObject = ~0ULL; });
    refused([](BinaryList& list) { list.offsetSize = 0; });
    refused([](BinaryList& list) { list.offsetSize = 9; });
    refused([](BinaryList& list) { list.referenceSize = 0; });
    refused([](BinaryList& list) { list.referenceSize = 9; });
    refused([](BinaryList& list) { list.tableShift = 1000; });
    refused([](BinaryList& list) { list.tableShift = ~0ULL - 3; });
    refused([](BinaryList& list) { list.tableShift = 0 - std::uint64_t{9}; });
    refused([](BinaryList& list) { // offsets as many as make the table end inside the trailer
        list.tableShift = 4;
        list.objectCount = 0x5555555555555555;
    });
}

TEST(BinaryList, TrailerNamesTheTopObject) {
    BinaryList list({});
    for (list.objectCount = 0; list.objectCount < 300; ++list.objectCount)
        list.objects.push_back("\x11" + BigEndian(list.objectCount, 2));
    for (const std::uint64_t top : {0U, 1U, 2U, 257U, 299U}) {
        list.topObject = top;
        EXPECT_EQ(WriteBody(ReadList(list.Bytes()).list.Get()),
                  "<integer>" + std::to_string(top) + "</integer>\n");
    }
}

TEST(BinaryList, OffsetsOutsideOfTheObjectsAreRefused) {
    for (const std::uint64_t offset : {0ULL, 7ULL, 9ULL, 1000ULL, ~0ULL}) {
        BinaryList list({"\x09"});
        list.offsetSize = 8;
        std::string bytes = list.Bytes();
        bytes.replace(9, 8, BigEndian(offset, 8));
        EXPECT_EQ(ReadList(bytes).error, kRefused) << offset;
    }
}

TEST(BinaryList, OffsetsTooNarrowForTheFileAreRefused) {
    BinaryList list({"\x5F\x11\x01\x00"s + std::string(256, 'a')});
    list.offsetSize = 1;
    EXPECT_EQ(ReadList(list.Bytes()).error, kRefused);
    list.offsetSize = 2;
    EXPECT_TRUE(ReadList(list.Bytes()).list);
}

TEST(BinaryList, BytesBetweenOffsetsAndTrailerAreRefused) {
    const std::string bytes = BinaryList({"\x09"}).Bytes();
    for (const std::size_t count : {1U, 2U, 3U, 6U}) {
        std::string longer = bytes;
        longer.insert(bytes.size() - 32, count, '\0');
        EXPECT_EQ(ReadList(longer).error, kRefused) << count;
    }
}

TEST(BinaryList, OtherVersionsAreRefused) {
    std::string bytes = BinaryList({"\x09"}).Bytes();
    bytes[7] = '1';
    EXPECT_EQ(ReadList(bytes).error, kRefused);
}

// Untrusted lists. The work is counted, not timed: each reference of an array and each pair of a
// dictionary adds one value.

std::size_t CountWork(const std::string& bytes) {
    ResetAddedValues();
    ReadList(bytes);
    return CountAddedValues();
}

TEST(BinaryList, ListsThatContainThemselvesAreRefused) {
    EXPECT_EQ(WriteBinary({"\xA1\x00"s}), kRefused);
    EXPECT_EQ(WriteBinary({"\xA1\x01", "\xA1\x00"s}), kRefused);
    EXPECT_EQ(WriteBinary({"\xD1\x01\x00"s, "\x51k"}), kRefused);
    EXPECT_EQ(WriteBinary({"\xD1\x00\x01"s, "\x51k"}), kRefused);
}

// Each level refers twice to the next one: written out, the list would have 2^100 elements.
std::vector<std::string> SharedReferenceBomb() {
    std::vector<std::string> objects;
    for (char i = 0; i < 100; ++i)
        objects.push_back({'\xA2', static_cast<char>(i + 1), static_cast<char>(i + 1)});
    objects.push_back("\x09");
    return objects;
}

TEST(BinaryList, EachObjectOfASharedReferenceBombIsConvertedOnce) {
    const BinaryList bomb(SharedReferenceBomb());
    EXPECT_EQ(CountWork(bomb.Bytes()), 200U);
    for (const CFOptionFlags mutability : kMutabilities) {
        const ReadResult result = ReadList(bomb.Bytes(), mutability);
        ASSERT_TRUE(result.list);
        EXPECT_EQ(CFArrayGetCount(static_cast<CFArrayRef>(result.list.Get())), 2);
        EXPECT_EQ(XmlOf(result.list.Get()), "");
    }
}

// The budget for converted bytes is the file's size: no budget remains for a second conversion.
TEST(BinaryList, SharedLeafIsConvertedOnce) {
    const BinaryList list(
        {"\xAF\x10\x80" + std::string(128, '\x01'), "\x5F\x10\x40" + std::string(64, 'a')});
    EXPECT_TRUE(ReadList(list.Bytes()).list);
    EXPECT_EQ(CountWork(list.Bytes()), 128U);
}

// Arrays of 255 references, each beginning three bytes behind the one before. All references are to
// the same boolean.
TEST(BinaryList, OverlappingObjectsCauseNoMoreWorkThanTheFileHasBytes) {
    constexpr std::size_t kArrays = 15;
    constexpr std::size_t kObjects = 256;
    std::string bytes = "bplist00\xAF\x10\x0F";
    for (std::size_t i = 1; i <= kArrays; ++i)
        bytes += static_cast<char>(i);
    std::string table = BigEndian(8, 2);
    for (std::size_t i = 0; i < kArrays; ++i) {
        table += BigEndian(bytes.size(), 2);
        bytes += "\xAF\x10\xFF";
    }
    bytes += std::string(255, '\x10');
    for (std::size_t i = 1 + kArrays; i < kObjects; ++i)
        table += BigEndian(bytes.size(), 2);
    bytes += '\x09';
    const std::size_t tableOffset = bytes.size();
    bytes += table + std::string(6, '\0') + "\x02\x01" + BigEndian(kObjects, 8) + BigEndian(0, 8) +
             BigEndian(tableOffset, 8);
    EXPECT_GT(CountWork(bytes), 0U);
    EXPECT_LE(CountWork(bytes), bytes.size());
    EXPECT_EQ(ReadList(bytes).error, kRefused);
}

TEST(BinaryList, TwoObjectsAtTheSameOffsetAreRefused) {
    const BinaryList list({"\xA2\x01\x02", "\x51k", "\x09"});
    std::string bytes = list.Bytes();
    ASSERT_TRUE(ReadList(bytes).list);
    const std::size_t table = bytes.size() - 32 - 9;
    bytes.replace(table + 6, 3, bytes.substr(table + 3, 3));
    EXPECT_EQ(ReadList(bytes).error, kRefused);
}

// An array of nested arrays, the innermost first: converting each in turn never recurses deeply,
// yet the last array has `levels` levels.
std::string TowerFromBelow(std::size_t levels) {
    std::string all = "\xAF\x11" + BigEndian(levels, 2);
    std::vector<std::string> objects = {"", "\xA0"};
    for (std::size_t i = 1; i <= levels; ++i) {
        all += BigEndian(i, 2);
        objects.push_back("\xA1" + BigEndian(i, 2));
    }
    objects[0] = all;
    return BytesWithWideReferences(objects);
}

TEST(BinaryList, ArraysConvertedFromTheInnermostNestTo511Levels) {
    EXPECT_TRUE(ReadList(TowerFromBelow(511)).list);
    EXPECT_EQ(ReadList(TowerFromBelow(512)).error, kRefused);
    EXPECT_EQ(ReadList(TowerFromBelow(60000)).error, kRefused);
}

// Lists of that many levels, the outermost first: nested arrays, arrays and sets in turn, keys, and
// values. Each array and dictionary adds the string behind the last level before its member.
std::vector<std::string> Towers(std::size_t levels) {
    const std::string leaf = BigEndian(levels, 2);
    const auto array = [&](std::size_t member) { return "\xA2" + leaf + BigEndian(member, 2); };
    const auto set = [&](std::size_t member) {
        return member % 2 == 0 ? array(member) : "\xC1" + BigEndian(member, 2);
    };
    const auto key = [&](std::size_t member) {
        return "\xD2" + BigEndian(member, 2) + leaf + leaf + leaf;
    };
    const auto value = [&](std::size_t member) {
        return "\xD2" + leaf + leaf + BigEndian(member, 2) + leaf;
    };
    std::vector<std::string> towers;
    for (const auto& container :
         std::vector<std::function<std::string(std::size_t)>>{array, set, key, value}) {
        std::vector<std::string> objects = {array(1)}; // a set is refused where a list begins
        for (std::size_t i = 2; i < levels; ++i)
            objects.push_back(container(i));
        objects.push_back("\xA0");
        objects.push_back("\x51k");
        towers.push_back(BytesWithWideReferences(objects));
    }
    return towers;
}

TEST(BinaryList, ContainersOfEveryKindNestTo512Levels) {
    for (const std::string& tower : Towers(512))
        EXPECT_TRUE(ReadList(tower).list) << tower.substr(0, 20);
    for (const std::string& tower : Towers(513))
        EXPECT_EQ(ReadList(tower).error, kRefused) << tower.substr(0, 20);
}

TEST(BinaryList, ScalarsInTheLastLevelAreNoLevel) {
    const std::string objects[] = {"\x00"s,
                                   "\x09",
                                   "\x10\x05",
                                   "\x22\x3F\xC0\x00\x00"s,
                                   "\x33" + std::string(8, '\0'),
                                   "\x80\x01",
                                   "\x41\x01",
                                   "\x51k",
                                   "\x61\x00k"s};
    for (const std::string& object : objects) {
        std::vector<std::string> tower;
        for (std::size_t i = 1; i <= 512; ++i)
            tower.push_back("\xA1" + BigEndian(i, 2));
        tower.push_back(object);
        EXPECT_TRUE(ReadList(BytesWithWideReferences(tower)).list)
            << testing::PrintToString(object);
    }
}

TEST(BinaryList, WorkForATowerThatIsTooHighEndsAtTheMaximumLevel) {
    for (const std::string& tower : Towers(5000)) {
        const std::size_t work = CountWork(tower);
        EXPECT_GE(work, 256U) << tower.substr(0, 20);
        EXPECT_LE(work, 514U) << tower.substr(0, 20);
    }
}

// A list with an object of every type.
std::string ListOfEveryType() {
    return BinaryList({"\xD2\x01\x02\x03\x04", "\x51k", "\x61\x00\xE9"s,
                       "\xA8\x05\x06\x07\x08\x09\x0A\x0B\x05", "\x43\x01\x02\x03", "\x10\x05",
                       "\x13" + BigEndian(~0ULL, 8), "\x22\x3F\xC0\x00\x00"s,
                       "\x23\xBF\xF8" + std::string(6, '\0'), "\x33" + std::string(8, '\0'), "\x09",
                       Integer128(0, ~0ULL)})
        .Bytes();
}

TEST(BinaryList, EveryPrefixOfAListIsRefused) {
    const std::string bytes = ListOfEveryType();
    ASSERT_TRUE(ReadList(bytes).list);
    for (std::size_t length = 0; length < bytes.size(); ++length) {
        const ReadResult result = ReadList(bytes.substr(0, length));
        EXPECT_FALSE(result.list) << length;
        EXPECT_NE(result.error, "") << length;
    }
}

TEST(BinaryList, AnyChangedByteGivesAListOrTheError) {
    const std::string bytes = ListOfEveryType();
    for (std::size_t i = 8; i < bytes.size(); ++i) {
        for (int value = 0; value < 256; ++value) {
            std::string changed = bytes;
            changed[i] = static_cast<char>(value);
            const ReadResult result = ReadList(changed);
            EXPECT_NE(static_cast<bool>(result.list), result.error == kRefused) << i;
        }
    }
}

} // namespace
