#ifndef PLATFORM_XMLNORMALIZER_H
#define PLATFORM_XMLNORMALIZER_H

/*
 * The normal form of an XML property list, which is what the parser gets. What a property list
 * ignores is left out: declarations, comments, instructions, attributes, blanks between tags, and
 * all that stands behind the root element. Only containers are elements, named by one letter
 * (XmlTag.h). Scalars are a part of the text of their container: the letter, the content, and
 * kScalarEnd, but for booleans, which are the letter alone. Texts are resolved. A key is the
 * number of its text (XmlKeyTable.h). It stands in front of its scalar, or in the element of its
 * container before what that contains.
 *
 *     <plist version="1.0"><dict>
 *         <key>name</key>                      <p><d>0sa&b;<a>1i1;</a></d></p>
 *         <string>a&amp;b</string>
 *         <key>slots</key>                     with kScalarEnd for ';'
 *         <array><integer>1</integer></array>  and the keys "name" and "slots"
 *     </dict></plist>
 *
 * The contents of numbers, dates and data are copied as they are, up to the next '<'.
 *
 * It is written in batches, so that it and what is made of it stay in the processor's caches, and
 * reading takes little memory however long the list is. The containers that are open between two
 * batches are closed at the end of the first one, and opened again, without their keys, at the
 * beginning of the second one. Where the list breaks off or is malformed, the batch ends, too: each
 * is well-formed, whatever the text is.
 */

#include "plist/Parsing.h"
#include "plist/XmlContainerStack.h"
#include "plist/XmlKeyTable.h"
#include "plist/XmlMarkupCache.h"
#include "plist/XmlTag.h"

#include <cstddef>
#include <memory>
#include <optional>
#include <string_view>

namespace cf {

/* No byte of UTF-8. */
inline constexpr char kScalarEnd = '\xFE';

struct XmlBatch {
    char* text;              // may be changed; valid until the next batch is written
    std::size_t length;      // without the NUL behind it
    std::size_t openAtBegin; // containers of the batch before, each the first node in its parent
    std::size_t openAtEnd;   // containers that the next batch continues, each the last node
};

class XmlNormalizer {
public:
    // In bytes. A batch ends behind the scalar or tag that reaches it.
    static constexpr std::size_t kBatchLength = 16 * 1024;

    // The source must live as long as the normalizer. Throws std::bad_alloc.
    explicit XmlNormalizer(std::string_view source, std::size_t batchLength = kBatchLength);

    // Writes the next batch; none behind the root element. Where the source is malformed, the batch
    // ends, and the next call throws the XmlFault, with a place in the source. Reads the source
    // once, forward. Throws std::bad_alloc.
    std::optional<XmlBatch> NextBatch();

    // The key that the normal form refers to by that number; borrowed.
    const Object* KeyAt(std::size_t number) const {
        return keys_.KeyAt(number);
    }

    // The place in the source from which a byte of the content of a number, date or data in the
    // last batch was copied. Writes the normal form again, up to there: it is for error texts.
    std::size_t FindInSource(std::size_t place) const;

private:
    static constexpr std::ptrdiff_t kPrefetchDistance = 2048; // what is prefetched at least

    // Where the same thing stands in both texts.
    struct Place {
        const char* source;
        const char* normalForm;
    };
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
    std::size_t Length() const {
        return static_cast<std::size_t>(out_ - buffer_.get());
    }

    void BeginBatch();
    void EndBatch();
    void TakeNext();

    const char* TextEnd(const char* text);

    void SkipWhiteSpace();
    [[gnu::noinline]] void SkipNonElement();
    void SkipTo(std::string_view end, std::size_t from, std::string_view refusal);
    void SkipDocumentType();

    bool TakeCachedMarkup();
    void FindTag();
    void TakeTag();
    bool TakeUsualTag();
    [[gnu::noinline]] void TakeAnyTag();
    OpeningTag ReadOpeningTag() const;
    void CheckDepth() const;
    void Open(XmlTag tag, const char* content);
    void CloseContainer();
    void TakeClosingTag(XmlTag tag);
    [[gnu::noinline]] void TakeAnyClosingTag(XmlTag tag);

    bool IsKeyExpected() const {
        return !key_ && containers_.Tag() == XmlTag::kDict;
    }
    void CheckPlace();
    [[gnu::noinline]] void CheckUnusualPlace();
    char* WriteKey(char* out) const;
    void BeginContainer(XmlTag tag);
    char* BeginScalar(XmlTag tag);
    void EndScalar(char* out);
    void TakeEmpty(XmlTag tag, const char* end);
    void TakeEmptyText(const char* end);
    void TakeEmptyTag(const OpeningTag& opening);
    void TakeKey(const char* content);
    void EndKey(std::string_view text, const char* end);
    void TakeScalar(XmlTag tag, const char* content);
    void CacheMarkup(XmlTag tag, const char* content, const char* out);
    [[gnu::noinline]] void PrefetchSource();
    void TakeContent(XmlTag tag, const char* content, char* out);
    char* CopyNumber(XmlTag tag, const char*& in, char* out) const;
    void TakeBoolean(XmlTag tag, const char* content);
    char* CopyText(const char*& in, char* out);
    [[gnu::noinline]] char* ResolveText(const char*& in, char* out);
    char* CopyPlain(const char*& in, char* out) const;

    void RefuseIfIncomplete() const;
    [[noreturn, gnu::noinline]] void RefuseEnd() const;
    [[noreturn, gnu::noinline]] void RefuseTruncatedTag() const;
    [[noreturn, gnu::noinline]] void RefuseTruncatedScalar(XmlTag tag) const;
    [[noreturn, gnu::noinline]] void RefuseCharacter() const;

    const char* const begin_;
    const char* const end_;
    const std::size_t batchLength_;
    const std::unique_ptr<char[]> buffer_; // for one scalar as long as the source; seldom all used
    std::size_t batches_ = 0;
    const char* next_;
    const char* prefetched_ = begin_; // up to there the processor loads the source
    const char* nul_ = nullptr;       // the last one that was looked for
    char* out_ = nullptr;
    XmlContainerStack containers_;
    XmlKeyTable keys_;
    std::optional<std::size_t> key_; // the number of the key whose value was not yet read
    XmlMarkupCache cache_;
    Place markup_;                           // behind the last scalar's closing tag
    XmlContainerStack::Path markupPath_ = 0; // there; 0 if it must not be cached
    Place lastContent_;                      // of a scalar
    bool isComplete_ = false;
    std::optional<XmlFault> fault_;
};

} // namespace cf

#endif
