#ifndef PLATFORM_HASH_H
#define PLATFORM_HASH_H

/*
 * Hashing with a key that each process draws for itself: property lists come from strangers, who
 * must not be able to choose keys that all fall into one place of a table.
 */

#include <cstddef>
#include <cstdint>

namespace cf {

/* Hash values are this wide, as wide as an object has room for. */
inline constexpr unsigned kHashBits = 24;

std::uint32_t HashBytes(const void* bytes, std::size_t count) noexcept;
std::uint32_t HashWord(std::uint64_t word) noexcept;

/* A hash of several words: start, add each, end. */
class WordHasher {
public:
    WordHasher() noexcept;
    void Add(std::uint64_t word) noexcept {
        state_ = Mix(state_ ^ word);
    }
    std::uint32_t Value() const noexcept {
        return static_cast<std::uint32_t>(Mix(state_) >> (64 - kHashBits));
    }

private:
    // The halves of a product with an odd constant, folded: each bit reaches all others.
    static std::uint64_t Mix(std::uint64_t word) noexcept {
        __extension__ using Product = unsigned __int128;
        const Product product = static_cast<Product>(word) * 0x9E3779B97F4A7C15U;
        return static_cast<std::uint64_t>(product) ^ static_cast<std::uint64_t>(product >> 64);
    }

    std::uint64_t state_;
};

} // namespace cf

#endif
