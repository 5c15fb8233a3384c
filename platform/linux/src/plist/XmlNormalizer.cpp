#include "plist/XmlNormalizer.h"

#include "plist/PackedBytes.h"
#include "plist/XmlCharacterData.h"
#include "plist/XmlContainerStack.h"
#include "plist/XmlKeyTable.h"
#include "plist/XmlMarkupCache.h"
#include "plist/XmlScalars.h"
#include "plist/XmlTag.h"

#include <algorithm>
#include <cstring>
#include <optional>
#include <utility>

namespace cf {

namespace {

constexpr std::size_t kOpeningTagLength = 3;
constexpr std::size_t kClosingTagLength = 4;

bool IsWhiteSpace(char character) {
    return character == ' ' || character == '\t' || character == '\n' || character == '\r';
}

char* WriteOpeningTag(char* out, XmlTag tag) {
    const char text[kOpeningTagLength] = {'<', static_cast<char>(tag), '>'};
    std::memcpy(out, text, sizeof text);
    return out + sizeof text;
}

char* WriteClosingTag(char* out, XmlTag tag) {
    const char text[kClosingTagLength] = {'<', '/', static_cast<char>(tag), '>'};
    std::memcpy(out, text, sizeof text);
    return out + sizeof text;
}

char* WriteScalarEnd(char* out) {
    *out = kScalarEnd;
    return out + 1;
}

// Marks the bytes that cannot be copied unchanged: NUL, markup and those that are not ASCII.
std::uint64_t FindSpecialBytes(std::uint64_t word) {
    return HighBytes(word) | BytesEqual(word, '<') | BytesEqual(word, '&') | BytesEqual(word, '\0');
}

} // namespace

XmlNormalizer::XmlNormalizer(std::string_view source, std::size_t batchLength)
    : begin_(source.data()), end_(begin_ + source.size()), batchLength_(batchLength),
      buffer_(std::make_unique_for_overwrite<char[]>(
          source.size() +
          XmlContainerStack::kMaximumDepth * (kOpeningTagLength + kClosingTagLength) + 1)),
      next_(begin_), markup_{begin_, nullptr}, lastContent_(markup_) {}

// ---- Batches ----

std::optional<XmlBatch> XmlNormalizer::NextBatch() {
    if (fault_)
        throw *fault_;
    if (isComplete_)
        return std::nullopt;
    const std::size_t reopened = containers_.Depth();
    BeginBatch();
    try {
        do
            TakeNext();
        while (Length() < batchLength_ && !isComplete_);
    } catch (XmlFault& fault) {
        fault_ = std::move(fault);
    }
    EndBatch();
    return XmlBatch{buffer_.get(), Length(), reopened, containers_.Depth()};
}

// Markup that begins in the batch before is not cached.
void XmlNormalizer::BeginBatch() {
    ++batches_;
    out_ = buffer_.get();
    for (std::size_t depth = 1; depth <= containers_.Depth(); ++depth)
        out_ = WriteOpeningTag(out_, containers_.TagAt(depth));
    markup_.normalForm = out_;
    if (next_ != markup_.source)
        markupPath_ = 0;
}

void XmlNormalizer::EndBatch() {
    for (std::size_t depth = containers_.Depth(); depth > 0; --depth)
        out_ = WriteClosingTag(out_, containers_.TagAt(depth));
    *out_ = '\0';
}

// The XmlFault may come from the closing tag of the scalar itself; its content is then written.
std::size_t XmlNormalizer::FindInSource(std::size_t place) const {
    XmlNormalizer again({begin_, end_}, batchLength_);
    while (again.batches_ + 1 < batches_)
        again.NextBatch();
    again.BeginBatch();
    try {
        while (again.Length() <= place && !again.isComplete_)
            again.TakeNext();
    } catch (const XmlFault&) {
    }
    const char* const copied = again.buffer_.get() + place;
    return again.PlaceOf(again.lastContent_.source + (copied - again.lastContent_.normalForm));
}

// The next NUL, which ends a text. The result is reused for all texts before it, or reading would
// not be linear.
const char* XmlNormalizer::TextEnd(const char* text) {
    if (nul_ == nullptr || nul_ < text)
        nul_ = std::find(text, end_, '\0');
    return nul_;
}

// ---- Between tags ----

// The fast path: a new line, indented by tabs.
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
        SkipNonElement();
    }
}

void XmlNormalizer::SkipNonElement() {
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
    else if (containers_.IsEmpty())
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

// Precondition: the next byte is the end, a NUL, or a '<' at the end. After white space, the error
// at the end is not "a missing element".
void XmlNormalizer::RefuseEnd() const {
    if (containers_.IsEmpty())
        RefuseWith("No XML content found");
    if (next_ != end_ || !IsWhiteSpace(next_[-1]))
        RefuseIfIncomplete();
    RefuseWith(kUnexpectedEnd);
}

// Throws if the innermost container still needs a value. Called where there is no element.
void XmlNormalizer::RefuseIfIncomplete() const {
    if (key_)
        RefuseAt(From(next_), "Value missing for key inside <dict> at line ");
    if (containers_.Tag() == XmlTag::kPlist && !containers_.HasObject())
        RefuseWith("Encountered empty plist tag");
}

void XmlNormalizer::RefuseCharacter() const {
    if (containers_.IsEmpty())
        RefuseAt(From(next_), "Unexpected character " + Printable(*next_) + " at line ");
    RefuseAt(From(next_), "Encountered unexpected character " + Printable(*next_) + " on line ",
             " while looking for open tag");
}

// ---- Tags ----

// Reads the next tag, and the whole element if it is not a container.
void XmlNormalizer::TakeNext() {
    if (!TakeCachedMarkup()) {
        FindTag();
        TakeTag();
    }
    isComplete_ = containers_.IsEmpty();
}

// Reads cached markup and the scalar behind it. Returns false if the markup is not cached, or if a
// part of it was already read: behind a key, the same text has another meaning.
inline bool XmlNormalizer::TakeCachedMarkup() {
    if (next_ != markup_.source)
        return false;
    const XmlMarkup* const markup = cache_.MatchSuccessor({next_, end_}, containers_.CurrentPath());
    if (markup == nullptr)
        return false;
    const char* const content = next_ + markup->source.size();
    char* const out = out_ + markup->normalForm.size();
    std::memcpy(out_, markup->normalForm.data(), markup->normalForm.size());
    containers_.SetPath(markup->after);
    next_ += markup->tagPlace;
    out_ += markup->scalarPlace;
    TakeContent(markup->tag, content, out);
    return true;
}

inline void XmlNormalizer::TakeTag() {
    if (next_[1] == '/' && !containers_.IsEmpty())
        CloseContainer();
    else if (!TakeUsualTag())
        TakeAnyTag();
}

// Reads one of the most frequent tags, compared as one word. Returns false for all others.
inline bool XmlNormalizer::TakeUsualTag() {
    if (end_ - next_ <= 8)
        return false;
    const char* const name = next_ + 1;
    const std::uint64_t word = LoadWord(name);
    if (StartsWith(word, "key>") && IsKeyExpected())
        TakeKey(name + 4);
    else if (StartsWith(word, "integer>"))
        TakeScalar(XmlTag::kInteger, name + 8);
    else if (StartsWith(word, "true/>"))
        TakeEmpty(XmlTag::kTrue, name + 6);
    else if (StartsWith(word, "false/>"))
        TakeEmpty(XmlTag::kFalse, name + 7);
    else if (StartsWith(word, "string>"))
        TakeScalar(XmlTag::kString, name + 7);
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
        return TakeScalar(XmlTag::kKey, opening.end);
    case XmlTag::kString:
    case XmlTag::kInteger:
    case XmlTag::kReal:
    case XmlTag::kDate:
    case XmlTag::kData:
        return TakeScalar(opening.tag, opening.end);
    case XmlTag::kTrue:
    case XmlTag::kFalse:
        return TakeBoolean(opening.tag, opening.end);
    default:
        Open(opening.tag, opening.end);
    }
}

// The tag ends at the first '>', even inside quotes.
XmlNormalizer::OpeningTag XmlNormalizer::ReadOpeningTag() const {
    const XmlSlice rest = From(next_).From(1);
    const std::size_t end = rest.View().find('>');
    if (end == std::string_view::npos)
        RefuseTruncatedTag();
    const bool isEmpty = end > 0 && rest.View()[end - 1] == '/';
    const std::string_view written = rest.View().substr(0, end - (isEmpty ? 1 : 0));
    const std::string_view name = written.substr(0, written.find_first_of(kXmlWhiteSpace));
    if (name.empty())
        RefuseAt(rest, "Malformed tag on line ");
    const XmlTag tag = TagOf(name);
    if (tag == XmlTag::kUnknown)
        RefuseAt(rest, "Encountered unknown tag " + Printable(name) + " on line ");
    return {tag, isEmpty, next_ + 1 + end + 1};
}

void XmlNormalizer::CheckDepth() const {
    if (containers_.IsFull())
        RefuseAt(From(next_), "Too many nested arrays or dictionaries, failing on line ");
}

inline void XmlNormalizer::Open(XmlTag tag, const char* content) {
    CheckDepth();
    BeginContainer(tag);
    next_ = content;
    containers_.Push(tag);
}

inline void XmlNormalizer::CloseContainer() {
    const XmlTag tag = containers_.Tag();
    RefuseIfIncomplete();
    TakeClosingTag(tag);
    out_ = WriteClosingTag(out_, tag);
    containers_.Pop();
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

// The list is also cut off if too few bytes are left for "</plist>".
void XmlNormalizer::TakeAnyClosingTag(XmlTag tag) {
    const XmlSlice place = From(next_);
    const std::string_view name = NameOf(tag).text;
    const std::string_view rest = place.View();
    if (rest.size() > 1 && rest[1] != '/')
        RefuseAt(place, "Encountered unexpected character " + Printable(rest[1]) + " on line ",
                 " while looking for close tag");
    const std::size_t end = rest.find('>');
    if (end == rest.npos || (tag == XmlTag::kPlist && rest.size() < name.size() + 3))
        RefuseWith(kUnexpectedEnd);
    const std::string_view written = rest.substr(2, end - 2);
    if (written.substr(0, written.find_last_not_of(kXmlWhiteSpace) + 1) != name)
        RefuseAt(place, "Close tag on line ", " does not match open tag " + std::string(name));
    next_ += end + 1;
}

void XmlNormalizer::RefuseTruncatedTag() const {
    RefuseIfIncomplete();
    RefuseWith(kUnexpectedEnd);
}

// ---- Elements ----

inline void XmlNormalizer::CheckPlace() {
    if (!key_ && !containers_.IsEmpty() && containers_.Tag() != XmlTag::kArray)
        CheckUnusualPlace();
}

void XmlNormalizer::CheckUnusualPlace() {
    if (containers_.Tag() == XmlTag::kDict)
        RefuseAt(From(next_), "Found non-key inside <dict> at line ");
    if (containers_.HasObject())
        RefuseAt(From(next_), "Encountered unexpected element at line ",
                 " (plist can only include one object)");
    containers_.SetHasObject();
}

// Writes the key of a value, if it has one.
inline char* XmlNormalizer::WriteKey(char* out) const {
    return key_ ? WriteKeyReference(out, *key_) : out;
}

inline void XmlNormalizer::BeginContainer(XmlTag tag) {
    CheckPlace();
    out_ = WriteKey(WriteOpeningTag(out_, tag));
    key_.reset();
}

// Writes the beginning of a scalar; returns the place for its content.
inline char* XmlNormalizer::BeginScalar(XmlTag tag) {
    CheckPlace();
    char* const out = WriteKey(out_);
    *out = static_cast<char>(tag == XmlTag::kKey ? XmlTag::kString : tag);
    return out + 1;
}

// Commits a scalar that was written up to `out`.
inline void XmlNormalizer::EndScalar(char* out) {
    key_.reset();
    out_ = out;
}

// The normal form is not longer: <dict/> becomes <d></d>.
inline void XmlNormalizer::TakeEmpty(XmlTag tag, const char* end) {
    if (tag == XmlTag::kTrue || tag == XmlTag::kFalse) {
        EndScalar(BeginScalar(tag));
    } else {
        BeginContainer(tag);
        out_ = WriteClosingTag(out_, tag);
    }
    next_ = end;
}

void XmlNormalizer::TakeEmptyText(const char* end) {
    EndScalar(WriteScalarEnd(BeginScalar(XmlTag::kString)));
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
        return IsKeyExpected() ? EndKey({}, opening.end) : TakeEmptyText(opening.end);
    case XmlTag::kString:
        return TakeEmptyText(opening.end);
    default:
        TakeEmpty(opening.tag, opening.end);
    }
}

inline void XmlNormalizer::TakeKey(const char* content) {
    const char* in = content;
    const char* const text = out_;
    const char* const textEnd = CopyText(in, out_);
    next_ = in;
    TakeClosingTag(XmlTag::kKey);
    EndKey({text, textEnd}, next_);
}

inline void XmlNormalizer::EndKey(std::string_view text, const char* end) {
    key_ = keys_.NumberOf(CreateText(text));
    next_ = end;
}

inline void XmlNormalizer::TakeScalar(XmlTag tag, const char* content) {
    char* const out = BeginScalar(tag);
    CacheMarkup(tag, content, out);
    TakeContent(tag, content, out);
}

inline void XmlNormalizer::CacheMarkup(XmlTag tag, const char* content, const char* out) {
    cache_.Add({.source = {markup_.source, content},
                .tagPlace = static_cast<std::size_t>(next_ - markup_.source),
                .normalForm = {markup_.normalForm, out},
                .scalarPlace = static_cast<std::size_t>(out_ - markup_.normalForm),
                .tag = tag,
                .before = markupPath_,
                .after = containers_.CurrentPath()});
}

// The prefetcher of the processor stops at the end of a page.
void XmlNormalizer::PrefetchSource() {
    constexpr std::ptrdiff_t kLine = 64;
    constexpr std::ptrdiff_t kStep = 16 * kLine;
    while (prefetched_ - next_ < kPrefetchDistance && end_ - prefetched_ > kStep) {
        for (std::ptrdiff_t at = 0; at < kStep; at += kLine)
            __builtin_prefetch(prefetched_ + at);
        prefetched_ += kStep;
    }
}

// Reads the content and the closing tag of a scalar whose beginning was written up to `out`.
// Commits the scalar before it checks the closing tag, because an error in the content must be
// reported first.
inline void XmlNormalizer::TakeContent(XmlTag tag, const char* content, char* out) {
    const bool isText = tag == XmlTag::kString || tag == XmlTag::kKey;
    lastContent_ = {content, out};
    if (prefetched_ - next_ < kPrefetchDistance)
        PrefetchSource();
    const char* in = content;
    char* const end = isText ? CopyText(in, out) : CopyNumber(tag, in, out);
    EndScalar(WriteScalarEnd(end));
    next_ = in;
    TakeClosingTag(tag);
    markup_ = {next_, out_};
    markupPath_ = containers_.CurrentPath();
}

// Copies the content of a number, date or data. A kScalarEnd in it would end the scalar in the
// normal form. None of the types accepts such a byte, so ReadNumber() throws the error that fits.
inline char* XmlNormalizer::CopyNumber(XmlTag tag, const char*& in, char* out) const {
    const char* const content = in;
    out = CopyPlain(in, out);
    while (in != end_ && *in != '<' && *in != '\0')
        *out++ = *in++;
    if (in == end_ || *in == '\0')
        RefuseTruncatedScalar(tag);
    if (std::find(content, in, kScalarEnd) != in)
        ReadNumber(tag, {From(content).source, PlaceOf(content), PlaceOf(in)});
    return out;
}

void XmlNormalizer::RefuseTruncatedScalar(XmlTag tag) const {
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

// Most texts are plain ASCII and only copied.
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

// Copies ASCII up to markup or a NUL. Writes whole words, so up to 7 bytes behind the result
// change.
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

} // namespace cf
