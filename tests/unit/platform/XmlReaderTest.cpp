/* The XML reader with lists of any content: the values that it creates, malicious lists, lists that
   are cut or changed anywhere, and the bytes around a list. */

#include "Lists.h"
#include "XmlBatches.h"
#include "XmlTexts.h"
#include "plist/XmlNormalizer.h"

#include <gtest/gtest.h>

#include <sys/mman.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <random>
#include <sstream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace {

using namespace std::string_literals;

// Values

SInt64 IntegerIn(CFPropertyListRef list) {
    SInt64 value = 0;
    EXPECT_TRUE(CFNumberGetValue(static_cast<CFNumberRef>(list), kCFNumberSInt64Type, &value));
    return value;
}

CFTypeRef MemberAt(const ReadResult& array, CFIndex index) {
    return CFArrayGetValueAtIndex(static_cast<CFArrayRef>(array.list.Get()), index);
}

// The list as written again, or the error text.
std::string Written(const ReadResult& result) {
    return result.list ? WriteBody(result.list.Get()) : result.error;
}

std::string ReadAndWrite(std::string_view bytes) {
    return Written(ReadList(bytes));
}

TEST(XmlReader, IntegersAboveTheSignedRangeHaveTheSameBitsButAreNotEqual) {
    const ReadResult above = ReadList("<integer>9305357566071262703</integer>");
    const ReadResult negative = ReadList("<integer>-9141386507638288913</integer>");
    EXPECT_EQ(IntegerIn(above.list.Get()), -9141386507638288913);
    EXPECT_EQ(IntegerIn(negative.list.Get()), -9141386507638288913);
    EXPECT_FALSE(CFEqual(above.list.Get(), negative.list.Get()));
}

TEST(XmlReader, SharesEqualImmutableValues) {
    const std::string xml = "<array><dict><key>a</key><string>b</string></dict>"
                            "<dict><key>a</key><string>b</string></dict></array>";
    const ReadResult first = ReadList(xml);
    const ReadResult second = ReadList(xml);
    EXPECT_EQ(MemberAt(first, 0), MemberAt(first, 1));
    EXPECT_EQ(first.list.Get(), second.list.Get());
}

TEST(XmlReader, MutableContainersAreNewAndCanBeChanged) {
    const std::string xml = "<dict><key>a</key><array/></dict>";
    const ReadResult first = ReadList(xml, kCFPropertyListMutableContainers);
    const ReadResult second = ReadList(xml, kCFPropertyListMutableContainers);
    const auto dictionary = static_cast<CFDictionaryRef>(first.list.Get());
    auto* array = static_cast<CFMutableArrayRef>(
        const_cast<void*>(CFDictionaryGetValue(dictionary, CFSTR("a"))));
    CFArrayAppendValue(array, kCFBooleanTrue);
    EXPECT_EQ(CFArrayGetCount(array), 1);
    EXPECT_EQ(WriteBody(second.list.Get()), "<dict>\n\t<key>a</key>\n\t<array/>\n</dict>\n");
}

TEST(XmlReader, FailsWithoutAnErrorTextIfNoneIsRequested) {
    const CFOwned data = Bytes("<foo/>");
    EXPECT_EQ(CFPropertyListCreateFromXMLData(nullptr, data.Get(), 0, nullptr), nullptr);
    EXPECT_EQ(CFPropertyListCreateFromXMLData(nullptr, nullptr, 0, nullptr), nullptr);
}

TEST(XmlReader, RefusesAnotherObjectThanData) {
    CFStringRef text = nullptr;
    auto* string = static_cast<CFDataRef>(static_cast<CFTypeRef>(CFSTR("<true/>")));
    EXPECT_EQ(CFPropertyListCreateFromXMLData(nullptr, string, 0, &text), nullptr);
    const CFOwned error(text);
    EXPECT_EQ(TextOf(text), "Cannot parse a NULL or zero-length data");
}

TEST(XmlReader, LastOfManyEqualKeysWins) {
    std::string xml = "<dict>";
    for (int i = 0; i < 100; ++i)
        xml +=
            "<key>" + std::to_string(i % 20) + "</key><integer>" + std::to_string(i) + "</integer>";
    const ReadResult result = ReadList(xml + "</dict>");
    const auto dictionary = static_cast<CFDictionaryRef>(result.list.Get());
    ASSERT_EQ(CFDictionaryGetCount(dictionary), 20);
    for (int i = 0; i < 20; ++i)
        EXPECT_EQ(IntegerIn(CFDictionaryGetValue(dictionary, Text(std::to_string(i)))), 80 + i);
}

// Many dictionaries with equal keys

std::string Member(const std::string& value) {
    return "<dict><key>name</key><string>" + value + "</string><key>kind</key><true/></dict>";
}

TEST(XmlReader, DictionariesWithEqualKeysAreMembersInTheirOrder) {
    for (const int count : {1, 2, 15, 16, 17, 31, 32, 33, 100}) {
        std::string xml = "<array>";
        for (int i = 0; i < count; ++i)
            xml += Member(std::to_string(i));
        const ReadResult result = ReadList(xml + "</array>");
        ASSERT_EQ(CFArrayGetCount(static_cast<CFArrayRef>(result.list.Get())), count);
        for (int i = 0; i < count; ++i) {
            const auto member = static_cast<CFDictionaryRef>(MemberAt(result, i));
            const auto name = static_cast<CFStringRef>(CFDictionaryGetValue(member, CFSTR("name")));
            ASSERT_EQ(TextOf(name), std::to_string(i));
            ASSERT_EQ(member, ReadList(Member(std::to_string(i))).list.Get());
        }
    }
}

// Members with the same keys as the member before and with others, equal members, nested arrays.
std::string RandomMembers(std::mt19937& random, int depth) {
    std::string xml = "<array>";
    for (auto i = random() % 40; i > 0; --i) {
        const std::string value = std::to_string(random() % 30);
        switch (random() % (depth < 3 ? 20 : 16)) {
        case 0:
            xml += "<dict><key>kind</key><true/></dict>";
            break;
        case 1:
            xml += "<dict/>";
            break;
        case 2:
            xml += "<string>" + value + "</string>";
            break;
        case 3:
            xml += "<dict><key>name</key><true/><key>name</key><false/></dict>";
            break;
        case 16:
        case 17:
            xml += RandomMembers(random, depth + 1);
            break;
        case 18:
        case 19:
            xml += "<dict><key>name</key>" + RandomMembers(random, depth + 1) +
                   "<key>kind</key><true/></dict>";
            break;
        default:
            xml += Member(value);
        }
    }
    return xml + "</array>";
}

// Mutable dictionaries are the reference: the reader creates them one by one.
TEST(XmlReader, DictionariesOfChangingKeysEqualMutableOnes) {
    for (unsigned seed = 0; seed < 300; ++seed) {
        std::mt19937 random(seed);
        const std::string xml = RandomMembers(random, 0);
        const ReadResult immutable = ReadList(xml);
        const ReadResult mutableOne = ReadList(xml, kCFPropertyListMutableContainers);
        ASSERT_TRUE(immutable.list);
        ASSERT_EQ(WriteBody(immutable.list.Get()), WriteBody(mutableOne.list.Get())) << xml;
        ASSERT_TRUE(CFEqual(immutable.list.Get(), mutableOne.list.Get())) << xml;
    }
}

// Malicious, cut and changed lists

TEST(XmlReader, NestsTo512Levels) {
    EXPECT_TRUE(ReadList(Nested(512, "<array>", "</array>")).list);
    EXPECT_TRUE(ReadList("<plist>" + Nested(512, "<array>", "</array>") + "</plist>").list);
}

TEST(XmlReader, RefusesHalfAMillionLevels) {
    const std::string tooDeep = "Too many nested arrays or dictionaries, failing on line 1";
    EXPECT_EQ(ReadList(Nested(500000, "<array>", "</array>")).error, tooDeep);
    EXPECT_EQ(ReadList(Nested(500000, "<array>", "")).error, tooDeep);
}

TEST(XmlReader, ExpandsNoDeclaredEntities) {
    std::string xml = "<!DOCTYPE plist [<!ENTITY a0 \"lol\">";
    for (int i = 1; i < 100; ++i)
        xml += "<!ENTITY a" + std::to_string(i) + " \"&a" + std::to_string(i - 1) + ";&a" +
               std::to_string(i - 1) + ";\">";
    EXPECT_EQ(ReadList(xml + "]><plist><string>&a99;</string></plist>").error,
              "Encountered unexpected character [ on line 1 while parsing DTD");
}

TEST(XmlReader, RefusesMoreThan64MiB) {
    std::string xml = "<true/>";
    xml.resize(std::size_t{64} << 20, ' ');
    EXPECT_TRUE(ReadList(xml).list);
    EXPECT_EQ(ReadList(xml + " ").error, "The property list is too long");
}

// All elements, with entities, CDATA sections, comments and instructions.
std::string FullList() {
    return std::string(kXmlHeader) +
           "<dict><!-- c --><key>a&amp;b</key>\n<array><string>x<![CDATA[<y>]]>z</string>"
           "<integer>-12</integer><integer>0x1F</integer><real>1.5</real><true/><false></false>"
           "<date>2004-11-29T21:33:09Z</date><data>AQID</data><array/><dict/></array>"
           "<key attribute=\"v>w\">\xC3\xA9</key><string/><?instruction?></dict></plist>\n";
}

TEST(XmlReader, RefusesEachPrefixOfAFullListWithAText) {
    const std::string xml = FullList();
    ASSERT_TRUE(ReadList(xml).list);
    const std::size_t complete = xml.rfind('>') + 1;
    for (std::size_t length = 0; length < complete; ++length) {
        const ReadResult result = ReadList(xml.substr(0, length));
        EXPECT_FALSE(result.list) << length;
        EXPECT_NE(result.error, "") << length;
        EXPECT_NE(result.error, "(none)") << length;
    }
}

TEST(XmlReader, ListReadInBatchesOfAnyLengthIsTheSame) {
    const std::string xml = FullList();
    const ReadResult expected = ReadList(xml);
    for (std::size_t length = 1; length <= xml.size(); ++length)
        ExpectSameInBatches(xml, length, expected);
}

TEST(XmlReader, DeepListReadInBatchesIsTheSame) {
    const std::string xml =
        Nested(512, "<array><true/>", "<true/></array>", "<integer>1</integer>");
    ExpectSameInBatches(xml, 1, ReadList(xml));
    ExpectSameInBatches(xml, 2000, ReadList(xml));
}

// The parts of a list. The text of each part is the error for a list that ends after any character
// of the part.
TEST(XmlReader, EachPrefixIsRefusedWithItsText) {
    const std::pair<std::string_view, std::string_view> pieces[] = {
        {"<", "No XML content found"},
        {"?xm",
         "Encountered unexpected EOF while parsing the processing instruction begun on line 1"},
        {"l version=\"1.0\"", "End of buffer while looking for encoding name"},
        {"?",
         "Encountered unexpected EOF while parsing the processing instruction begun on line 1"},
        {">\n<", "No XML content found"},
        {"!DOCTYP", "Malformed DTD on line 2"},
        {"E plist", "Encountered unexpected EOF while parsing DTD"},
        {">\n<", "No XML content found"},
        {"plist a='b'", "Encountered unexpected EOF"},
        {">", "Encountered empty plist tag"},
        {"\n", "Encountered unexpected EOF"},
        {"<dict", "Encountered empty plist tag"},
        {">\n\t<!-", "Encountered unexpected EOF"},
        {"- c --", "Unterminated comment started on line 5"},
        {">\n\t<key>a&amp;b</key", "Encountered unexpected EOF"},
        {">", "Value missing for key inside <dict> at line 6"},
        {"\n\t", "Encountered unexpected EOF"},
        {"<array", "Value missing for key inside <dict> at line 7"},
        {">\n\t\t<string>x&#65;<![CDATA[", "Encountered unexpected EOF"},
        {"<y>]]", "Could not find end of CDATA started on line 8"},
        {">z</string>\n\t\t<integer", "Encountered unexpected EOF"},
        {">-12", "Premature end of file after <integer> on line 9"},
        {"</integer>\n<real>1.5</real><true/>\n<false></false><array/><string/><",
         "Encountered unexpected EOF"},
        {"?i?",
         "Encountered unexpected EOF while parsing the processing instruction begun on line 11"},
        {"></array>\n<key/", "Encountered unexpected EOF"},
        {">", "Value missing for key inside <dict> at line 12"},
        {"\n", "Encountered unexpected EOF"},
        {"<string b", "Value missing for key inside <dict> at line 13"},
        {">c</string></dict>\n</plist ", "Encountered unexpected EOF"},
    };
    std::string xml;
    for (const auto& [piece, error] : pieces) {
        for (const char character : piece) {
            xml += character;
            EXPECT_EQ(ReadList(xml).error, error) << xml;
        }
    }
    EXPECT_TRUE(ReadList(xml + ">").list);
}

// Like ReadAndWrite, but reads the bytes where they are instead of a copy.
std::string ReadInPlace(std::string_view bytes) {
    return Written(ReadInBatches(bytes, cf::XmlNormalizer::kBatchLength));
}

// A page between two that cannot be read.
class FencedPages {
public:
    FencedPages() {
        mprotect(memory_, kPage, PROT_NONE);
        mprotect(End(), kPage, PROT_NONE);
    }
    ~FencedPages() {
        munmap(memory_, kSize);
    }
    FencedPages(const FencedPages&) = delete;
    FencedPages& operator=(const FencedPages&) = delete;

    std::string_view AtBegin(std::string_view bytes) {
        std::memcpy(memory_ + kPage, bytes.data(), bytes.size());
        return {memory_ + kPage, bytes.size()};
    }
    std::string_view AtEnd(std::string_view bytes) {
        std::memcpy(End() - bytes.size(), bytes.data(), bytes.size());
        return {End() - bytes.size(), bytes.size()};
    }

private:
    static constexpr std::size_t kPage = 65536; // or a part of it
    static constexpr std::size_t kSize = 3 * kPage;

    char* End() const {
        return memory_ + kSize - kPage;
    }

    char* const memory_ = static_cast<char*>(
        mmap(nullptr, kSize, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
};

TEST(XmlReader, MemoryOutsideOfTheListIsNotAccessed) {
    FencedPages pages;
    const std::string lists[] = {FullList(), "\n\t\t\t\t\t\t\t\t<array>\n\t\t\t\t\t\t\t\t\t\t",
                                 "<array></array><key", "<string>aaaaaaaaaaaaaaa<a"};
    for (const std::string& xml : lists) {
        for (std::size_t length = 1; length <= xml.size(); ++length) {
            const std::string list = xml.substr(0, length);
            const std::string alone = ReadAndWrite(list);
            EXPECT_EQ(ReadInPlace(pages.AtBegin(list)), alone);
            EXPECT_EQ(ReadInPlace(pages.AtEnd(list)), alone);
        }
    }
}

// The reader loads whole words. Bytes beyond the end must not change the result, even if they would
// continue the list.
TEST(XmlReader, BytesBehindTheListChangeNothing) {
    const std::string xml = FullList();
    for (std::size_t length = 1; length < xml.size(); ++length) {
        const std::string alone = ReadAndWrite(std::string_view(xml).substr(0, length));
        EXPECT_EQ(ReadInPlace(std::string_view(xml).substr(0, length)), alone) << length;
        const std::string tabs = xml.substr(0, length) + "\t\t\t\t\t\t\t\t";
        EXPECT_EQ(ReadInPlace(std::string_view(tabs).substr(0, length)), alone) << length;
    }
    for (std::size_t count = 0; count <= 16; ++count) {
        const std::string blanks = "<array>\n" + std::string(count, '\t');
        const std::string more = blanks + "\t\t</array>";
        EXPECT_EQ(ReadInPlace(std::string_view(more).substr(0, blanks.size())),
                  ReadAndWrite(blanks));
    }
}

TEST(XmlReader, BytesBeforeTheListChangeNothing) {
    for (const std::string_view list : {"\n<true/>", "\n\t\t<array></array>", "</", "true/>"}) {
        for (const std::string_view before : {"\t", "\n", "<", "\xEF\xBB\xBF"}) {
            const std::string bytes = std::string(before).append(list);
            EXPECT_EQ(ReadInPlace(std::string_view(bytes).substr(before.size())),
                      ReadAndWrite(list));
        }
    }
}

TEST(XmlReader, AnyChangedByteGivesAListOrAnError) {
    const std::string xml = FullList();
    for (std::size_t i = 0; i < xml.size(); ++i) {
        for (const char byte : {'\0', '<', '>', '&', '/', '!', '[', '"', '\xFF', 'x', ' '}) {
            std::string changed = xml;
            changed[i] = byte;
            const ReadResult result = ReadList(changed);
            EXPECT_NE(static_cast<bool>(result.list), !result.error.empty()) << i;
            EXPECT_NE(result.error, "(none)") << i;
        }
    }
}

TEST(XmlReader, TagsThatDifferInOneCharacterAreUnknown) {
    for (const std::string_view usual : {"key>", "integer>", "true/>", "false/>", "string>",
                                         "dict>", "array>", "real>", "date>", "data>", "plist>"}) {
        for (std::size_t i = 0; i < usual.size(); ++i) {
            std::string tag(usual);
            for (const int character : {usual[i] + 1, usual[i] - 1, int{'_'}}) {
                tag[i] = static_cast<char>(character);
                const std::string xml = "<array><" + tag + "        >        ";
                EXPECT_TRUE(ReadList(xml).error.starts_with("Encountered unknown tag ")) << xml;
            }
        }
    }
}

// Some of these bytes are control bytes of the normal form.
TEST(XmlReader, BytesAboveAsciiInScalarsAreRefused) {
    for (int byte = 0x80; byte <= 0xFF; ++byte) {
        const char bytes[] = {static_cast<char>(byte), '\0'};
        const std::string shown = {static_cast<char>(0xC0 | byte >> 6),
                                   static_cast<char>(0x80 | (byte & 0x3F))};
        std::ostringstream hex;
        hex << std::hex << byte;
        std::ostringstream upperHex;
        upperHex << std::hex << std::uppercase << byte;
        const std::pair<std::string, std::string> lists[] = {
            {"<integer>1"s + bytes + "2</integer>",
             "Unknown character '" + shown + "' (0x" + hex.str() + ") in <integer> on line 2"},
            {"<data>AQID"s + bytes + "</data>",
             "Could not interpret <data> on line 2 (invalid character 0x" + upperHex.str() + ")"},
            {"<real>1"s + bytes + "</real>", "Encountered misformatted real on line 2"},
            {"<date>2004-11-29T21:33:09Z"s + bytes + "</date>",
             "Could not interpret <date> at line 2"},
        };
        for (const auto& [list, error] : lists) {
            EXPECT_EQ(ReadList("<array>\n" + list + "\n</array>").error, error);
            EXPECT_EQ(ReadList("<array>\n" + list + "</dict>").error, error);
            EXPECT_EQ(ReadList("<array><real>x</real>\n" + list + "</array>").error,
                      "Encountered misformatted real on line 1");
        }
    }
    EXPECT_EQ(ReadList("<data>AA\xFE").error, "Encountered unexpected EOF");
    EXPECT_EQ(ReadList("<integer>1\xFE").error, "Premature end of file after <integer> on line 1");
}

TEST(XmlReader, DatesHaveDigitsAndSeparatorsAtFixedPlaces) {
    const std::string date = "2004-11-29T21:33:09Z";
    for (std::size_t i = 0; i < date.size(); ++i) {
        for (const char character : {'/', ':', 'x', '-', '5'}) {
            std::string changed = date;
            changed[i] = character;
            const bool isDate =
                date[i] == character || (date[i] >= '0' && date[i] <= '9' && character == '5');
            EXPECT_EQ(ReadList("<date>" + changed + "</date>").error,
                      isDate ? "" : "Could not interpret <date> at line 1")
                << changed;
        }
    }
}

// ---- texts at each offset in the words by which they are copied ----

// A string of that many characters before the text.
std::string StringBehind(std::size_t characters, const std::string& text,
                         const std::string& behind = "") {
    return "<string>" + std::string(characters, 'a') + text + behind + "</string>";
}

TEST(XmlReader, CharactersAreReadAtEachOffsetInAWord) {
    for (std::size_t before = 0; before <= 16; ++before) {
        for (const std::size_t behind : {0U, 1U, 7U, 8U, 9U}) {
            for (const std::string text : {"\x7F", "\u0080", "\u20AC", "\U0001F600", "\n", "'"}) {
                const std::string xml = StringBehind(before, text, std::string(behind, 'b'));
                EXPECT_EQ(ReadAndWrite(xml), xml + "\n") << text << before;
            }
        }
    }
}

TEST(XmlReader, MarkupIsFoundAtEachOffsetInAWord) {
    for (std::size_t before = 0; before <= 16; ++before) {
        EXPECT_EQ(ReadAndWrite(StringBehind(before, "&amp;<![CDATA[<]]>")),
                  StringBehind(before, "&amp;&lt;") + "\n");
        EXPECT_EQ(ReadList(StringBehind(before, "\xFF")).error,
                  "Unable to convert string to correct encoding");
        EXPECT_EQ(ReadList(StringBehind(before, "\0"s)).error, "Encountered unexpected EOF");
        EXPECT_EQ(ReadList(StringBehind(before, "<b/>")).error,
                  "Encountered unexpected character b on line 1 while looking for close tag");
        EXPECT_EQ(ReadList("<integer>" + std::string(before, '0') + "5</integer>").error, "");
    }
}

TEST(XmlReader, EachNameOfAnEncodingIsKnown) {
    struct Names {
        std::vector<std::string> names;
        const char* text; // the characters of A4 80
    };
    const Names encodings[] = {
        {{"ASCII", "ascii", "US-ASCII", "us_ascii", "usascii", "ISO-8859-1", "ISO_8859-1",
          "iso8859-1", "Latin1", "LATIN-1", "l1"},
         "\u00A4\u0080"},
        {{"ISO-8859-15", "iso8859-15", "Latin-9", "latin9"}, "\u20AC\u0080"},
        {{"windows-1252", "Windows-1252", "cp1252", "CP-1252"}, "\u00A4\u20AC"},
    };
    for (const Names& encoding : encodings) {
        for (const std::string& name : encoding.names) {
            const std::string xml =
                "<?xml version='1.0' encoding=\"" + name + "\"?><string>\xA4\x80</string>";
            EXPECT_EQ(ReadAndWrite(xml), "<string>"s + encoding.text + "</string>\n") << name;
        }
    }
    for (const std::string name : {"", "x1", "latin", "latin10", "iso-8859-2", "utf-16", "utf-7",
                                   "cp125", "xascii", "bscii", "macintosh"})
        EXPECT_EQ(ReadList("<?xml encoding='" + name + "'?><true/>").error,
                  "Encountered unknown encoding (" + name + ")");
}

TEST(XmlReader, ManyOfTheShortestElementsAreRead) {
    constexpr CFIndex kCount = 100000;
    for (const std::string_view element : {"<key/>", "<key></key>", "<true/>", "<dict/>",
                                           "<array/>", "<real>1</real>", "<string>&lt;</string>"}) {
        std::string xml = "<array>";
        for (CFIndex i = 0; i < kCount; ++i)
            xml += element;
        const ReadResult unclosed = ReadList(xml);
        EXPECT_EQ(unclosed.error, "Encountered unexpected EOF") << element;
        const ReadResult result = ReadList(xml + "</array>");
        ASSERT_TRUE(result.list) << element;
        EXPECT_EQ(CFArrayGetCount(static_cast<CFArrayRef>(result.list.Get())), kCount);
    }
}

TEST(XmlReader, AnyBlanksBetweenTagsAreIgnored) {
    for (std::size_t count = 0; count <= 20; ++count) {
        for (const char blank : {' ', '\t', '\n', '\r'}) {
            const std::string blanks = "\n" + std::string(count, blank);
            const std::string xml = "<array>" + blanks + "<true/>" + blanks + "</array>";
            EXPECT_EQ(ReadAndWrite(xml), "<array>\n\t<true/>\n</array>\n");
        }
        const std::string tabs = "<array>\n" + std::string(count, '\t');
        EXPECT_EQ(ReadList(tabs + "\x0B<true/></array>").error,
                  "Encountered unexpected character \x0B on line 2 while looking for open tag");
    }
}

TEST(XmlReader, BytesAfterNulAreIgnored) {
    EXPECT_EQ(ReadList("<string>a\0b</string>"s).error, "Encountered unexpected EOF");
    EXPECT_EQ(ReadList("<array>\0</array>"s).error, "Encountered unexpected EOF");
    EXPECT_EQ(ReadList("<integer>5\0</integer>"s).error,
              "Premature end of file after <integer> on line 1");
    EXPECT_TRUE(ReadList("<true/>\0<\xFF"s).list);
    // A NUL in a comment or an attribute is skipped: it neither ends a later text nor hides a NUL.
    EXPECT_EQ(
        ReadList("<array><string>&amp;</string><!-- \0 --><string>&lt;\0</string></array>"s).error,
        "Encountered unexpected EOF");
    EXPECT_EQ(ReadAndWrite("<array a='\0'><string>&amp;</string><!-- \0 -->"
                           "<string>&lt;</string></array>"s),
              "<array>\n\t<string>&amp;</string>\n\t<string>&lt;</string>\n</array>\n");
}

// ---- containers behind others: the reader expects the same keys again ----

std::string ManyKeys(int count) {
    std::string pairs;
    for (int i = 0; i < count; ++i)
        pairs += "<key>" + std::to_string(i) + "</key><integer>" + std::to_string(i) + "</integer>";
    return pairs;
}

// Reads the list alone, and as the second and third member of an array. `before` is the first one.
void ExpectSameBehind(const std::string& before, const std::string& xml) {
    const ReadResult alone = ReadList(xml);
    const ReadResult behind = ReadList("<array>" + before + xml + xml + "</array>");
    ASSERT_TRUE(alone.list && behind.list) << before << " " << xml;
    for (const CFIndex index : {1, 2})
        EXPECT_EQ(MemberAt(behind, index), alone.list.Get()) << before << " " << xml;
}

TEST(XmlReader, DictionaryIsTheSameBehindAnyOther) {
    const std::string dictionaries[] = {
        "",
        "<key>a</key><true/><key>b</key><false/>",
        "<key>a</key><false/><key>b</key><false/>",
        "<key>b</key><false/><key>a</key><true/>",
        "<key>a</key><true/>",
        "<key>a</key><true/><key>b</key><false/><key>c</key><true/>",
        "<key>a</key><true/><key>a</key><false/>",
        "<key>a</key><true/><key>b</key><true/><key>a</key><false/>",
        "<key>ab</key><true/><key>b</key><false/>",
        "<key>ab/</key><true/><key>b/</key><false/>",
        "<key></key><true/><key>b</key><false/>",
        "<key>a<![CDATA[b]]></key><true/><key>b</key><false/>",
        "<key>&#97;</key><true/><key>b</key><false/>",
        "<key>&amp;</key><true/><key>b</key><false/>",
        "<key>&amp;amp;</key><true/><key>b</key><false/>",
        "<key>a</key><dict><key>a</key><true/></dict><key>b</key><false/>",
        "<key>a</key><array><dict><key>b</key><true/></dict></array><key>b</key><false/>",
        "<key>a</key>" + Nested(12, "<dict><key>a</key>", "</dict>", "<true/>"),
        "<key>a</key>" + Nested(12, "<dict><key>b</key><true/><key>a</key>", "</dict>", "<true/>"),
        ManyKeys(31),
        ManyKeys(32),
        ManyKeys(33),
    };
    for (const std::string& before : dictionaries)
        for (const std::string& pairs : dictionaries)
            ExpectSameBehind("<dict>" + before + "</dict>", "<dict>" + pairs + "</dict>");
}

TEST(XmlReader, DictionaryIsTheSameBehindOneOfTooManyKeys) {
    const std::string dictionaries[] = {"<dict>" + ManyKeys(3) + "</dict>",
                                        "<dict>" + ManyKeys(33) + "</dict>", "<dict/>"};
    std::string all;
    for (const std::string& dictionary : dictionaries)
        all += dictionary;
    const ReadResult together = ReadList("<array>" + all + "</array>");
    for (CFIndex i = 0; i < 3; ++i)
        EXPECT_EQ(MemberAt(together, i), ReadList(dictionaries[i]).list.Get()) << i;
}

TEST(XmlReader, ArrayIsTheSameBehindAnyOther) {
    const std::string arrays[] = {"", "<true/>", "<true/><false/>", "<false/><true/>",
                                  "<array><true/></array>"};
    for (const std::string& before : arrays)
        for (const std::string& members : arrays)
            ExpectSameBehind("<array>" + before + "</array>", "<array>" + members + "</array>");
}

} // namespace
