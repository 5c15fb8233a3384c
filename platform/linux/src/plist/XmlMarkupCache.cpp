#include "plist/XmlMarkupCache.h"

#include "objects/Hash.h"
#include "objects/OpenAddressing.h"

#include <algorithm>

namespace cf {

namespace {

// Hashes the end, which has the last key, and the length: in these the markup of a list mostly
// differs.
std::size_t HashOf(std::string_view source) {
    const std::size_t hashed = std::min<std::size_t>(source.size(), 64);
    return HashBytes(source.end() - hashed, hashed) + source.size();
}

} // namespace

void XmlMarkupCache::Add(const XmlMarkup& markup) {
    if (markup.before == 0 || markup.after == 0 || markup.normalForm.size() > kMaximumLength)
        return;
    Entry& entry = FindOrAdd(markup);
    if (last_ != nullptr)
        last_->successor = &entry;
    last_ = &entry;
}

// An entry that was replaced may still be the successor of another one. That is safe: it matches
// its new text only.
XmlMarkupCache::Entry& XmlMarkupCache::FindOrAdd(const XmlMarkup& markup) {
    const auto isFree = [this](std::size_t slot) { return slots_[slot] == 0; };
    const auto isSought = [&](std::size_t slot) {
        const XmlMarkup& cached = entries_[slots_[slot] - 1U].markup;
        return cached.before == markup.before && cached.source == markup.source;
    };
    const std::size_t slot = Probe(HashOf(markup.source), slots_.size(), isFree, isSought);
    if (!isFree(slot))
        return entries_[slots_[slot] - 1U];
    if (count_ == kCapacity) {
        slots_ = {};
        count_ = 0;
        return FindOrAdd(markup);
    }
    Entry& entry = entries_[count_++];
    entry.markup = markup;
    entry.successor = nullptr;
    std::ranges::copy(markup.normalForm, entry.normalForm.begin());
    entry.markup.normalForm = {entry.normalForm.data(), markup.normalForm.size()};
    slots_[slot] = static_cast<unsigned char>(count_);
    return entry;
}

} // namespace cf
