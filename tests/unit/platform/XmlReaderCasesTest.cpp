/* Texts that the XML reader accepts, with the list as written again, and texts that it refuses,
   with the error text. */

#include "Lists.h"
#include "XmlBatches.h"
#include "XmlTexts.h"

#include <gtest/gtest.h>

#include <ostream>
#include <string>
#include <string_view>

namespace {

using namespace std::string_literals;

struct Row {
    const char* name;
    std::string xml;
    std::string result;
};

std::ostream& operator<<(std::ostream& out, const Row& row) {
    return out << row.name;
}

std::string NameOf(const testing::TestParamInfo<Row>& info) {
    return info.param.name;
}

std::string Utf16(std::string_view ascii, bool bigEndian) {
    std::string bytes = bigEndian ? "\xFE\xFF" : "\xFF\xFE";
    for (const char character : ascii)
        bytes += bigEndian ? std::string{'\0', character} : std::string{character, '\0'};
    return bytes;
}

// Refused

class XmlReaderRefuses : public testing::TestWithParam<Row> {};

TEST_P(XmlReaderRefuses, WithText) {
    const ReadResult immutable = ReadList(GetParam().xml);
    EXPECT_FALSE(immutable.list);
    EXPECT_EQ(immutable.error, GetParam().result);
    EXPECT_EQ(ReadList(GetParam().xml, kCFPropertyListMutableContainersAndLeaves).error,
              GetParam().result);
    if (!GetParam().xml.empty())
        ExpectSameInBatches(GetParam().xml, 1, immutable);
}

const Row kNoDocument[] = {
    {"Nothing", "", "Cannot parse a NULL or zero-length data"},
    {"OneBracket", "<", "No XML content found"},
    {"Blanks", "   ", "No XML content found"},
    {"OneCharacter", "x", "Unexpected character x at line 1"},
    {"Words", "hello world", "Unexpected character h at line 1"},
    {"OldStyle", "{ a = b; }", "Unexpected character { at line 1"},
    {"OldStyleStrings", "\n\"a\" = \"b\";", "Unexpected character \" at line 2"},
    {"HighBytes", "\x80\x81\xFE\xFF", "Unexpected character \u0080 at line 1"},
    {"HighByteBehindDeclaration", "<?xml version=\"1.0\"?>\r\n\xFF",
     "Unexpected character \u00FF at line 2"},
    {"LoneBracketBehindComment", "<!-- c --><", "No XML content found"},
    {"TextBeforeRoot", "<?xml version=\"1.0\"?>\nx<true/>", "Unexpected character x at line 2"},
    {"DeclarationCut", "<?xml version=\"1.0\"", "End of buffer while looking for encoding name"},
    {"EncodingCut", "<?xml encoding=\"UTF-8", "End of buffer while looking for encoding name"},
    {"UnquotedEncodingCut", "<?xml encoding=UTF-8",
     "End of buffer while looking for encoding name"},
    {"DeclarationCutBehindEncoding", "<?xml encoding=\"UTF-8\" ",
     "Encountered unexpected EOF while parsing the processing instruction begun on line 1"},
    {"DeclarationCutInItsName", "<?xm",
     "Encountered unexpected EOF while parsing the processing instruction begun on line 1"},
    {"InstructionCut", "<?xml?>\n<?a b?",
     "Encountered unexpected EOF while parsing the processing instruction begun on line 2"},
    {"DoctypeCut", "<!DOCTYPE plist PUB", "Encountered unexpected EOF while parsing DTD"},
    {"DoctypeCutInItsName", "<?xml?>\n<!DOC", "Malformed DTD on line 2"},
    {"HeaderOnly", "<?xml version=\"1.0\"?>\n<!DOCTYPE plist>\n", "No XML content found"},
    {"InternalSubset", "<!DOCTYPE plist [<!ENTITY a \"b\">]><true/>",
     "Encountered unexpected character [ on line 1 while parsing DTD"},
    {"InternalSubsetCut", "<!DOCTYPE plist\n[<!ENTITY",
     "Encountered unexpected character [ on line 2 while parsing DTD"},
    {"Declaration", "<!FOO x><true/>", "Malformed DTD on line 1"},
    {"CommentOfThreeDashes", "<!---><true/>", "Unterminated comment started on line 1"},
    {"InstructionOfOneMark", "<?><true/>",
     "Encountered unexpected EOF while parsing the processing instruction begun on line 1"},
    {"UnterminatedComment", "<array>\n<!-- x", "Unterminated comment started on line 2"},
    {"UnknownEncoding", "<?xml version=\"1.0\" encoding=\"FOO-1\"?><true/>",
     "Encountered unknown encoding (FOO-1)"},
    {"UnknownUnquotedEncoding", "<?xml encoding=FOO-1?><true/>",
     "Encountered unknown encoding (FOO-1)"},
    {"UnknownUnquotedEncodingBeforeBracket", "<?xml encoding=FOO-1><true/>",
     "Encountered unknown encoding (FOO-1)"},
    {"UnknownEncodingOfHighBytes", "<?xml encoding='\xE9-1'?><true/>",
     "Encountered unknown encoding (\u00E9-1)"},
    {"EncodingOfOtherFirstLetter", "<?xml encoding='vtf-8'?><true/>",
     "Encountered unknown encoding (vtf-8)"},
    {"Macintosh", "<?xml version='1.0' encoding='macintosh'?><true/>",
     "Encountered unknown encoding (macintosh)"},
    {"Utf16Odd", "\xFF\xFE<", "Unable to convert string to correct encoding"},
    {"Utf16LoneSurrogate", "\xFE\xFF\xD8\x00"s, "Unable to convert string to correct encoding"},
    {"InvalidUtf8", "<string>\xFF</string>", "Unable to convert string to correct encoding"},
    {"OverlongUtf8", "<string>\xC0\x80</string>", "Unable to convert string to correct encoding"},
    {"SurrogateUtf8", "<string>\xED\xA0\x80</string>",
     "Unable to convert string to correct encoding"},
    {"CutUtf8", "<string>\xE2\x82</string>", "Unable to convert string to correct encoding"},
    {"InvalidUtf8BeforeSlash", "<string>a\xC3/</string>",
     "Unable to convert string to correct encoding"},
    {"InvalidUtf8InKey", "<dict><key>\xFF</key><true/></dict>",
     "Unable to convert string to correct encoding"},
    {"StandInBytesInString", "<string>a\xFE\xFF</string>",
     "Unable to convert string to correct encoding"},
    {"InvalidUtf8InCdata", "<string><![CDATA[\xFF]]></string>",
     "Unable to convert string to correct encoding"},
};
INSTANTIATE_TEST_SUITE_P(NoDocument, XmlReaderRefuses, testing::ValuesIn(kNoDocument), NameOf);

const Row kGrammar[] = {
    {"PlistCut", "<plist version=\"1.0\">", "Encountered empty plist tag"},
    {"PlistEmpty", "<plist></plist>", "Encountered empty plist tag"},
    {"PlistSelfClosing", "<plist/>", "Encountered empty plist tag"},
    {"PlistCutBehindLine", "<plist version=\"1.0\">\n", "Encountered unexpected EOF"},
    {"PlistCutInTag", "<plist><stri", "Encountered empty plist tag"},
    {"PlistCutInComment", "<plist>\n<!-- a", "Unterminated comment started on line 2"},
    {"PlistOfNestedEmptyPlist", "<array><plist>", "Encountered empty plist tag"},
    {"PlistInDictCut", "<dict><key>a</key><plist>\n", "Encountered unexpected EOF"},
    {"PlistOfTwo", "<plist><true/>\n<true/></plist>",
     "Encountered unexpected element at line 2 (plist can only include one object)"},
    {"PlistNotClosed", "<plist><true/>", "Encountered unexpected EOF"},
    {"PlistHalfClosed", "<plist><true/></pli", "Encountered unexpected EOF"},
    {"PlistClosedAsDict", "<plist><true/></dict>", "Encountered unexpected EOF"},
    {"PlistClosedAsDictByTooFewBytes", "<plist><true/></dict> ",
     "Close tag on line 1 does not match open tag plist"},
    {"PlistClosedAsString", "<plist><true/>\n</string>",
     "Close tag on line 2 does not match open tag plist"},
    {"PlistClosedAsDictWithMoreBehind", "<plist><true/></dict>\n</plist>",
     "Close tag on line 1 does not match open tag plist"},
    {"PlistText", "<plist>a</plist>",
     "Encountered unexpected character a on line 1 while looking for open tag"},
    {"UnknownTag", "<plist>\n<foo/></plist>", "Encountered unknown tag foo on line 2"},
    {"UnknownTagWithAttribute", "<foo a='b'>", "Encountered unknown tag foo on line 1"},
    {"UnknownTagOfHighBytes", "<\xE9\xFF/>", "Encountered unknown tag \u00E9\u00FF on line 1"},
    {"UnknownTagInUtf8", "<\u00E9/>", "Encountered unknown tag \u00E9 on line 1"},
    {"KnownTagAndMore", "<keys>", "Encountered unknown tag keys on line 1"},
    {"KnownTagAndNul", "<key\0>a</key>"s, "Encountered unknown tag key\0 on line 1"},
    {"NoTag", "<>", "Malformed tag on line 1"},
    {"NoClosingTag", "</>", "Malformed tag on line 1"},
    {"NoTagButBlank", "<plist>\n< true/></plist>", "Malformed tag on line 2"},
    {"BracketInAttribute", "<array a=\"b>c\"/>",
     "Encountered unexpected character c on line 1 while looking for open tag"},
    {"HighByteForTag", "<array>\n\xFF</array>",
     "Encountered unexpected character \u00FF on line 2 while looking for open tag"},
    {"UpperCase", "<STRING>a</STRING>", "Encountered unknown tag STRING on line 1"},
    {"Html", "<html>", "Encountered unknown tag html on line 1"},
    {"ClosingFirst", "</plist>", "Encountered unknown tag /plist on line 1"},
    {"NumberTag", "<1/>", "Encountered unknown tag 1 on line 1"},
    {"DictCut", "<plist><dict>", "Encountered unexpected EOF"},
    {"DictText", "<dict>a</dict>",
     "Encountered unexpected character a on line 1 while looking for open tag"},
    {"DictKeyWithoutValue", "<dict>\n<key>a</key></dict>",
     "Value missing for key inside <dict> at line 2"},
    {"DictKeyWithoutValueOnItsLine", "<dict>\n<key>a</key>\n\n</dict>",
     "Value missing for key inside <dict> at line 4"},
    {"DictEmptyKeyWithoutValue", "<dict>\n<key/>\n</dict>",
     "Value missing for key inside <dict> at line 3"},
    {"DictKeyWithoutValueBehindOthers",
     "<dict><key>a</key><string>b\nc</string><key>d</key><!-- \n --></dict>",
     "Value missing for key inside <dict> at line 3"},
    {"DictKeyWithoutValueWrongClose", "<dict><key>a</key>\n</array>",
     "Value missing for key inside <dict> at line 2"},
    {"DictCutBehindKeyAndLine", "<dict><key>a</key>\n", "Encountered unexpected EOF"},
    {"DictCutInTagOnNextLine", "<dict><key>a</key>\n<stri",
     "Value missing for key inside <dict> at line 2"},
    {"DictCutInClosingTag", "<plist><dict><key>a</key></dic",
     "Value missing for key inside <dict> at line 1"},
    {"DictCutBehindBracket", "<dict><key>a</key><",
     "Value missing for key inside <dict> at line 1"},
    {"DictCutBehindLineAndBracket", "<dict><key>a</key>\n<",
     "Value missing for key inside <dict> at line 2"},
    {"DictCutInValue", "<dict><key>a</key><string>b", "Encountered unexpected EOF"},
    {"DictCutInKeysClosingTag", "<dict><key>a</ke", "Encountered unexpected EOF"},
    {"DictTextForValue", "<dict><key>a</key>b</dict>",
     "Encountered unexpected character b on line 1 while looking for open tag"},
    {"DictCutAfterKey", "<dict><key>a</key>", "Value missing for key inside <dict> at line 1"},
    {"DictCutInTag", "<dict><key>a</key><stri", "Value missing for key inside <dict> at line 1"},
    {"DictThreeInARow", "<dict><key>a</key><key>b</key><true/></dict>",
     "Found non-key inside <dict> at line 1"},
    {"DictValueWithoutKey", "<dict><true/></dict>", "Found non-key inside <dict> at line 1"},
    {"DictWrongClose", "<dict>\n</dixt>", "Close tag on line 2 does not match open tag dict"},
    {"ArrayText", "<array><true/>\n a</array>",
     "Encountered unexpected character a on line 2 while looking for open tag"},
    {"ArrayCutInTag", "<array><stri", "Encountered unexpected EOF"},
    {"ArrayCutBehindBracketAndMark", "<array><!", "Encountered unexpected EOF"},
    {"ArrayInstructionCut", "<array>\n\n<?a >",
     "Encountered unexpected EOF while parsing the processing instruction begun on line 3"},
    {"TouchingClosingTagsLastCut", "<array><array><array></array></array></arra",
     "Encountered unexpected EOF"},
    {"TouchingClosingTagsLastWrong", "<array><dict><key>a</key><true/></dict>\n</arraz>",
     "Close tag on line 2 does not match open tag array"},
    {"TouchingClosingTagsFirstWrong", "<array><dict></array></dict>",
     "Close tag on line 1 does not match open tag dict"},
    {"TouchingClosingTagsOneMissing", "<plist><array><array></array></plist>",
     "Close tag on line 1 does not match open tag array"},
    {"TouchingClosingTagsOneTooMany", "<plist><array></array></array></plist>",
     "Close tag on line 1 does not match open tag plist"},
    {"ClosingTagWithAttribute", "<array></array a>",
     "Close tag on line 1 does not match open tag array"},
    {"LinesOfEachKind", "<array>\r\n\r\n\r\n\r<foo/>", "Encountered unknown tag foo on line 5"},
    {"ArrayCdata", "<array><![CDATA[a]]></array>", "Encountered improper CDATA opening at line 1"},
    {"ArrayWrongClose", "<array></dict>", "Close tag on line 1 does not match open tag array"},
    {"TooDeep", Nested(513, "<array>", "</array>"),
     "Too many nested arrays or dictionaries, failing on line 1"},
    {"TooDeepInPlist", "<plist>" + Nested(513, "<array>", "</array>") + "</plist>",
     "Too many nested arrays or dictionaries, failing on line 1"},
    {"TooDeepDicts", Nested(513, "<dict><key/>", "</dict>"),
     "Too many nested arrays or dictionaries, failing on line 1"},
    {"TooDeepPlists", Nested(514, "<plist>", "</plist>"),
     "Too many nested arrays or dictionaries, failing on line 1"},
    {"IntegerCut", "<array>\n<integer>1", "Premature end of file after <integer> on line 2"},
    {"RealCut", "<array>\n<real>1", "Encountered unexpected EOF"},
    {"DateCut", "<array>\n<date>2001-01-01", "Encountered unexpected EOF"},
    {"TrueWithText", "<true>x</true>", "Encountered non-empty <true> on line 1"},
    {"FalseWithElement", "<false><true/></false>", "Encountered non-empty <false> on line 1"},
};
INSTANTIATE_TEST_SUITE_P(Grammar, XmlReaderRefuses, testing::ValuesIn(kGrammar), NameOf);

const Row kTexts[] = {
    {"StringCut", "<plist><string>ab", "Encountered unexpected EOF"},
    {"StringCutBehindBracket", "<plist><string>abcdefg<", "Encountered unexpected EOF"},
    {"KeyCut", "<plist><dict><key>ab", "Encountered unexpected EOF"},
    {"KeyCutBehindBracket", "<plist><dict><key>abcdefg<", "Encountered unexpected EOF"},
    {"StringWrongClose", "<string>a</strong>",
     "Close tag on line 1 does not match open tag string"},
    {"UnknownEntity", "<string>&foo;</string>",
     "Encountered unknown ampersand-escape sequence at line 1"},
    {"AmpersandBeforeSlash", "<string>a&/</string>",
     "Encountered unknown ampersand-escape sequence at line 1"},
    {"BareAmpersand", "<string>a\n& b</string>",
     "Encountered unknown ampersand-escape sequence at line 2"},
    {"UpperCaseHex", "<string>&#X41;</string>",
     "Encountered unexpected character X at line 1 while parsing data"},
    {"HexadecimalDigitInDecimalEntity", "<string>&#6A;</string>",
     "Encountered unexpected character A at line 1 while parsing data"},
    {"LoneSurrogate", "<string>&#xD800;</string>",
     "Encountered unparseable Unicode sequence at line 1 while parsing data (input did not result "
     "in a real string)"},
    {"BeyondUnicode", "<string>&#x110000;</string>",
     "Encountered unparseable Unicode sequence at line 1 while parsing data (input did not result "
     "in a real string)"},
    {"FarBeyondUnicode", "<string>&#99999999999999999999;</string>",
     "Encountered unparseable Unicode sequence at line 1 while parsing data (input did not result "
     "in a real string)"},
    {"ZeroEntity", "<string>&#0;</string>",
     "Encountered unparseable Unicode sequence at line 1 while parsing data (input did not result "
     "in a real string)"},
    {"EntityWithoutDigits", "<string>&#;</string>",
     "Encountered unparseable Unicode sequence at line 1 while parsing data (input did not result "
     "in a real string)"},
    {"CutInEntity", "<string>a&am", "Encountered unexpected EOF"},
    {"CutInNumericEntity", "<string>a&#6", "Encountered unexpected EOF"},
    {"CutInCdataOpening", "<string>a<![CDA", "Encountered unexpected EOF"},
    {"CutBehindBracket", "<string>a<", "Encountered unexpected EOF"},
    {"CutInClosingTag", "<string>a</strin", "Encountered unexpected EOF"},
    {"CutWithInvalidUtf8", "<string>a\xFF", "Unable to convert string to correct encoding"},
    {"HighByteInNumericEntity", "<string>&#\xE9;</string>",
     "Encountered unexpected character \u00E9 at line 1 while parsing data"},
    {"NulInString", "<string>a\0</string>"s, "Encountered unexpected EOF"},
    {"CdataCut", "<string>a\n<![CDATA[b", "Could not find end of CDATA started on line 2"},
    {"CdataWithNul", "<string>x<![CDATA[a\0b]]></string>"s,
     "Could not find end of CDATA started on line 1"},
    {"CommentInString", "<string>a<!-- c -->b</string>",
     "Encountered improper CDATA opening at line 1"},
    {"CommentFirstInString", "<string><!-- c -->b</string>",
     "Encountered improper CDATA opening at line 1"},
    {"ElementInString", "<string>a<b/></string>",
     "Encountered unexpected character b on line 1 while looking for close tag"},
    {"InstructionInString", "<string><?b?>a</string>",
     "Encountered unexpected character ? on line 1 while looking for close tag"},
    {"CommentInExpectedKey",
     "<array><dict><key>a</key><true/></dict><dict><key>a<!-- c --></key><true/></dict></array>",
     "Encountered improper CDATA opening at line 1"},
    {"ElementInExpectedKey",
     "<array><dict><key>a</key><true/></dict><dict><key>a<b/></key><true/></dict></array>",
     "Encountered unexpected character b on line 1 while looking for close tag"},
    {"ExpectedKeyCut", "<array><dict><key>a</key><true/></dict><dict><key>a",
     "Encountered unexpected EOF"},
    {"ExpectedKeyWrongClose",
     "<array><dict><key>a</key><true/></dict><dict><key>a</kex><true/></dict></array>",
     "Close tag on line 1 does not match open tag key"},
};
INSTANTIATE_TEST_SUITE_P(Texts, XmlReaderRefuses, testing::ValuesIn(kTexts), NameOf);

const Row kScalars[] = {
    {"IntegerCut", "<plist><integer>12", "Premature end of file after <integer> on line 1"},
    {"IntegerCutAtOnce", "<plist><integer>", "Premature end of file after <integer> on line 1"},
    {"IntegerCutInClosingTag", "<plist><integer>12</intege", "Encountered unexpected EOF"},
    {"IntegerCutOnLaterLine", "<plist>\n<integer>1",
     "Premature end of file after <integer> on line 2"},
    {"IntegerHighByte", "<integer>1\xE9</integer>",
     "Unknown character '\u00E9' (0xe9) in <integer> on line 1"},
    {"IntegerLineBehind", "<array>\n<integer>\n5\n</integer></array>",
     "Unknown character '\n' (0xa) in <integer> on line 3"},
    {"IntegerOnItsLineBehindWhatIsLeftOut",
     "<!-- \n --><plist\n a='\n'>\n<dict><key>a&amp;b</key>\n<integer b>x</integer></dict></plist>",
     "Unknown character 'x' (0x78) in <integer> on line 6"},
    {"IntegerInArrayOnItsLine", "<array>\n<integer>\n\n1x</integer></array>",
     "Unknown character 'x' (0x78) in <integer> on line 4"},
    {"IntegerAtTheBeginningOfItsLine", "<array>\n<integer>\nx</integer></array>",
     "Unknown character 'x' (0x78) in <integer> on line 3"},
    {"IntegerBeforeElementCut", "<array>\n<integer>5<x",
     "Encountered unexpected character x on line 2 while looking for close tag"},
    {"IntegerBeforeLaterFault", "<array><integer>x</integer>\n<foo/></array>",
     "Unknown character 'x' (0x78) in <integer> on line 1"},
    {"IntegerBeforeItsWrongClose", "<array>\n<integer>x</string></array>",
     "Unknown character 'x' (0x78) in <integer> on line 2"},
    {"IntegerWrongClose", "<integer>5</string>",
     "Close tag on line 1 does not match open tag integer"},
    {"IntegerEmpty", "<integer></integer>", "Encountered empty <integer> on line 1"},
    {"IntegerEmptyOnItsLine", "<array>\n<integer></integer>\n\n</array>",
     "Encountered empty <integer> on line 2"},
    {"IntegerEmptyBehindKeyOnItsLine", "<dict>\n<key>a</key>\n<integer></integer>\n\n</dict>",
     "Encountered empty <integer> on line 3"},
    {"IntegerEmptyBeforeLaterFault", "<array><integer></integer>\n></array>",
     "Encountered empty <integer> on line 1"},
    {"IntegerSelfClosing", "<integer/>", "Encountered empty <integer> on line 1"},
    {"IntegerCdata", "<integer><![CDATA[5]]></integer>", "Encountered empty <integer> on line 1"},
    {"IntegerWord", "<integer>abc</integer>", "Hex digit in non-hex <integer> on line 1"},
    {"IntegerLeastHexDigit", "<integer>5a</integer>", "Hex digit in non-hex <integer> on line 1"},
    {"IntegerExponent", "<integer>1e5</integer>", "Hex digit in non-hex <integer> on line 1"},
    {"IntegerAndPath", "<integer>5x/</integer>",
     "Unknown character 'x' (0x78) in <integer> on line 1"},
    {"IntegerUnit", "<integer>12x</integer>",
     "Unknown character 'x' (0x78) in <integer> on line 1"},
    {"IntegerFraction", "<integer>1.5</integer>",
     "Unknown character '.' (0x2e) in <integer> on line 1"},
    {"IntegerTrailingBlank", "<integer>5 </integer>",
     "Unknown character ' ' (0x20) in <integer> on line 1"},
    {"IntegerTwo", "<integer>1 2</integer>", "Unknown character ' ' (0x20) in <integer> on line 1"},
    {"IntegerTwoSigns", "<integer>--5</integer>",
     "Unknown character '-' (0x2d) in <integer> on line 1"},
    {"IntegerEntity", "<integer>&#49;</integer>",
     "Unknown character '&' (0x26) in <integer> on line 1"},
    {"IntegerSignOnly", "<integer>-</integer>", "Incomplete <integer> on line 1"},
    {"IntegerHexEmpty", "<integer>0x</integer>", "Incomplete <integer> on line 1"},
    {"IntegerOverflow", "<integer>18446744073709551616</integer>",
     "Integer overflow in <integer> on line 1"},
    {"IntegerLong", "<integer>123456789012345678901234567890</integer>",
     "Integer overflow in <integer> on line 1"},
    {"IntegerHexOverflow", "<integer>0x10000000000000000</integer>",
     "Integer overflow in <integer> on line 1"},
    {"IntegerUnderflow", "<integer>-9223372036854775809</integer>",
     "Integer underflow in <integer> on line 1"},
    {"RealEmpty", "<real></real>", "Encountered misformatted real on line 1"},
    {"RealEmptyOnItsLine", "<array>\n<real></real>\n\n</array>",
     "Encountered misformatted real on line 2"},
    {"RealSelfClosing", "<real/>", "Encountered empty <real> on line 1"},
    {"RealWord", "<real>abc</real>", "Encountered misformatted real on line 1"},
    {"RealTrailingBlank", "<real>1.5 </real>", "Encountered misformatted real on line 1"},
    {"RealHex", "<real>0x10</real>", "Encountered misformatted real on line 1"},
    {"RealTwoSigns", "<real>+-1</real>", "Encountered misformatted real on line 1"},
    {"RealNanPayload", "<real>nan(1)</real>", "Encountered misformatted real on line 1"},
    {"DateFraction", "<date>2004-11-29T21:33:09.5Z</date>", "Could not interpret <date> at line 1"},
    {"DateEmptyOnItsLine", "<array>\n<date></date>\n\n</array>",
     "Could not interpret <date> at line 2"},
    {"DateBlank", "<date> 2004-11-29T21:33:09Z</date>", "Could not interpret <date> at line 1"},
    {"DateNoZone", "<date>2004-11-29T21:33:09</date>", "Could not interpret <date> at line 1"},
    {"DateBehindYear9999", "<date>9999-12-31T24:00:00Z</date>",
     "Could not interpret <date> at line 1"},
    {"DataSelfClosing", "<data/>", "Encountered empty <data> on line 1"},
    {"DateSelfClosing", "<date/>", "Encountered empty <date> on line 1"},
    {"DataWithComment", "<data>AA==<!-- c --></data>",
     "Encountered unexpected character ! on line 1 while looking for close tag"},
    {"DataHighByte", "<data>\nAA\xC3\xA9==</data>",
     "Could not interpret <data> on line 2 (invalid character 0xC3)"},
    {"DataLeastHighByte", "<data>AQID\x80</data>",
     "Could not interpret <data> on line 1 (invalid character 0x80)"},
    {"RealOnItsLine", "<dict><key>a</key>\n<real>x</real></dict>",
     "Encountered misformatted real on line 2"},
};
INSTANTIATE_TEST_SUITE_P(Scalars, XmlReaderRefuses, testing::ValuesIn(kScalars), NameOf);

// Accepted

class XmlReaderReads : public testing::TestWithParam<Row> {};

TEST_P(XmlReaderReads, AndWritesBack) {
    for (const CFOptionFlags mutability :
         {kCFPropertyListImmutable, kCFPropertyListMutableContainersAndLeaves}) {
        const ReadResult result = ReadList(GetParam().xml, mutability);
        EXPECT_EQ(result.error, "");
        ASSERT_TRUE(result.list);
        EXPECT_EQ(WriteBody(result.list.Get()), GetParam().result + "\n");
    }
    ExpectSameInBatches(GetParam().xml, 1, ReadList(GetParam().xml));
}

const Row kDocuments[] = {
    {"JunkBehind", "<plist><true/></plist>xx</foo><", "<true/>"},
    {"TwoRoots", "<true/><false/>", "<true/>"},
    {"CutBehindRoot", "<true/><fal", "<true/>"},
    {"NestedPlist", "<plist version=\"2.0\"><plist><true/></plist></plist>", "<true/>"},
    {"KeyAsValue", "<plist><key>a</key></plist>", "<string>a</string>"},
    {"KeyAsValueInDict", "<dict><key>a</key><key>b</key></dict>",
     "<dict>\n\t<key>a</key>\n\t<string>b</string>\n</dict>"},
    {"LastValueWins", "<dict><key>a</key><true/><key>b</key><true/><key>a</key><false/></dict>",
     "<dict>\n\t<key>a</key>\n\t<false/>\n\t<key>b</key>\n\t<true/>\n</dict>"},
    {"Attributes", "<array a=\"b/c\" d='/'><true e=\"\"/></array>", "<array>\n\t<true/>\n</array>"},
    {"AttributesOfAnyKind",
     "<plist version=1.0 foo><array a ='>\n<true a b=\"c/>\n<string "
     "d=e=f>g</string></array></plist>",
     "<array>\n\t<true/>\n\t<string>g</string>\n</array>"},
    {"AttributesWithoutText", "<array \xFF\xC3=\"\0\"><true \x80/></array>"s,
     "<array>\n\t<true/>\n</array>"},
    {"SelfClosingBehindAttribute", "<array><string a='b'/><dict c/></array>",
     "<array>\n\t<string></string>\n\t<dict/>\n</array>"},
    {"InstructionsOfAnyKind", "<?1 a='?><? <true/>\xFF?><array><?'\0\"?></array>"s, "<array/>"},
    {"DoctypesOfAnyKind", "<!DOCTYPE 1 \"\xFF '><!DOCTYPE><!DOCTYPEplist \0><true/>"s, "<true/>"},
    {"CommentsOfAnyKind", "<!-- \xFF -- \0 > --><array><!-- <string> &x; \xC3 --></array>"s,
     "<array/>"},
    {"InvalidUtf8BehindTheList", "<plist><true/></plist>\xFF\xFE", "<true/>"},
    {"UnclosedThingsBehindTheList", "<true/><!-- <![CDATA[ <? \xC3", "<true/>"},
    {"BlankInClosingTags", "<array ><string>a</string\n></array\t>",
     "<array>\n\t<string>a</string>\n</array>"},
    {"EmptyCommentAndInstruction", "<!----><?\?><true/>", "<true/>"},
    {"CommentsAndInstructions", "<!-- a --><?b c?><array><!-- d --><true/><?e?><!-- > --></array>",
     "<array>\n\t<true/>\n</array>"},
    {"AnyDoctype", "<!DOCTYPE foo SYSTEM \"file:///dev/zero\"><true/>", "<true/>"},
    {"TrueWithClosingTag", "<true></true >", "<true/>"},
    {"Utf8Mark", "\xEF\xBB\xBF<true/>", "<true/>"},
    {"Utf16Big", Utf16("<?xml version='1.0' encoding='UTF-16'?><string>a</string>", true),
     "<string>a</string>"},
    {"Utf16Little", Utf16("<string>a</string>", false), "<string>a</string>"},
    {"Utf8MarkBeforeLatin1",
     "\xEF\xBB\xBF<?xml version='1.0' encoding='ISO-8859-1'?><string>\u00E9</string>",
     "<string>\u00E9</string>"},
    {"Utf8MarkBeforeUnknownEncoding", "\xEF\xBB\xBF<?xml encoding='FOO-1'?><true/>", "<true/>"},
    {"Utf16MarkBeforeLatin1", Utf16("<?xml encoding='ISO-8859-1'?><true/>", false), "<true/>"},
    {"Utf8WithoutHyphen", "<?xml encoding='UTF8'?><string>\u00E9</string>",
     "<string>\u00E9</string>"},
    {"Utf8Unquoted", "<?xml encoding=utf-8?><string>\u00E9</string>", "<string>\u00E9</string>"},
    {"Latin1Unquoted", "<?xml encoding=ISO-8859-1 ?><string>\xE9</string>",
     "<string>\u00E9</string>"},
    {"Latin1ByItsOtherName", "<?xml encoding=\"Latin1\"?><string>\xE9\x80\xFF</string>",
     "<string>\u00E9\u0080\u00FF</string>"},
    {"AsciiWithHighByte", "<?xml encoding='ascii'?><string>\xE9</string>",
     "<string>\u00E9</string>"},
    {"UsAsciiWithHighByte", "<?xml encoding='US-ASCII'?><string>\xE9</string>",
     "<string>\u00E9</string>"},
    {"Latin9",
     "<?xml "
     "encoding='ISO-8859-15'?><string>\x9F\xA0\xA4\xA6\xA8\xB4\xB8\xBC\xBD\xBE\xBF\xE9</string>",
     "<string>\u009F\u00A0\u20AC\u0160\u0161\u017D\u017E\u0152\u0153\u0178\u00BF\u00E9</string>"},
    {"Windows1252", "<?xml encoding='windows-1252'?><string>\x7F\x80\x81\x9F\xA0\xE9</string>",
     "<string>\x7F\u20AC\u0081\u0178\u00A0\u00E9</string>"},
    {"EveryCharacterOfLatin9",
     "<?xml "
     "encoding='ISO-8859-15'?><string>"
     "\x9F\xA0\xA1\xA2\xA3\xA4\xA5\xA6\xA7\xA8\xA9\xAA\xAB\xAC\xAD\xAE\xAF\xB0\xB1\xB2\xB3\xB4\xB5"
     "\xB6\xB7\xB8\xB9\xBA\xBB\xBC\xBD\xBE\xBF\xC0</string>",
     "<string>"
     "\u009F\u00A0\u00A1\u00A2\u00A3\u20AC\u00A5\u0160\u00A7\u0161\u00A9\u00AA\u00AB\u00AC\u00AD"
     "\u00AE\u00AF\u00B0\u00B1\u00B2\u00B3\u017D\u00B5\u00B6\u00B7\u017E\u00B9\u00BA\u00BB\u0152"
     "\u0153\u0178\u00BF\u00C0</string>"},
    {"EveryCharacterOfWindows1252",
     "<?xml "
     "encoding='windows-1252'?><string>"
     "\x7F\x80\x81\x82\x83\x84\x85\x86\x87\x88\x89\x8A\x8B\x8C\x8D\x8E\x8F\x90\x91\x92\x93\x94\x95"
     "\x96\x97\x98\x99\x9A\x9B\x9C\x9D\x9E\x9F\xA0</string>",
     "<string>"
     "\x7F\u20AC\u0081\u201A\u0192\u201E\u2026\u2020\u2021\u02C6\u2030\u0160\u2039\u0152\u008D"
     "\u017D\u008F\u0090\u2018\u2019\u201C\u201D\u2022\u2013\u2014\u02DC\u2122\u0161\u203A\u0153"
     "\u009D\u017E\u0178\u00A0</string>"},
    {"NoEncodingBehindTheDeclaration", "<?xml version='1.0'?><!-- encoding='FOO-1' --><true/>",
     "<true/>"},
    {"NoEncodingBehindTheBracketOfTheDeclaration",
     "<?xml version='1.0'> encoding='FOO-1' ?><true/>", "<true/>"},
    {"Latin1", "<?xml version='1.0' encoding='ISO-8859-1'?><string>\xE9</string>",
     "<string>\xC3\xA9</string>"},
    {"Utf8LowerCase", "<?xml version='1.0' encoding='utf-8'?><string>\xC3\xA9</string>",
     "<string>\xC3\xA9</string>"},
};
INSTANTIATE_TEST_SUITE_P(Documents, XmlReaderReads, testing::ValuesIn(kDocuments), NameOf);

const Row kStrings[] = {
    {"Empty", "<string/>", "<string></string>"},
    {"Blanks", "<string>  \n</string>", "<string>  \n</string>"},
    {"RawControls", "<string>a\r\nb\x01\t\x7F</string>", "<string>a\r\nb\x01\t\x7F</string>"},
    {"Entities", "<string>&lt;&gt;&amp;&quot;&apos;&#65;&#x1F600;&#x1f600;</string>",
     "<string>&lt;&gt;&amp;\"'A\xF0\x9F\x98\x80\xF0\x9F\x98\x80</string>"},
    {"GreatestCharacter", "<string>&#x10FFFF;&#1114111;</string>",
     "<string>\U0010FFFF\U0010FFFF</string>"},
    {"Cdata", "<string> a<![CDATA[<&lt;]]>b<![CDATA[]]> </string>",
     "<string> a&lt;&amp;lt;b </string>"},
    {"CdataBehindBlanks", "<string> <![CDATA[a]]> </string>", "<string> a </string>"},
    {"NulBehindTheList", "<true/>\0<"s, "<true/>"},
    {"MarkAtTheBeginning",
     "<array><string>\uFEFF</string><string>\uFEFFa\uFEFF</string>"
     "<string>\uFEFF\uFEFFb</string><string>&#xFEFF;c</string></array>",
     "<array>\n\t<string></string>\n\t<string>a\uFEFF</string>\n\t<string>\uFEFFb</string>\n"
     "\t<string>c</string>\n</array>"},
    {"MarkInKey",
     "<array><dict><key>\uFEFFa</key><true/></dict><dict><key>a</key><true/></dict>"
     "<dict><key>\uFEFF\uFEFFa</key><true/></dict><dict><key>\uFEFFa</key><true/></dict></array>",
     "<array>\n\t<dict>\n\t\t<key>a</key>\n\t\t<true/>\n\t</dict>\n"
     "\t<dict>\n\t\t<key>a</key>\n\t\t<true/>\n\t</dict>\n"
     "\t<dict>\n\t\t<key>\uFEFFa</key>\n\t\t<true/>\n\t</dict>\n"
     "\t<dict>\n\t\t<key>a</key>\n\t\t<true/>\n\t</dict>\n</array>"},
    {"CharacterAcrossCdata", "<string>\xC3<![CDATA[\xA9]]></string>", "<string>\u00E9</string>"},
    {"EntityInKey", "<dict><key>&amp;</key><true/></dict>",
     "<dict>\n\t<key>&amp;</key>\n\t<true/>\n</dict>"},
    {"LongestUtf8", "<string>\x7F\xC2\x80\xEF\xBF\xBF\xF4\x8F\xBF\xBF</string>",
     "<string>\x7F\xC2\x80\xEF\xBF\xBF\xF4\x8F\xBF\xBF</string>"},
};
INSTANTIATE_TEST_SUITE_P(Strings, XmlReaderReads, testing::ValuesIn(kStrings), NameOf);

const Row kNumbers[] = {
    {"Plus", "<integer>+5</integer>", "<integer>5</integer>"},
    {"BlankBehindSign", "<integer> - 5</integer>", "<integer>-5</integer>"},
    {"LeadingLines", "<integer>\n\t5</integer>", "<integer>5</integer>"},
    {"Hex", "<integer>0x1F</integer>", "<integer>31</integer>"},
    {"UpperCaseHex", "<array><integer>0X1F</integer><integer>-0Xa</integer></array>",
     "<array>\n\t<integer>31</integer>\n\t<integer>-10</integer>\n</array>"},
    {"NegativeHex", "<integer>-0x10</integer>", "<integer>-16</integer>"},
    {"LeadingZeros", "<integer>007</integer>", "<integer>7</integer>"},
    {"NegativeZero", "<integer>-0</integer>", "<integer>0</integer>"},
    {"AboveSigned", "<integer>9223372036854775808</integer>",
     "<integer>9223372036854775808</integer>"},
    {"Greatest", "<integer>18446744073709551615</integer>",
     "<integer>18446744073709551615</integer>"},
    {"Smallest", "<integer>-9223372036854775808</integer>",
     "<integer>-9223372036854775808</integer>"},
    {"Reals",
     "<array><real>1.5</real><real> 1.5</real><real>.5</real><real>5.</real><real>+1</real>"
     "<real>1.5e3</real><real>1.5E-3</real></array>",
     "<array>\n\t<real>1.5</real>\n\t<real>1.5</real>\n\t<real>0.5</real>\n\t<real>5</real>\n"
     "\t<real>1</real>\n\t<real>1500</real>\n\t<real>0.0015</real>\n</array>"},
    {"NoNumbers",
     "<array><real>nan</real><real>inf</real><real>infinity</real><real>-INF</real></array>",
     "<array>\n\t<real>nan</real>\n\t<real>+infinity</real>\n\t<real>+infinity</real>\n"
     "\t<real>-infinity</real>\n</array>"},
};
INSTANTIATE_TEST_SUITE_P(Numbers, XmlReaderReads, testing::ValuesIn(kNumbers), NameOf);

const Row kDatesAndData[] = {
    {"Date", "<date>2004-11-29T21:33:09Z</date>", "<date>2004-11-29T21:33:09Z</date>"},
    {"Month13", "<date>2004-13-01T00:00:00Z</date>", "<date>2005-01-01T00:00:00Z</date>"},
    {"Day0", "<date>2004-03-00T00:00:00Z</date>", "<date>2004-02-29T00:00:00Z</date>"},
    {"FirstDate", "<date>0000-01-01T00:00:00Z</date>", "<date>0000-01-01T00:00:00Z</date>"},
    {"LastDate", "<date>9999-12-31T23:59:59Z</date>", "<date>9999-12-31T23:59:59Z</date>"},
    {"DataPadded", "<data>AA==</data>", "<data>\nAA==\n</data>"},
    {"DataWithBlanksAndRubbish", "<data>\n A*\tQI\r D !</data>", "<data>\nAQID\n</data>"},
    {"DataWithRubbishBesideTheLetters", "<data>@A[Z`a{z</data>", "<data>\nAZaz\n</data>"},
    {"DataWithGreatestOfAscii", "<data>AQ\x7FID</data>", "<data>\nAQID\n</data>"},
    {"DataIncompleteGroup", "<data>AQIDBA</data>", "<data>\nAQID\n</data>"},
    {"DataEmpty", "<data></data>", "<data>\n</data>"},
    {"DataPaddingOnly", "<data>====</data>", "<data>\n</data>"},
};
INSTANTIATE_TEST_SUITE_P(DatesAndData, XmlReaderReads, testing::ValuesIn(kDatesAndData), NameOf);

} // namespace
