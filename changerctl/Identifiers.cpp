#include "changerctl/Identifiers.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstddef>
#include <cstdio>

namespace changerctl {
namespace {

constexpr std::size_t kGuidDigits = 16;

// Reads the whole text as an unsigned number; nothing if it is none or does not fit.
template<typename Number>
std::optional<Number> ParseWhole(std::string_view text, int base) {
    Number number = 0;
    const char* const end = text.data() + text.size();
    const auto [last, error] = std::from_chars(text.data(), end, number, base);
    if (error != std::errc() || last != end)
        return std::nullopt;
    return number;
}

std::optional<SlotNumber> ParseSlot(std::string_view text) {
    const auto slot = ParseWhole<SlotNumber>(text, 10);
    return slot && *slot <= kLastSlot ? slot : std::nullopt;
}

// Appends a number or a range; false if the text is neither.
bool AppendRange(std::string_view text, std::vector<SlotNumber>& slots) {
    const std::size_t dash = text.find('-');
    const auto first = ParseSlot(text.substr(0, dash));
    const auto last = dash == std::string_view::npos ? first : ParseSlot(text.substr(dash + 1));
    if (!first || !last || *last < *first)
        return false;
    for (std::uint32_t slot = *first; slot <= *last; ++slot)
        slots.push_back(static_cast<SlotNumber>(slot));
    return true;
}

// Removes later copies of a number; the order of the others stays.
void RemoveDuplicates(std::vector<SlotNumber>& slots) {
    std::vector<bool> seen(std::size_t{kLastSlot} + 1);
    std::erase_if(slots, [&](SlotNumber slot) {
        const bool isCopy = seen[slot];
        seen[slot] = true;
        return isCopy;
    });
}

} // namespace

std::string FormatGuid(ChangerGuid guid) {
    std::array<char, kGuidDigits + 1> text{};
    std::snprintf(text.data(), text.size(), "%016llX", static_cast<unsigned long long>(guid));
    return text.data();
}

std::optional<ChangerGuid> ParseGuid(std::string_view text) {
    if (text.starts_with("0x") || text.starts_with("0X"))
        text.remove_prefix(2);
    return text.size() <= kGuidDigits ? ParseWhole<ChangerGuid>(text, 16) : std::nullopt;
}

std::optional<std::vector<SlotNumber>> ParseSlots(std::string_view text) {
    std::vector<SlotNumber> slots;
    std::size_t begin = 0;
    while (begin <= text.size()) {
        const std::size_t end = std::min(text.find(',', begin), text.size());
        if (!AppendRange(text.substr(begin, end - begin), slots))
            return std::nullopt;
        begin = end + 1;
    }
    RemoveDuplicates(slots);
    return slots;
}

} // namespace changerctl
