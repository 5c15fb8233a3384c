#include "objects/Unicode.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <utility>

namespace cf {
namespace {

constexpr std::uint64_t kHighBits = 0x8080808080808080U;

std::uint8_t ByteAt(std::string_view text, std::size_t index) noexcept {
    return static_cast<std::uint8_t>(text[index]);
}

bool IsContinuation(std::uint8_t byte) noexcept {
    return (byte & 0xC0U) == 0x80U;
}

// The length of the ASCII text at the beginning, rounded down to a multiple of two words.
std::size_t AsciiWords(std::string_view text) noexcept {
    std::size_t length = 0;
    std::uint64_t words[2];
    for (; text.size() - length >= sizeof words; length += sizeof words) {
        std::memcpy(words, text.data() + length, sizeof words);
        if (((words[0] | words[1]) & kHighBits) != 0)
            break;
    }
    return length;
}

// The length of the sequence that begins with this byte; 0 if none does.
std::size_t SequenceLength(std::uint8_t lead) noexcept {
    if (lead < 0x80)
        return 1;
    if (lead < 0xC2 || lead > 0xF4)
        return 0;
    return lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
}

// True for a second byte that makes neither an overlong sequence nor a surrogate nor a value beyond
// Unicode.
bool IsSecondByte(std::uint8_t lead, std::uint8_t second) noexcept {
    const std::uint8_t least = lead == 0xE0 ? 0xA0 : lead == 0xF0 ? 0x90 : 0x80;
    const std::uint8_t greatest = lead == 0xED ? 0x9F : lead == 0xF4 ? 0x8F : 0xBF;
    return second >= least && second <= greatest;
}

// The length of the valid sequence at the beginning, or 0.
std::size_t ValidSequence(std::string_view text) noexcept {
    const std::uint8_t lead = ByteAt(text, 0);
    const std::size_t length = SequenceLength(lead);
    if (length > text.size() || (length > 1 && !IsSecondByte(lead, ByteAt(text, 1))))
        return 0;
    for (std::size_t i = 2; i < length; ++i)
        if (!IsContinuation(ByteAt(text, i)))
            return 0;
    return length;
}

} // namespace

bool IsValidUtf8(std::string_view text) noexcept {
    for (text.remove_prefix(AsciiWords(text)); !text.empty();) {
        const std::size_t length = ValidSequence(text);
        if (length == 0)
            return false;
        text.remove_prefix(length);
        if (length == 1)
            text.remove_prefix(AsciiWords(text));
    }
    return true;
}

std::size_t CountUnits(std::string_view text) noexcept {
    std::size_t units = AsciiWords(text);
    for (const char character : text.substr(units)) {
        const auto byte = static_cast<std::uint8_t>(character);
        units += IsContinuation(byte) ? 0U : 1U;
        units += byte >= 0xF0 ? 1U : 0U; // beyond 16 bits: a pair
    }
    return units;
}

char32_t TakeCharacter(std::string_view& text) noexcept {
    const std::uint8_t lead = ByteAt(text, 0);
    const std::size_t length = SequenceLength(lead);
    char32_t character = length == 1 ? lead : lead & (0x7FU >> length);
    for (std::size_t i = 1; i < length; ++i)
        character = character << 6 | (ByteAt(text, i) & 0x3FU);
    text.remove_prefix(length);
    return character;
}

char32_t TakeCharacter(const UniChar*& next, const UniChar* end) noexcept {
    const char32_t first = *next++;
    const bool isLead = (first & 0xFC00U) == 0xD800;
    if (!isLead || next == end || (*next & 0xFC00U) != 0xDC00)
        return first;
    return 0x10000U + ((first & 0x3FFU) << 10 | (*next++ & 0x3FFU));
}

std::size_t EncodedSize(char32_t character) noexcept {
    return character < 0x80 ? 1 : character < 0x800 ? 2 : character < 0x10000 ? 3 : 4;
}

char* Encode(char* place, char32_t character) noexcept {
    static constexpr std::uint8_t kLeads[] = {0, 0, 0xC0, 0xE0, 0xF0};
    const std::size_t size = EncodedSize(character);
    for (std::size_t i = size - 1; i > 0; --i, character >>= 6)
        place[i] = static_cast<char>(0x80U | (character & 0x3FU));
    place[0] = static_cast<char>(size == 1 ? character : kLeads[size] | character);
    return place + size;
}

UniChar UnitReader::Next() noexcept {
    if (trail_ != 0)
        return std::exchange(trail_, UniChar{0});
    const char32_t character = TakeCharacter(rest_);
    if (character < 0x10000)
        return static_cast<UniChar>(character);
    trail_ = static_cast<UniChar>(0xDC00U | (character & 0x3FFU));
    return static_cast<UniChar>(0xD7C0U + (character >> 10));
}

} // namespace cf
