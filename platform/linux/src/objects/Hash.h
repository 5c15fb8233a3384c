#ifndef PLATFORM_HASH_H
#define PLATFORM_HASH_H

/*
 * Hashes with a random key of the process. Property lists are untrusted input: without the key,
 * their author could choose keys that all collide. All functions are safe on any thread.
 */

#include <cstddef>
#include <cstdint>

namespace cf {

/* The width of hash values in bits: that of hashValue in the header of an object. */
inline constexpr unsigned kHashBits = 24;

/* The hash of the bytes, or of one word. */
std::uint32_t HashBytes(const void* bytes, std::size_t count) noexcept;
std::uint32_t HashWord(std::uint64_t word) noexcept;

/* The hash of a sequence of words. */
class WordHasher {
public:
    WordHasher() noexcept;
    // Appends a word to the sequence.
    void Add(std::uint64_t word) noexcept {
        state_ = Mix(state_ ^ word);
    }
    // The hash of the words added so far.
    std::uint32_t Value() const noexcept {
        return static_cast<std::uint32_t>(Mix(state_) >> (64 - kHashBits));
    }

private:
    // Multiplies by an odd constant and folds both halves: each bit affects all others.
    static std::uint64_t Mix(std::uint64_t word) noexcept {
        __extension__ using Product = unsigned __int128;
        const Product product = static_cast<Product>(word) * 0x9E3779B97F4A7C15U;
        return static_cast<std::uint64_t>(product) ^ static_cast<std::uint64_t>(product >> 64);
    }

    std::uint64_t state_;
};

} // namespace cf

#endif
