#ifndef PLATFORM_PACKEDBYTES_H
#define PLATFORM_PACKEDBYTES_H

/* Tests of eight bytes at a time, loaded into a word whose lowest byte is the first one. */

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace cf {

inline constexpr std::uint64_t kEachByte = 0x0101010101010101U;
inline constexpr std::uint64_t kEachHighBit = 0x8080808080808080U;

/* Loads the eight bytes from `bytes` on, at any address. */
inline std::uint64_t LoadWord(const char* bytes) noexcept {
    std::uint64_t word;
    std::memcpy(&word, bytes, sizeof word);
    return std::endian::native == std::endian::little ? word : __builtin_bswap64(word);
}

/* The first `count` bytes of the word; the others become 0. */
inline std::uint64_t LowBytes(std::uint64_t word, std::size_t count) noexcept {
    return count < sizeof word ? word & ((std::uint64_t{1} << (8 * count)) - 1) : word;
}

/* A literal of up to eight bytes to compare with the beginning of a word. */
struct WordPrefix {
    std::uint64_t bits = 0;
    std::uint64_t mask = 0;

    // Packs the literal without its terminator.
    template<std::size_t Size>
    consteval WordPrefix(const char (&text)[Size]) {
        static_assert(Size - 1 <= sizeof bits);
        for (std::size_t i = 0; i + 1 < Size; ++i) {
            bits |= std::uint64_t{static_cast<unsigned char>(text[i])} << (8 * i);
            mask |= std::uint64_t{0xFF} << (8 * i);
        }
    }
};

/* True if the word begins with the literal. */
inline bool StartsWith(std::uint64_t word, const WordPrefix& prefix) noexcept {
    return (word & prefix.mask) == prefix.bits;
}

/* The number of leading bytes that equal `byte`. */
inline std::size_t CountLeading(std::uint64_t word, char byte) noexcept {
    return static_cast<std::size_t>(
               std::countr_zero(word ^ kEachByte * static_cast<unsigned char>(byte))) /
           8;
}

/* Masks whose lowest set bit marks the first byte that equals `byte`, or is not ASCII. Higher bits
   may be wrong. FirstByte: the index of the marked byte; 8 if there is none. */
inline std::uint64_t BytesEqual(std::uint64_t word, char byte) noexcept {
    const std::uint64_t difference = word ^ kEachByte * static_cast<unsigned char>(byte);
    return (difference - kEachByte) & ~difference & kEachHighBit;
}
inline std::uint64_t HighBytes(std::uint64_t word) noexcept {
    return word & kEachHighBit;
}
inline std::size_t FirstByte(std::uint64_t mask) noexcept {
    return static_cast<std::size_t>(std::countr_zero(mask)) / 8;
}

} // namespace cf

#endif
