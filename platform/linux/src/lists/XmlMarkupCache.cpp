#include "lists/XmlMarkupCache.h"

#include "objects/Hash.h"

namespace cf {

void XmlMarkupCache::Add(const XmlMarkup& markup) {
    if (markup.before == 0 || markup.after == 0)
        return;
    const auto hash = HashBytes(markup.source.data(), markup.source.size());
    Entry& entry = entries_[hash % kCapacity];
    if (entry.markup.before != markup.before || entry.markup.source != markup.source)
        entry = {markup, nullptr};
    if (last_ != nullptr)
        last_->successor = &entry;
    last_ = &entry;
}

} // namespace cf
