/* The memory that pending chunks leave behind in the heap of the C library, which the daemon uses.
   Skipped with a sanitizer, which replaces that heap. */

#include "Callouts.h"
#include "LocalServer.h"
#include "TestSocket.h"

#include <CoreFoundation/CoreFoundation.h>

#include <gtest/gtest.h>

#include <malloc.h>

#include <cstddef>
#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

namespace {

constexpr std::size_t kMebibyte = std::size_t{1} << 20;
constexpr std::size_t kPiece = 16 * 1024;

// In bytes.
std::size_t PrivateDirtyMemory() {
    std::ifstream rollup("/proc/self/smaps_rollup");
    std::string word;
    while (rollup >> word && word != "Private_Dirty:") {
    }
    std::size_t kibibytes = 0;
    rollup >> kibibytes;
    return kibibytes * 1024;
}

std::size_t MappedBytes() {
    return mallinfo2().hblkhd;
}

class SocketMemoryTest : public testing::Test {
protected:
    void SetUp() override {
        if (mallinfo2().arena == 0)
            GTEST_SKIP() << "the heap is not that of the C library";
        socket_.AddToLoop();
    }

    // Writes chunks of kPiece bytes. All are read and pending on return.
    void Send(std::size_t size) const {
        const std::string piece(kPiece, 'x');
        for (std::size_t sent = 0; sent < size; sent += kPiece) {
            peer_.Write(piece);
            peer_.AwaitReading();
        }
    }

    const LocalServer server_;
    TestSocket socket_{server_};
    const Peer peer_{server_.Accept()};
};

TEST_F(SocketMemoryTest, InvalidatedSocketFreesItsPendingChunks) {
    const std::size_t before = MappedBytes();
    Send(kMebibyte);
    EXPECT_GE(MappedBytes(), before + kMebibyte);
    CFSocketInvalidate(socket_.Get());
    EXPECT_EQ(MappedBytes(), before);
}

// Small blocks are allocated meanwhile, as for a list that is built from the chunks. They use the
// addresses of blocks that the reading thread has allocated and freed.
TEST_F(SocketMemoryTest, ManyPendingChunksLeaveNoMemory) {
    constexpr std::size_t kSent = 32 * kMebibyte;
    std::vector<void*> lasting;
    lasting.reserve(kSent / 1024);
    std::size_t received = 0;
    socket_.atChunk = [&] {
        received += socket_.chunks.back().size();
        socket_.chunks.clear();
        for (std::size_t size = 24; size < 128; size += 16)
            lasting.push_back(std::malloc(size));
        if (received == kSent)
            StopCurrentRun();
    };
    const std::size_t before = PrivateDirtyMemory();
    Send(kSent);
    EXPECT_GE(PrivateDirtyMemory(), before + kSent);
    CFRunLoopRun();
    EXPECT_LE(PrivateDirtyMemory(), before + 4 * kMebibyte);
    for (void* block : lasting)
        std::free(block);
}

} // namespace
