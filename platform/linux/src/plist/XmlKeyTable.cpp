#include "plist/XmlKeyTable.h"

#include "objects/OpenAddressing.h"

#include <algorithm>
#include <utility>

namespace cf {

std::size_t XmlKeyTable::NumberOf(Value key) {
    if (!HasCapacityForOneMore(keys_.size(), slots_.size()))
        Grow();
    const auto isFree = [this](std::size_t slot) { return slots_[slot] == 0; };
    const auto isSought = [&](std::size_t slot) { return KeyAt(slots_[slot] - 1) == key.Get(); };
    const std::size_t slot = Probe(Hash(key.Get()), slots_.size(), isFree, isSought);
    if (isFree(slot)) {
        keys_.push_back(std::move(key));
        slots_[slot] = static_cast<std::uint32_t>(keys_.size());
    }
    return slots_[slot] - 1;
}

void XmlKeyTable::Grow() {
    std::vector<std::uint32_t> slots(std::max<std::size_t>(64, slots_.size() * 2));
    const auto isFree = [&slots](std::size_t slot) { return slots[slot] == 0; };
    const auto never = [](std::size_t) { return false; };
    for (std::uint32_t i = 0; i < keys_.size(); ++i)
        slots[Probe(Hash(KeyAt(i)), slots.size(), isFree, never)] = i + 1;
    slots_ = std::move(slots);
    keys_.reserve(slots_.size() / 4 * 3);
}

} // namespace cf
