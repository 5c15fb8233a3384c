/* The key of hashes. This is a separate program: a process draws the key only once. */

#include "objects/Hash.h"

#include <gtest/gtest.h>

#include <sys/random.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <vector>

namespace {

std::vector<std::uint32_t> g_hashes; // of one word, computed during the draws
int g_onlyByte = -1;                 // every byte of a draw; -1: see Draw()

// Three draws, the first two interrupted by the next: random bytes, zeros, an error.
ssize_t Draw(void* bytes, size_t size) {
    if (g_onlyByte >= 0) {
        std::memset(bytes, g_onlyByte, size);
        return static_cast<ssize_t>(size);
    }
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

TEST(HashKey, FirstKeyThatIsSetIsUsedByAllDraws) {
    const std::uint32_t hash = cf::HashWord(1);
    EXPECT_EQ(g_hashes, (std::vector<std::uint32_t>{hash, hash}));
    EXPECT_EQ(cf::HashWord(1), hash);
    EXPECT_NE(cf::HashWord(2), hash);
}

TEST(HashKey, StaysTheSameAfterADrawOfZeros) {
    GTEST_FLAG_SET(death_test_style, "threadsafe"); // a new process without a key
    const auto draw = [] {
        g_onlyByte = 0;
        const std::uint32_t hash = cf::HashWord(1);
        g_onlyByte = 0x55;
        _exit(cf::HashWord(1) == hash ? 0 : 1);
    };
    EXPECT_EXIT(draw(), testing::ExitedWithCode(0), "");
}

} // namespace

extern "C" {
ssize_t __wrap_getrandom(void* bytes, size_t size, unsigned int) {
    return Draw(bytes, size);
}
}
