#include "objects/Hash.h"

#include <sys/random.h>

#include <atomic>
#include <cstring>

namespace cf {
namespace {

constinit std::atomic<std::uint64_t> g_key{0};

// The first call draws the key. Without random bytes a constant is used: hashes then work, but are
// predictable.
std::uint64_t DrawKey() noexcept {
    std::uint64_t drawn = 0;
    if (getrandom(&drawn, sizeof drawn, GRND_NONBLOCK) != sizeof drawn || drawn == 0)
        drawn = 0xD6E8FEB86659FD93U;
    std::uint64_t key = 0;
    return g_key.compare_exchange_strong(key, drawn, std::memory_order_relaxed) ? drawn : key;
}

std::uint64_t Key() noexcept {
    const std::uint64_t key = g_key.load(std::memory_order_relaxed);
    return key != 0 ? key : DrawKey();
}

} // namespace

WordHasher::WordHasher() noexcept : state_(Key()) {}

std::uint32_t HashWord(std::uint64_t word) noexcept {
    WordHasher hasher;
    hasher.Add(word);
    return hasher.Value();
}

std::uint32_t HashBytes(const void* bytes, std::size_t count) noexcept {
    WordHasher hasher;
    hasher.Add(count);
    const auto* next = static_cast<const unsigned char*>(bytes);
    std::uint64_t word = 0;
    for (; count >= sizeof word; count -= sizeof word, next += sizeof word) {
        std::memcpy(&word, next, sizeof word);
        hasher.Add(word);
    }
    if (count > 0) { // the rest of the word is left from the bytes before
        std::memcpy(&word, next, count);
        hasher.Add(word);
    }
    return hasher.Value();
}

} // namespace cf
