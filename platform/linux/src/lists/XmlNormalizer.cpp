#include "lists/XmlNormalizer.h"

#include "lists/ListBuilder.h"
#include "lists/PackedBytes.h"
#include "lists/XmlCharacterData.h"
#include "lists/XmlTag.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <utility>

namespace cf {

namespace {

// With the element around the list, which is no level of it.
constexpr std::size_t kMaximumOpenElements = kMaximumNesting + 1;
constexpr std::size_t kOpeningTagLength = 3;
constexpr std::size_t kClosingTagLength = 4;

constexpr std::string_view kUnexpectedEnd = "Encountered unexpected EOF";

bool IsWhiteSpace(char character) {
    return character == ' ' || character == '\t' || character == '\n' || character == '\r';
}

// Four bytes may be written where the tag is shorter.
char* WriteTag(char* out, XmlTag tag) {
    const char text[] = {'<', static_cast<char>(tag), '>', '\0'};
    std::memcpy(out, text, sizeof text);
    return out + 3;
}

// Behind the '<' and the letter of an opening tag.
char* WriteEmptyTagEnd(char* out) {
    out[-1] = '/';
    *out = '>';
    return out + 1;
}

char* WriteClosingTag(char* out, XmlTag tag) {
    const char text[kClosingTagLength] = {'<', '/', static_cast<char>(tag), '>'};
    std::memcpy(out, text, sizeof text);
    return out + sizeof text;
}

// The bytes of a text that are copied as they are: ASCII without NUL and markup.
std::uint64_t FindSpecialBytes(std::uint64_t word) {
    return HighBytes(word) | BytesEqual(word, '<') | BytesEqual(word, '&') | BytesEqual(word, '\0');
}

// A container whose end was not yet read.
struct OpenContainer {
    XmlTag tag;
    bool hasObject; // of a <plist>
};

class XmlNormalizer {
public:
    XmlNormalizer(std::string_view source, char* buffer)
        : begin_(source.data()), end_(begin_ + source.size()), next_(begin_), buffer_(buffer),
          out_(buffer) {}

    // Skips what may stand before a tag.
    void FindTag();
    // Takes the tag that was found, or the whole element if it is no container. Returns false
    // behind the root element.
    bool TakeTag();
    // Closes what is open.
    void Finish();

    std::size_t SourcePlace() const {
        return PlaceOf(next_);
    }
    std::size_t Length() const {
        return static_cast<std::size_t>(out_ - buffer_);
    }
    // Where the content of the next element that is no container will be written.
    std::size_t ContentPlace() const {
        return Length() + (key_ != nullptr ? 0 : kOpeningTagLength);
    }

private:
    struct OpeningTag {
        XmlTag tag;
        bool isEmpty; // <name/>
        const char* end;
    };

    std::size_t PlaceOf(const char* byte) const {
        return static_cast<std::size_t>(byte - begin_);
    }
    XmlSlice From(const char* byte) const {
        const auto size = static_cast<std::size_t>(end_ - begin_);
        return {{begin_, size}, PlaceOf(byte), size};
    }
    bool IsIn(XmlTag tag) const {
        return openCount_ != 0 && open_[openCount_ - 1].tag == tag;
    }
    const char* TextEnd(const char* text);

    void SkipWhiteSpace();
    [[gnu::noinline]] void SkipRemark();
    void SkipTo(std::string_view end, std::size_t from, std::string_view refusal);
    void SkipDocumentType();

    bool TakeUsualTag();
    [[gnu::noinline]] void TakeAnyTag();
    OpeningTag ReadOpeningTag() const;
    void CheckDepth() const;
    void Open(XmlTag tag, const char* content);
    void CloseContainer();
    void TakeClosingTag(XmlTag tag);
    [[gnu::noinline]] void TakeAnyClosingTag(XmlTag tag);

    bool IsKeyExpected() const {
        return key_ == nullptr && IsIn(XmlTag::kDict);
    }
    char* BeginElement(XmlTag tag);
    [[gnu::noinline]] void CheckPlace();
    void EndElement(XmlTag tag, char* out);
    void TakeEmpty(XmlTag tag, const char* end);
    void TakeEmptyTag(const OpeningTag& opening);
    void TakeKey(const char* content);
    void EndKey(char* out, const char* end);
    template<XmlTag Tag>
    void TakeText(const char* content);
    template<XmlTag Tag>
    void TakeScalar(const char* content);
    void TakeBoolean(XmlTag tag, const char* content);
    char* CopyText(const char*& in, char* out);
    [[gnu::noinline]] char* ResolveText(const char*& in, char* out);
    char* CopyPlain(const char*& in, char* out) const;

    void RefuseAbsence() const;
    [[noreturn, gnu::noinline]] void RefuseEnd() const;
    [[noreturn, gnu::noinline]] void RefuseCutTag() const;
    [[noreturn, gnu::noinline]] void RefuseCutScalar(XmlTag tag) const;
    [[noreturn, gnu::noinline]] void RefuseCharacter() const;

    const char* const begin_;
    const char* const end_;
    const char* next_;
    const char* nul_ = nullptr; // the last one that was looked for
    char* const buffer_;
    char* out_;
    char* key_ = nullptr; // the letter of the element of the key that was read last, not yet known
    std::array<OpenContainer, kMaximumOpenElements> open_;
    std::size_t openCount_ = 0;
};

// Texts have no NUL. It is looked for once, however many texts stand before it.
const char* XmlNormalizer::TextEnd(const char* text) {
    if (nul_ == nullptr || nul_ < text)
        nul_ = std::find(text, end_, '\0');
    return nul_;
}

// ---- Between tags ----

// Mostly a line begins, and is indented by tabs.
inline void XmlNormalizer::SkipWhiteSpace() {
    const char* next = next_;
    if (end_ - next > 8 && *next == '\n')
        next += 1 + CountLeading(LoadWord(next + 1), '\t');
    while (next != end_ && IsWhiteSpace(*next))
        ++next;
    next_ = next;
}

inline void XmlNormalizer::FindTag() {
    while (true) {
        SkipWhiteSpace();
        if (end_ - next_ > 1 && next_[0] == '<' && next_[1] != '!' && next_[1] != '?')
            return;
        SkipRemark();
    }
}

void XmlNormalizer::SkipRemark() {
    const std::string_view rest = From(next_).View();
    if (rest.empty() || rest == "<" || rest.starts_with('\0'))
        RefuseEnd();
    else if (rest.front() != '<')
        RefuseCharacter();
    else if (rest.starts_with("<?"))
        SkipTo(
            "?>", 2,
            "Encountered unexpected EOF while parsing the processing instruction begun on line ");
    else if (rest.starts_with("<!--"))
        SkipTo("-->", 4, "Unterminated comment started on line ");
    else if (openCount_ == 0)
        SkipDocumentType();
    else if (std::string_view("<!--").starts_with(rest))
        RefuseWith(kUnexpectedEnd);
    else
        RefuseAt(From(next_), "Encountered improper CDATA opening at line ");
}

void XmlNormalizer::SkipTo(std::string_view end, std::size_t from, std::string_view refusal) {
    const XmlSlice rest = From(next_);
    const std::size_t found = rest.View().find(end, from);
    if (found == std::string_view::npos)
        RefuseAt(rest, refusal);
    next_ += found + end.size();
}

void XmlNormalizer::SkipDocumentType() {
    constexpr std::string_view kOpening = "<!DOCTYPE";
    const XmlSlice rest = From(next_);
    if (!rest.View().starts_with(kOpening))
        RefuseAt(rest, "Malformed DTD on line ");
    const std::size_t end = rest.View().find_first_of("[>", kOpening.size());
    if (end == std::string_view::npos)
        RefuseWith("Encountered unexpected EOF while parsing DTD");
    if (next_[end] == '[')
        RefuseAt(rest.From(end), "Encountered unexpected character [ on line ",
                 " while parsing DTD");
    next_ += end + 1;
}

// At the end of the text, or at a '<' there: behind blanks at the very end, nothing is missed.
void XmlNormalizer::RefuseEnd() const {
    if (openCount_ == 0)
        RefuseWith("No XML content found");
    if (next_ != end_ || !IsWhiteSpace(next_[-1]))
        RefuseAbsence();
    RefuseWith(kUnexpectedEnd);
}

// Where no element stands, the container may lack one.
void XmlNormalizer::RefuseAbsence() const {
    if (key_ != nullptr)
        RefuseAt(From(next_), "Value missing for key inside <dict> at line ");
    if (IsIn(XmlTag::kPlist) && !open_[openCount_ - 1].hasObject)
        RefuseWith("Encountered empty plist tag");
}

void XmlNormalizer::RefuseCharacter() const {
    if (openCount_ == 0)
        RefuseAt(From(next_), "Unexpected character " + Shown(*next_) + " at line ");
    RefuseAt(From(next_), "Encountered unexpected character " + Shown(*next_) + " on line ",
             " while looking for open tag");
}

// ---- Tags ----

bool XmlNormalizer::TakeTag() {
    if (next_[1] == '/' && openCount_ != 0)
        CloseContainer();
    else if (!TakeUsualTag())
        TakeAnyTag();
    return openCount_ != 0;
}

// A tag as most are written, recognised by one word. Returns false for all others.
inline bool XmlNormalizer::TakeUsualTag() {
    if (end_ - next_ <= 8)
        return false;
    const char* const name = next_ + 1;
    const std::uint64_t word = LoadWord(name);
    if (StartsWith(word, "key>") && IsKeyExpected())
        TakeKey(name + 4);
    else if (StartsWith(word, "integer>"))
        TakeScalar<XmlTag::kInteger>(name + 8);
    else if (StartsWith(word, "true/>"))
        TakeEmpty(XmlTag::kTrue, name + 6);
    else if (StartsWith(word, "false/>"))
        TakeEmpty(XmlTag::kFalse, name + 7);
    else if (StartsWith(word, "string>"))
        TakeText<XmlTag::kString>(name + 7);
    else if (StartsWith(word, "dict>"))
        Open(XmlTag::kDict, name + 5);
    else if (StartsWith(word, "array>"))
        Open(XmlTag::kArray, name + 6);
    else
        return false;
    return true;
}

void XmlNormalizer::TakeAnyTag() {
    const OpeningTag opening = ReadOpeningTag();
    if (opening.isEmpty)
        return TakeEmptyTag(opening);
    switch (opening.tag) {
    case XmlTag::kKey:
        if (IsKeyExpected())
            return TakeKey(opening.end);
        return TakeText<XmlTag::kKey>(opening.end);
    case XmlTag::kString:
        return TakeText<XmlTag::kString>(opening.end);
    case XmlTag::kInteger:
        return TakeScalar<XmlTag::kInteger>(opening.end);
    case XmlTag::kReal:
        return TakeScalar<XmlTag::kReal>(opening.end);
    case XmlTag::kDate:
        return TakeScalar<XmlTag::kDate>(opening.end);
    case XmlTag::kData:
        return TakeScalar<XmlTag::kData>(opening.end);
    case XmlTag::kTrue:
    case XmlTag::kFalse:
        return TakeBoolean(opening.tag, opening.end);
    default:
        Open(opening.tag, opening.end);
    }
}

// Up to the first '>', also inside quotes.
XmlNormalizer::OpeningTag XmlNormalizer::ReadOpeningTag() const {
    const XmlSlice rest = From(next_).From(1);
    const std::size_t end = rest.View().find('>');
    if (end == std::string_view::npos)
        RefuseCutTag();
    const bool isEmpty = end > 0 && rest.View()[end - 1] == '/';
    const std::string_view written = rest.View().substr(0, end - (isEmpty ? 1 : 0));
    const std::string_view name = written.substr(0, written.find_first_of(kXmlWhiteSpace));
    if (name.empty())
        RefuseAt(rest, "Malformed tag on line ");
    const XmlTag tag = TagOf(name);
    if (tag == XmlTag::kUnknown)
        RefuseAt(rest, "Encountered unknown tag " + Shown(name) + " on line ");
    return {tag, isEmpty, next_ + 1 + end + 1};
}

// The element around the list is no level of it.
void XmlNormalizer::CheckDepth() const {
    const bool isInPlist = openCount_ != 0 && open_[0].tag == XmlTag::kPlist;
    if (openCount_ == kMaximumNesting + (isInPlist ? 1U : 0U))
        RefuseAt(From(next_), "Too many nested arrays or dictionaries, failing on line ");
}

inline void XmlNormalizer::Open(XmlTag tag, const char* content) {
    CheckDepth();
    EndElement(tag, BeginElement(tag));
    next_ = content;
    open_[openCount_++] = {tag, false};
}

inline void XmlNormalizer::CloseContainer() {
    const XmlTag tag = open_[openCount_ - 1].tag;
    RefuseAbsence();
    TakeClosingTag(tag);
    out_ = WriteClosingTag(out_, tag);
    --openCount_;
}

inline void XmlNormalizer::TakeClosingTag(XmlTag tag) {
    const XmlTagName& name = NameOf(tag);
    const std::size_t length = name.text.size();
    if (end_ - next_ >= 10 && next_[1] == '/' &&
        LowBytes(LoadWord(next_ + 2), length + 1) == name.closing)
        next_ += 2 + length + 1;
    else
        TakeAnyClosingTag(tag);
}

// Around the list it is enough that there are too few bytes for the closing tag.
void XmlNormalizer::TakeAnyClosingTag(XmlTag tag) {
    const XmlSlice place = From(next_);
    const std::string_view name = NameOf(tag).text;
    const std::string_view rest = place.View();
    if (rest.size() > 1 && rest[1] != '/')
        RefuseAt(place, "Encountered unexpected character " + Shown(rest[1]) + " on line ",
                 " while looking for close tag");
    const std::size_t end = rest.find('>');
    if (end == rest.npos || (tag == XmlTag::kPlist && rest.size() < name.size() + 3))
        RefuseWith(kUnexpectedEnd);
    const std::string_view written = rest.substr(2, end - 2);
    if (written.substr(0, written.find_last_not_of(kXmlWhiteSpace) + 1) != name)
        RefuseAt(place, "Close tag on line ", " does not match open tag " + std::string(name));
    next_ += end + 1;
}

void XmlNormalizer::RefuseCutTag() const {
    RefuseAbsence();
    RefuseWith(kUnexpectedEnd);
}

// ---- Elements ----

// Returns where the content goes. The tag of a value was written with its key.
inline char* XmlNormalizer::BeginElement(XmlTag tag) {
    if (key_ != nullptr)
        return out_;
    if (openCount_ != 0 && !IsIn(XmlTag::kArray))
        CheckPlace();
    return WriteTag(out_, tag);
}

void XmlNormalizer::CheckPlace() {
    OpenContainer& container = open_[openCount_ - 1];
    if (container.tag == XmlTag::kDict)
        RefuseAt(From(next_), "Found non-key inside <dict> at line ");
    if (container.hasObject)
        RefuseAt(From(next_), "Encountered unexpected element at line ",
                 " (plist can only include one object)");
    container.hasObject = true;
}

// Makes what was written up to there a part of the normal form.
inline void XmlNormalizer::EndElement(XmlTag tag, char* out) {
    if (key_ != nullptr)
        *std::exchange(key_, nullptr) = static_cast<char>(tag);
    out_ = out;
}

// The normal form is not longer either: <key/> becomes <s/>.
inline void XmlNormalizer::TakeEmpty(XmlTag tag, const char* end) {
    char* const content = BeginElement(tag);
    const bool hasKey = key_ != nullptr;
    EndElement(tag, hasKey ? WriteClosingTag(content, tag) : WriteEmptyTagEnd(content));
    next_ = end;
}

void XmlNormalizer::TakeEmptyTag(const OpeningTag& opening) {
    switch (opening.tag) {
    case XmlTag::kPlist:
        RefuseWith("Encountered empty plist tag");
    case XmlTag::kInteger:
    case XmlTag::kReal:
    case XmlTag::kDate:
    case XmlTag::kData:
        RefuseAt(From(next_),
                 "Encountered empty <" + std::string(NameOf(opening.tag).text) + "> on line ");
    case XmlTag::kKey:
        if (IsKeyExpected())
            return EndKey(WriteTag(out_, XmlTag::kKey), opening.end);
        return TakeEmpty(XmlTag::kString, opening.end);
    default:
        TakeEmpty(opening.tag, opening.end);
    }
}

inline void XmlNormalizer::TakeKey(const char* content) {
    const char* in = content;
    char* const out = CopyText(in, WriteTag(out_, XmlTag::kKey));
    next_ = in;
    TakeClosingTag(XmlTag::kKey);
    EndKey(out, next_);
}

// The letter of the tag stays to be written.
inline void XmlNormalizer::EndKey(char* out, const char* end) {
    *out = kBehindKey;
    key_ = out_ + 1;
    out_ = out + 1;
    next_ = end;
}

template<XmlTag Tag>
inline void XmlNormalizer::TakeText(const char* content) {
    constexpr XmlTag kWritten = XmlTag::kString;
    const char* in = content;
    char* const out = CopyText(in, BeginElement(kWritten));
    EndElement(kWritten, WriteClosingTag(out, kWritten));
    next_ = in;
    TakeClosingTag(Tag);
}

// The closing tag is written before it is looked at: what is wrong with the content comes first.
template<XmlTag Tag>
inline void XmlNormalizer::TakeScalar(const char* content) {
    const char* in = content;
    char* out = CopyPlain(in, BeginElement(Tag));
    while (in != end_ && *in != '<' && *in != '\0')
        *out++ = *in++;
    if (in == end_ || *in == '\0')
        RefuseCutScalar(Tag);
    EndElement(Tag, WriteClosingTag(out, Tag));
    next_ = in;
    TakeClosingTag(Tag);
}

void XmlNormalizer::RefuseCutScalar(XmlTag tag) const {
    if (tag == XmlTag::kInteger)
        RefuseAt(From(next_), "Premature end of file after <integer> on line ");
    RefuseWith(kUnexpectedEnd);
}

void XmlNormalizer::TakeBoolean(XmlTag tag, const char* content) {
    constexpr std::string_view kClosing = "</";
    const std::string_view rest = From(content).View();
    if (!rest.starts_with(kClosing) && !kClosing.starts_with(rest))
        RefuseAt(From(next_),
                 "Encountered non-empty <" + std::string(NameOf(tag).text) + "> on line ");
    TakeEmpty(tag, content);
    TakeClosingTag(tag);
}

// Most texts are plain and need only be copied.
inline char* XmlNormalizer::CopyText(const char*& in, char* out) {
    const char* const content = in;
    char* const end = CopyPlain(in, out);
    if (end_ - in >= 2 && in[0] == '<' && in[1] == '/')
        return end;
    in = content;
    return ResolveText(in, out);
}

char* XmlNormalizer::ResolveText(const char*& in, char* out) {
    const XmlSlice rest = From(in);
    const XmlSlice text = {rest.source, rest.begin, PlaceOf(TextEnd(in))};
    const CharacterData data = ResolveCharacterData(text, out);
    in += data.sourceLength;
    return out + data.textLength;
}

// Copies ASCII up to markup or a NUL, by words that may be written beyond it.
inline char* XmlNormalizer::CopyPlain(const char*& in, char* out) const {
    while (end_ - in >= 8) {
        const std::uint64_t word = LoadWord(in);
        std::memcpy(out, in, sizeof word);
        if (const std::uint64_t special = FindSpecialBytes(word); special != 0) {
            in += FirstByte(special);
            return out + FirstByte(special);
        }
        in += sizeof word;
        out += sizeof word;
    }
    return out;
}

// A key without a value is taken back.
void XmlNormalizer::Finish() {
    if (key_ != nullptr)
        out_ = key_ - 1;
    while (openCount_ != 0)
        out_ = WriteClosingTag(out_, open_[--openCount_].tag);
    *out_ = '\0';
}

} // namespace

// Where the source breaks off, the elements that are open are closed, one of them a scalar.
std::size_t NormalizedCapacity(std::string_view source) {
    return source.size() + (kMaximumOpenElements + 1) * kClosingTagLength + 1;
}

NormalizedXml NormalizeXml(std::string_view source, char* buffer) {
    XmlNormalizer normalizer(source, buffer);
    NormalizedXml result = {};
    try {
        do
            normalizer.FindTag();
        while (normalizer.TakeTag());
    } catch (XmlFault& fault) {
        result.fault = std::move(fault);
    }
    normalizer.Finish();
    result.length = normalizer.Length();
    return result;
}

std::size_t FindInSource(std::string_view source, char* buffer, std::size_t place) {
    XmlNormalizer normalizer(source, buffer);
    while (true) {
        normalizer.FindTag();
        const std::size_t tag = normalizer.SourcePlace();
        const std::size_t content = normalizer.ContentPlace();
        bool hasMore = false;
        try {
            hasMore = normalizer.TakeTag();
        } catch (const XmlFault&) { // the closing tag of the last element
        }
        if (place < normalizer.Length() || !hasMore)
            return source.find('>', tag) + 1 + (place - content);
    }
}

} // namespace cf
