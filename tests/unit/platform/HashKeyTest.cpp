/* A program of its own, as a process draws the key only once. */

#include "objects/Hash.h"

#include <gtest/gtest.h>
#include <sys/random.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <vector>

namespace {

std::vector<std::uint32_t> g_hashes; // of the same word, while others were drawing

// The draws, of which each but the last is overtaken by the next: random bytes, zeros, none.
ssize_t Draw(void* bytes, size_t size) {
    static int draw = 0;
    constexpr int kLastDraw = 2;
    const int own = draw++;
    if (own == kLastDraw) {
        errno = EAGAIN;
        return -1;
    }
    g_hashes.push_back(cf::HashWord(1));
    std::memset(bytes, own == 0 ? 0x55 : 0, size);
    return static_cast<ssize_t>(size);
}

TEST(HashKey, OfTheFirstToDrawIsEverybodys) {
    const std::uint32_t hash = cf::HashWord(1);
    EXPECT_EQ(g_hashes, (std::vector<std::uint32_t>{hash, hash}));
    EXPECT_EQ(cf::HashWord(1), hash);
    EXPECT_NE(cf::HashWord(2), hash);
}

} // namespace

extern "C" {
ssize_t __wrap_getrandom(void* bytes, size_t size, unsigned int flags);

ssize_t __wrap_getrandom(void* bytes, size_t size, unsigned int) {
    return Draw(bytes, size);
}
}
