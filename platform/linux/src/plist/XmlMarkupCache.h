#ifndef PLATFORM_XMLMARKUPCACHE_H
#define PLATFORM_XMLMARKUPCACHE_H

/*
 * A cache of the normal forms of markup. Markup is all text between two scalars: tags, keys,
 * booleans and white space. The members of a list mostly have the same structure, so the markup
 * behind a scalar is mostly the same as in the member before.
 *
 * A search compares the text with the successor of the last entry, without hashing. An entry
 * depends only on its text and on the containers that are open before it. It refers to its text,
 * which must live as long as the cache, and has a copy of its normal form.
 */

#include "plist/XmlContainerStack.h"
#include "plist/XmlTag.h"

#include <array>
#include <cstddef>
#include <string_view>

namespace cf {

/* From the end of one scalar's closing tag to the content of the next scalar. */
struct XmlMarkup {
    std::string_view source;
    std::size_t tagPlace; // of the next scalar's opening tag in the source
    std::string_view normalForm;
    std::size_t scalarPlace; // of the next scalar, with its key, in the normal form
    XmlTag tag;              // of the next scalar
    XmlContainerStack::Path before;
    XmlContainerStack::Path after;
};

class XmlMarkupCache {
public:
    // The maximum number of entries. A further one replaces all of them.
    static constexpr std::size_t kCapacity = 128;
    // The maximum length of a normal form that is cached; longer ones are rare.
    static constexpr std::size_t kMaximumLength = 64;

    // The successor of the last entry, if the text begins with it and the path is the one before
    // it; else nullptr. It is then the last entry.
    const XmlMarkup* MatchSuccessor(std::string_view text, XmlContainerStack::Path path) {
        Entry* const successor = last_ != nullptr ? last_->successor : nullptr;
        if (successor == nullptr || successor->markup.before != path ||
            !text.starts_with(successor->markup.source))
            return nullptr;
        last_ = successor;
        return &successor->markup;
    }

    // Adds the markup, unless it is cached, as the successor of the last entry. It is then the last
    // entry. Ignores markup with a path of 0 or with a longer normal form.
    void Add(const XmlMarkup& markup);

private:
    struct Entry {
        XmlMarkup markup;
        Entry* successor;
        std::array<char, kMaximumLength> normalForm;
    };
    Entry& FindOrAdd(const XmlMarkup& markup);

    std::array<Entry, kCapacity> entries_;
    std::size_t count_ = 0;
    // Open addressing: the index of an entry + 1, or 0 for a free slot.
    std::array<unsigned char, 2 * kCapacity> slots_ = {};
    Entry* last_ = nullptr;
};

} // namespace cf

#endif
