/* The bytes that the XML writer writes. */

#include "Lists.h"
#include "objects/SharedValues.h"
#include "support/PropertyLists.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <string>
#include <utility>
#include <vector>

namespace {

CFOwned<CFStringRef> MakeUnits(const std::vector<UniChar>& units) {
    return CFOwned(CFStringCreateWithCharacters(kCFAllocatorDefault, units.data(),
                                                static_cast<CFIndex>(units.size())));
}

TEST(XmlWriter, WritesTheWholeDocument) {
    EXPECT_EQ(XmlOf(kCFBooleanTrue), "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
                                     "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
                                     "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
                                     "<plist version=\"1.0\">\n<true/>\n</plist>\n");
}

TEST(XmlWriter, IndentsContainersAndWritesEmptyOnes) {
    const CFOwned list = Array({Dictionary({{"k", false}, {"", ""}}), Array(), Dictionary()});
    EXPECT_EQ(WriteBody(list), "<array>\n\t<dict>\n\t\t<key></key>\n\t\t<string></string>\n"
                               "\t\t<key>k</key>\n\t\t<false/>\n\t</dict>\n\t<array/>\n"
                               "\t<dict/>\n</array>\n");
}

TEST(XmlWriter, SortsKeysByUtf16Units) {
    const CFOwned dictionary = NewDictionary();
    std::string expected;
    for (const std::string key : {"", "1", "10", "2", "A", "Z", "a", "a b", "a_b", "ab", "b",
                                  "e\u0301", "z", "\u00E9", "\U0001F600", "\uFF21"}) {
        CFDictionarySetValue(dictionary, Text(key), kCFBooleanTrue);
        expected += "\t<key>" + key + "</key>\n\t<true/>\n";
    }
    EXPECT_EQ(WriteBody(dictionary), "<dict>\n" + expected + "</dict>\n");
}

TEST(XmlWriter, WritesIntegersSigned) {
    const auto write = [](CFNumberType type, auto value) {
        return WriteBody(CFOwned(CFNumberCreate(nullptr, type, &value)));
    };
    EXPECT_EQ(write(kCFNumberSInt64Type, SInt64{-5}), "<integer>-5</integer>\n");
    EXPECT_EQ(write(kCFNumberSInt64Type, UInt64{0x8123456789ABCDEF}),
              "<integer>-9141386507638288913</integer>\n");
    EXPECT_EQ(write(kCFNumberSInt16Type, UInt16{65535}), "<integer>-1</integer>\n");
    EXPECT_EQ(write(kCFNumberSInt32Type, SInt32{70000}), "<integer>70000</integer>\n");
}

TEST(XmlWriter, WritesRealsWithSeventeenDigits) {
    const std::pair<double, const char*> reals[] = {
        {1.5, "1.5"},
        {1.0, "1"},
        {0.0, "0.0"},
        {-0.0, "0.0"},
        {0.1, "0.10000000000000001"},
        {1e100, "1e+100"},
        {0.1F, "0.10000000149011612"},
        {std::numeric_limits<double>::infinity(), "+infinity"},
        {-std::numeric_limits<double>::infinity(), "-infinity"},
        {std::nan(""), "nan"},
    };
    for (const auto& [value, text] : reals)
        EXPECT_EQ(WriteBody(Real(value)), "<real>" + std::string(text) + "</real>\n");
}

TEST(XmlWriter, EscapesOnlyAmpersandAndAngleBrackets) {
    EXPECT_EQ(WriteBody(Text("&<>\"'\t\n\r\x01\x7F\xC2\x85")),
              "<string>&amp;&lt;&gt;\"'\t\n\r\x01\x7F\xC2\x85</string>\n");
    EXPECT_EQ(WriteBody(MakeUnits({'a', 0, 'b'})), std::string("<string>a\0b</string>\n", 21));
    EXPECT_EQ(WriteBody(Dictionary({{"a&b", true}})),
              "<dict>\n\t<key>a&amp;b</key>\n\t<true/>\n</dict>\n");
}

TEST(XmlWriter, DropsTextFromAnUnpairedSurrogateToTheNextEscape) {
    EXPECT_EQ(WriteBody(MakeUnits({'a', 0xD800, 'b'})), "<string>a</string>\n");
    EXPECT_EQ(WriteBody(MakeUnits({'a', 0xDC00, 'b', '&', 'c'})), "<string>a&amp;c</string>\n");
    EXPECT_EQ(WriteBody(MakeUnits({0xD7FF, 0xDFFF})), "<string>\xED\x9F\xBF</string>\n");
    EXPECT_EQ(WriteBody(MakeUnits({0xD83D, 0xDE00})), "<string>\xF0\x9F\x98\x80</string>\n");
}

// The base64 lines of 100 bytes inside of `depth` arrays.
std::vector<std::string> DataLines(int depth) {
    CFOwned<CFTypeRef> value = Bytes(std::string(100, 'M'));
    for (int i = 0; i < depth; ++i)
        value = Array({value});
    const std::string body = WriteBody(value);
    const std::size_t begin = body.find("<data>\n") + 7;
    std::string text = body.substr(begin, body.find("</data>") - begin);
    std::vector<std::string> lines;
    for (std::size_t end = text.find('\n'); end != text.npos; end = text.find('\n')) {
        lines.push_back(text.substr(0, end));
        text.erase(0, end + 1);
    }
    EXPECT_EQ(text, std::string(static_cast<std::size_t>(depth), '\t'));
    return lines;
}

TEST(XmlWriter, WrapsDataByItsIndent) {
    EXPECT_EQ(DataLines(0).at(0).size(), 76U);
    EXPECT_EQ(DataLines(1).at(0).size(), 1U + 68U);
    EXPECT_EQ(DataLines(2).at(0).size(), 2U + 60U);
    EXPECT_EQ(DataLines(8).at(0).size(), 8U + 12U);
    EXPECT_EQ(DataLines(9).at(0).size(), 8U + 12U);
    EXPECT_EQ(DataLines(0).at(1), "TU1NTU1NTU1NTU1NTU1NTU1NTU1NTU1NTU1NTU1NTU1NTU1NTU1NTU1NTQ==");
}

TEST(XmlWriter, PadsDataAndWritesEmptyData) {
    EXPECT_EQ(WriteBody(Bytes("M")), "<data>\nTQ==\n</data>\n");
    EXPECT_EQ(WriteBody(Bytes("Ma")), "<data>\nTWE=\n</data>\n");
    EXPECT_EQ(WriteBody(Bytes("\xFB\xFF\xBF")), "<data>\n+/+/\n</data>\n");
    EXPECT_EQ(WriteBody(Array({Bytes("")})), "<array>\n\t<data>\n\t</data>\n</array>\n");
}

TEST(XmlWriter, WritesNothingForObjectsThatAreNoPropertyList) {
    const CFOwned timer(CFRunLoopTimerCreate(
        kCFAllocatorDefault, 0, 0, 0, 0, [](CFRunLoopTimerRef, void*) {}, nullptr));
    const CFOwned numberKey = NewDictionary();
    CFDictionarySetValue(numberKey, kCFBooleanTrue, CFSTR("a"));
    for (const Value& list : {Value(timer), Value(Array({"a", timer})),
                              Value(Dictionary({{"a", Share(kCFNull)}})), Value(numberKey)})
        EXPECT_EQ(XmlOf(list.Get()), "");
    EXPECT_EQ(XmlOf(nullptr), "");
}

CFOwned<CFTypeRef> NestedArrays(int levels) {
    CFOwned<CFTypeRef> array = Array();
    for (int i = 1; i < levels; ++i)
        array = Array({array});
    return array;
}

CFOwned<CFTypeRef> NestedDictionaries(int levels) {
    CFOwned<CFTypeRef> dictionary = Dictionary();
    for (int i = 1; i < levels; ++i)
        dictionary = Dictionary({{"a", dictionary}});
    return dictionary;
}

TEST(XmlWriter, WritesUpTo512LevelsWhichTheReaderAccepts) {
    EXPECT_TRUE(ReadList(XmlOf(NestedArrays(512))).list);
    EXPECT_TRUE(ReadList(XmlOf(NestedDictionaries(512))).list);
    EXPECT_EQ(XmlOf(NestedArrays(513)), "");
    EXPECT_EQ(XmlOf(NestedArrays(100000)), "");
    EXPECT_EQ(XmlOf(NestedDictionaries(513)), "");
    EXPECT_EQ(XmlOf(Array({NestedDictionaries(512)})), "");
}

// The date of a binary list may be any number of seconds.
TEST(XmlWriter, WritesNothingForADateOutsideOfTheCalendar) {
    constexpr double kInfinity = std::numeric_limits<double>::infinity();
    for (const double time : {1e300, -1e300, kInfinity, -kInfinity, std::nan("")}) {
        const CFOwned<CFTypeRef> date(cf::SharedDate(time));
        EXPECT_EQ(XmlOf(date), "") << time;
        EXPECT_EQ(XmlOf(Array({date})), "") << time;
    }
}

TEST(XmlWriter, WritesNothingForAListThatContainsItself) {
    const CFOwned array = Array();
    CFArrayAppendValue(array, array);
    EXPECT_EQ(XmlOf(array), "");
    CFArrayRemoveValueAtIndex(array, 0);
}

TEST(XmlWriter, WritesUpTo64MiB) {
    const std::size_t longest = (std::size_t{64} << 20) - XmlOf(CFSTR("")).size();
    const std::string text(longest, 'a');
    EXPECT_EQ(XmlOf(Text(text)).size(), std::size_t{64} << 20);
    EXPECT_EQ(XmlOf(Text(text + 'a')).size(), 0U);
}

// Each level refers twice to the next one: 2^100 elements in all.
TEST(XmlWriter, WritesNothingForAListThatGrowsExponentially) {
    CFOwned<CFTypeRef> array = Array();
    for (int i = 0; i < 100; ++i)
        array = Array({array, array});
    EXPECT_EQ(XmlOf(array), "");
}

} // namespace
