/* The bytes that the XML writer gives. */

#include "Lists.h"
#include "objects/SharedValues.h"

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

template<typename T>
CFOwned<CFNumberRef> MakeNumber(CFNumberType type, T value) {
    return CFOwned(CFNumberCreate(kCFAllocatorDefault, type, &value));
}

CFOwned<CFMutableArrayRef> MakeArray(const std::vector<CFTypeRef>& members) {
    CFOwned array(CFArrayCreateMutable(kCFAllocatorDefault, 0, &kCFTypeArrayCallBacks));
    for (CFTypeRef member : members)
        CFArrayAppendValue(array.Get(), member);
    return array;
}

CFOwned<CFMutableDictionaryRef>
MakeDictionary(const std::vector<std::pair<CFTypeRef, CFTypeRef>>& pairs) {
    CFOwned dictionary(CFDictionaryCreateMutable(
        kCFAllocatorDefault, 0, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks));
    for (const auto& [key, value] : pairs)
        CFDictionarySetValue(dictionary.Get(), key, value);
    return dictionary;
}

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
    const CFOwned empty = MakeArray({});
    const CFOwned none = MakeDictionary({});
    const CFOwned inner = MakeDictionary({{CFSTR("k"), kCFBooleanFalse}, {CFSTR(""), CFSTR("")}});
    const CFOwned outer = MakeArray({inner.Get(), empty.Get(), none.Get()});
    EXPECT_EQ(WriteBody(outer.Get()), "<array>\n\t<dict>\n\t\t<key></key>\n\t\t<string></string>\n"
                                      "\t\t<key>k</key>\n\t\t<false/>\n\t</dict>\n\t<array/>\n"
                                      "\t<dict/>\n</array>\n");
}

TEST(XmlWriter, SortsKeysByUtf16Units) {
    const std::vector<UniChar> sorted[] = {
        {},    {'1'},           {'1', '0'},       {'2'},      {'A'}, {'Z'},
        {'a'}, {'a', ' ', 'b'}, {'a', '_', 'b'},  {'a', 'b'}, {'b'}, {'e', 0x301},
        {'z'}, {0xE9},          {0xD83D, 0xDE00}, {0xFF21},
    };
    std::string expected = "<dict>\n";
    std::vector<CFOwned<CFStringRef>> keys;
    std::vector<std::pair<CFTypeRef, CFTypeRef>> pairs;
    for (const auto& units : sorted) {
        keys.push_back(MakeUnits(units));
        expected += "\t<key>" + TextOf(keys.back().Get()) + "</key>\n\t<true/>\n";
        pairs.insert(pairs.begin(), {keys.back().Get(), kCFBooleanTrue});
    }
    EXPECT_EQ(WriteBody(MakeDictionary(pairs).Get()), expected + "</dict>\n");
}

TEST(XmlWriter, WritesIntegersSigned) {
    EXPECT_EQ(WriteBody(MakeNumber(kCFNumberSInt64Type, SInt64{-5}).Get()),
              "<integer>-5</integer>\n");
    EXPECT_EQ(WriteBody(MakeNumber(kCFNumberSInt64Type, UInt64{0x8123456789ABCDEF}).Get()),
              "<integer>-9141386507638288913</integer>\n");
    EXPECT_EQ(WriteBody(MakeNumber(kCFNumberSInt16Type, UInt16{65535}).Get()),
              "<integer>-1</integer>\n");
    EXPECT_EQ(WriteBody(MakeNumber(kCFNumberSInt32Type, SInt32{70000}).Get()),
              "<integer>70000</integer>\n");
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
        EXPECT_EQ(WriteBody(MakeNumber(kCFNumberFloat64Type, value).Get()),
                  "<real>" + std::string(text) + "</real>\n");
}

TEST(XmlWriter, EscapesOnlyWhatMustBe) {
    const CFOwned text = Text("&<>\"'\t\n\r\x01\x7F\xC2\x85");
    EXPECT_EQ(WriteBody(text.Get()), "<string>&amp;&lt;&gt;\"'\t\n\r\x01\x7F\xC2\x85</string>\n");
    const CFOwned zero = MakeUnits({'a', 0, 'b'});
    EXPECT_EQ(WriteBody(zero.Get()), std::string("<string>a\0b</string>\n", 21));
    const CFOwned dictionary = MakeDictionary({{CFSTR("a&b"), kCFBooleanTrue}});
    EXPECT_EQ(WriteBody(dictionary.Get()), "<dict>\n\t<key>a&amp;b</key>\n\t<true/>\n</dict>\n");
}

TEST(XmlWriter, DropsARunFromItsUnpairedSurrogateOn) {
    EXPECT_EQ(WriteBody(MakeUnits({'a', 0xD800, 'b'}).Get()), "<string>a</string>\n");
    EXPECT_EQ(WriteBody(MakeUnits({'a', 0xDC00, 'b', '&', 'c'}).Get()),
              "<string>a&amp;c</string>\n");
    EXPECT_EQ(WriteBody(MakeUnits({0xD7FF, 0xDFFF}).Get()), "<string>\xED\x9F\xBF</string>\n");
    EXPECT_EQ(WriteBody(MakeUnits({0xD83D, 0xDE00}).Get()), "<string>\xF0\x9F\x98\x80</string>\n");
}

// The base64 lines of 100 bytes, at that depth.
std::vector<std::string> DataLines(int depth) {
    const CFOwned data = Bytes(std::string(100, 'M'));
    CFOwned<CFTypeRef> value(CFRetain(data.Get()));
    for (int i = 0; i < depth; ++i)
        value = CFOwned<CFTypeRef>(CFRetain(MakeArray({value.Get()}).Get()));
    const std::string body = WriteBody(value.Get());
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
    EXPECT_EQ(DataLines(0).at(1),
              std::string("TU1NTU1NTU1NTU1NTU1NTU1NTU1NTU1NTU1NTU1NTU1NTU1NTU1NTU1N"
                          "TQ=="));
}

TEST(XmlWriter, PadsDataAndWritesEmptyData) {
    EXPECT_EQ(WriteBody(Bytes("M").Get()), "<data>\nTQ==\n</data>\n");
    EXPECT_EQ(WriteBody(Bytes("Ma").Get()), "<data>\nTWE=\n</data>\n");
    EXPECT_EQ(WriteBody(Bytes("\xFB\xFF\xBF").Get()), "<data>\n+/+/\n</data>\n");
    const CFOwned empty = Bytes("");
    EXPECT_EQ(WriteBody(MakeArray({empty.Get()}).Get()),
              "<array>\n\t<data>\n\t</data>\n</array>\n");
}

TEST(XmlWriter, GivesNothingForWhatIsNoPropertyList) {
    const CFOwned timer(CFRunLoopTimerCreate(
        kCFAllocatorDefault, 0, 0, 0, 0, [](CFRunLoopTimerRef, void*) {}, nullptr));
    const CFOwned foreignMember = MakeArray({CFSTR("a"), timer.Get()});
    const CFOwned null = MakeDictionary({{CFSTR("a"), kCFNull}});
    const CFOwned numberKey = MakeDictionary({{kCFBooleanTrue, CFSTR("a")}});
    EXPECT_EQ(XmlOf(nullptr), "");
    EXPECT_EQ(XmlOf(timer.Get()), "");
    EXPECT_EQ(XmlOf(foreignMember.Get()), "");
    EXPECT_EQ(XmlOf(null.Get()), "");
    EXPECT_EQ(XmlOf(numberKey.Get()), "");
}

CFOwned<CFMutableArrayRef> NestedArrays(int levels) {
    CFOwned array = MakeArray({});
    for (int i = 1; i < levels; ++i)
        array = MakeArray({array.Get()});
    return array;
}

CFOwned<CFMutableDictionaryRef> NestedDictionaries(int levels) {
    CFOwned dictionary = MakeDictionary({});
    for (int i = 1; i < levels; ++i)
        dictionary = MakeDictionary({{CFSTR("a"), dictionary.Get()}});
    return dictionary;
}

TEST(XmlWriter, WritesWhatCanBeReadAgainAndNothingDeeper) {
    const std::string deepest = XmlOf(NestedArrays(512).Get());
    EXPECT_TRUE(ReadList(deepest).list);
    EXPECT_EQ(XmlOf(NestedArrays(513).Get()).size(), 0U);
    EXPECT_EQ(XmlOf(NestedArrays(100000).Get()).size(), 0U);
}

TEST(XmlWriter, WritesNoDictionariesThatAreNestedTooDeep) {
    EXPECT_TRUE(ReadList(XmlOf(NestedDictionaries(512).Get())).list);
    EXPECT_EQ(XmlOf(NestedDictionaries(513).Get()), "");
    EXPECT_EQ(XmlOf(MakeArray({NestedDictionaries(512).Get()}).Get()), "");
}

// A binary list may hold any number of seconds.
TEST(XmlWriter, WritesNoDateThatNoCalendarHas) {
    constexpr double kInfinity = std::numeric_limits<double>::infinity();
    for (const double time : {1e300, -1e300, kInfinity, -kInfinity, std::nan("")}) {
        const CFOwned<CFTypeRef> date(cf::SharedDate(time));
        EXPECT_EQ(XmlOf(date.Get()), "") << time;
        EXPECT_EQ(XmlOf(MakeArray({date.Get()}).Get()), "") << time;
    }
}

TEST(XmlWriter, EndsWithListsThatContainThemselves) {
    const CFOwned array = MakeArray({});
    CFArrayAppendValue(array.Get(), array.Get());
    EXPECT_EQ(XmlOf(array.Get()), "");
    CFArrayRemoveValueAtIndex(array.Get(), 0);
}

TEST(XmlWriter, WritesUpTo64MiB) {
    const std::size_t longest = (std::size_t{64} << 20) - XmlOf(CFSTR("")).size();
    const std::string text(longest, 'a');
    EXPECT_EQ(XmlOf(Text(text.c_str()).Get()).size(), std::size_t{64} << 20);
    EXPECT_EQ(XmlOf(Text((text + 'a').c_str()).Get()).size(), 0U);
}

// Two references a level to the next one: 2^100 elements in all.
TEST(XmlWriter, EndsWithListsThatGrowWithoutBound) {
    CFOwned array = MakeArray({});
    for (int i = 0; i < 100; ++i)
        array = MakeArray({array.Get(), array.Get()});
    EXPECT_EQ(XmlOf(array.Get()), "");
}

} // namespace
