#ifndef PLATFORM_XMLNORMALIZER_H
#define PLATFORM_XMLNORMALIZER_H

/*
 * Converts an XML property list to its normal form, which the parser reads. The normal form lacks
 * all that a property list ignores: declarations, comments, instructions, attributes, white space
 * between tags, and all bytes behind the root element. Only containers are elements, named by one
 * letter (XmlTag.h). A scalar is part of the text of its container: its letter, its content, and
 * kScalarEnd; a boolean is its letter alone. Texts are resolved. A key is the number of its text
 * (XmlKeyTable.h); it precedes its scalar, or the contents of its container inside the element.
 *
 *     <plist version="1.0"><dict>
 *         <key>name</key>                      <p><d>0sa&b;<a>1i1;</a></d></p>
 *         <string>a&amp;b</string>
 *         <key>slots</key>                     with ';' for kScalarEnd
 *         <array><integer>1</integer></array>  and the keys "name" and "slots"
 *     </dict></plist>
 *
 * The contents of numbers, dates and data are copied unchanged, up to the next '<'.
 *
 * The normal form is written in batches: they stay in the caches of the processor, and the memory
 * does not grow with the list. Containers that are open between two batches are closed at the end
 * of the first one and opened again, without their keys, at the beginning of the second one. A
 * batch ends also where the list is cut off or malformed. Each batch is well-formed, whatever the
 * input is.
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

/* Ends a scalar in the normal form. Not a byte of UTF-8. */
inline constexpr char kScalarEnd = '\xFE';

/* A part of the normal form. */
struct XmlBatch {
    char* text;              // may be changed; valid until the next batch is written
    std::size_t length;      // without the NUL behind it
    std::size_t openAtBegin; // containers of the batch before, each the first node in its parent
    std::size_t openAtEnd;   // containers that the next batch continues, each the last node
};

class XmlNormalizer {
public:
    // The length of a batch in bytes. It ends behind the scalar or tag that reaches this length.
    static constexpr std::size_t kBatchLength = 16 * 1024;

    // The source must live as long as the normalizer. Only tests pass a batch length. Throws
    // std::bad_alloc.
    explicit XmlNormalizer(std::string_view source, std::size_t batchLength = kBatchLength);

    // Writes the next batch; nothing behind the root element. If the source is malformed, the batch
    // ends there, and the next call throws the XmlFault with the place in the source. Throws
    // std::bad_alloc.
    std::optional<XmlBatch> NextBatch();

    // The key with that number, borrowed.
    const Object* KeyAt(std::size_t number) const {
        return keys_.KeyAt(number);
    }

    // The offset in the source of a byte in the last batch, given by its offset in the batch. The
    // byte must belong to the content of a number, date or data. Slow, as it normalizes the source
    // again: for error texts only.
    std::size_t FindInSource(std::size_t place) const;

private:
    static constexpr std::ptrdiff_t kPrefetchDistance = 2048; // the minimum distance, in bytes

    // The same position in both texts.
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
    const std::unique_ptr<char[]> buffer_; // large enough for one scalar of the whole source
    std::size_t batches_ = 0;
    const char* next_;
    const char* prefetched_ = begin_; // the source is prefetched up to here
    const char* nul_ = nullptr;       // the last one found, or the end
    char* out_ = nullptr;
    XmlContainerStack containers_;
    XmlKeyTable keys_;
    std::optional<std::size_t> key_; // the number of a key whose value is not yet read
    XmlMarkupCache cache_;
    Place markup_;                           // behind the last scalar's closing tag
    XmlContainerStack::Path markupPath_ = 0; // there; 0 if it must not be cached
    Place lastContent_;                      // of a scalar
    bool isComplete_ = false;
    std::optional<XmlFault> fault_;
};

} // namespace cf

#endif
