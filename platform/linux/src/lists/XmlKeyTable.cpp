#include "lists/XmlKeyTable.h"

#include "objects/Hash.h"
#include "objects/OpenAddressing.h"

#include <algorithm>

namespace cf {

std::size_t XmlKeyTable::NumberOf(std::string_view text) {
    if (!HasRoomForOneMore(keys_.size(), slots_.size()))
        Grow();
    const auto isFree = [this](std::size_t slot) { return slots_[slot] == 0; };
    const auto isSought = [this, text](std::size_t slot) {
        return keys_[slots_[slot] - 1] == text;
    };
    const std::size_t slot =
        Probe(HashBytes(text.data(), text.size()), slots_.size(), isFree, isSought);
    if (isFree(slot)) {
        texts_ = std::copy_backward(text.begin(), text.end(), texts_);
        keys_.emplace_back(texts_, text.size());
        slots_[slot] = static_cast<std::uint32_t>(keys_.size());
    }
    return slots_[slot] - 1;
}

// Keys are hashed again, because storing their hashes would cost memory for each key.
void XmlKeyTable::Grow() {
    std::vector<std::uint32_t> slots(std::max<std::size_t>(64, slots_.size() * 2));
    const auto isFree = [&slots](std::size_t slot) { return slots[slot] == 0; };
    const auto never = [](std::size_t) { return false; };
    for (std::uint32_t i = 0; i < keys_.size(); ++i) {
        const std::uint32_t hash = HashBytes(keys_[i].data(), keys_[i].size());
        slots[Probe(hash, slots.size(), isFree, never)] = i + 1;
    }
    slots_ = std::move(slots);
    keys_.reserve(slots_.size() / 4 * 3);
}

} // namespace cf
