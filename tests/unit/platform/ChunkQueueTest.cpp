#include "sockets/ChunkQueue.h"

#include "AllocationFaults.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <random>
#include <string>
#include <string_view>
#include <vector>

namespace cf {
namespace {

constexpr std::size_t kOverhead = 16; // of each chunk
const std::string kLongest(ChunkQueue::kMaximumChunkSize, 'x');

void Append(ChunkQueue& queue, std::string_view text, Nanoseconds arrived) {
    const auto space = queue.Reserve();
    ASSERT_GE(space.size(), text.size());
    std::ranges::copy(text, space.begin());
    queue.Append(text.size(), arrived);
}

std::string TakeFront(ChunkQueue& queue) {
    const auto bytes = queue.Front().bytes;
    std::string text(bytes.begin(), bytes.end());
    queue.RemoveFront();
    return text;
}

TEST(ChunkQueueTest, ChunksComeInOrderWithTheirTimes) {
    ChunkQueue queue;
    EXPECT_TRUE(queue.IsEmpty());
    Append(queue, "one", 10);
    Append(queue, "three", 20);
    EXPECT_EQ(queue.Front().arrived, 10);
    EXPECT_EQ(TakeFront(queue), "one");
    EXPECT_EQ(queue.Front().arrived, 20);
    EXPECT_FALSE(queue.IsEmpty());
    EXPECT_EQ(TakeFront(queue), "three");
    EXPECT_TRUE(queue.IsEmpty());
}

TEST(ChunkQueueTest, SizeCountsTheBytesAndTheOverheadOfEachChunk) {
    ChunkQueue queue;
    EXPECT_EQ(queue.Size(), 0U);
    Append(queue, "one", 0);
    Append(queue, "three", 0);
    EXPECT_EQ(queue.Size(), 3 + 5 + 2 * kOverhead);
    queue.RemoveFront();
    EXPECT_EQ(queue.Size(), 5 + kOverhead);
    queue.RemoveFront();
    EXPECT_EQ(queue.Size(), 0U);
}

TEST(ChunkQueueTest, ReserveAlwaysGivesTheMaximumChunkSize) {
    ChunkQueue queue;
    for (std::size_t length = 1; length <= ChunkQueue::kMaximumChunkSize; length *= 2) {
        ASSERT_EQ(queue.Reserve().size(), ChunkQueue::kMaximumChunkSize) << length;
        queue.Append(length, 0);
    }
    EXPECT_EQ(queue.Reserve().size(), ChunkQueue::kMaximumChunkSize);
}

TEST(ChunkQueueTest, UnusedReserveChangesNothing) {
    ChunkQueue queue;
    queue.Reserve();
    EXPECT_TRUE(queue.IsEmpty());
    Append(queue, kLongest, 1);
    queue.Reserve(); // a second block
    EXPECT_EQ(TakeFront(queue), kLongest);
    EXPECT_TRUE(queue.IsEmpty());
    Append(queue, "next", 2);
    EXPECT_EQ(TakeFront(queue), "next");
}

TEST(ChunkQueueTest, DrainedBlockIsUsedFromItsBeginning) {
    ChunkQueue queue;
    const auto* const begin = queue.Reserve().data();
    for (int i = 0; i < 100; ++i) {
        Append(queue, kLongest, i);
        queue.RemoveFront();
        ASSERT_EQ(queue.Reserve().data(), begin);
    }
}

TEST(ChunkQueueTest, ClearedQueueIsEmptyAndUsable) {
    ChunkQueue queue;
    Append(queue, "first", 1);
    Append(queue, "second", 2);
    queue.RemoveFront();
    queue.Clear();
    EXPECT_TRUE(queue.IsEmpty());
    EXPECT_EQ(queue.Size(), 0U);
    Append(queue, "third", 3);
    EXPECT_EQ(TakeFront(queue), "third");
}

TEST(ChunkQueueTest, ReserveIsEmptyWithoutMemoryForABlock) {
    ChunkQueue queue;
    const auto hasSpace = [&] {
        const AllocationFault fault(1);
        return !queue.Reserve().empty();
    };
    EXPECT_FALSE(hasSpace());
    Append(queue, kLongest, 1);
    EXPECT_FALSE(hasSpace());
    EXPECT_EQ(TakeFront(queue), kLongest);
    EXPECT_TRUE(hasSpace());
}

// The reference is a vector of texts. The bursts often drain the queue and often fill many blocks.
TEST(ChunkQueueTest, BurstsOfChunksOfAnyLengthKeepOrderAndContent) {
    std::mt19937 random(7); // NOLINT(bugprone-random-generator-seed)
    std::uniform_int_distribution<std::size_t> doublings(0, 16);
    std::uniform_int_distribution<int> burst(0, 20);
    ChunkQueue queue;
    std::vector<std::string> pending;
    std::size_t size = 0;
    for (int round = 0; round < 300; ++round) {
        for (int i = burst(random); i > 0; --i) {
            const std::size_t longest = std::size_t{1} << doublings(random);
            const std::size_t length = 1 + random() % longest;
            pending.emplace_back(length, static_cast<char>(random()));
            Append(queue, pending.back(), static_cast<Nanoseconds>(length));
            size += length + kOverhead;
            ASSERT_EQ(queue.Size(), size);
        }
        for (int i = burst(random); i > 0 && !pending.empty(); --i) {
            ASSERT_EQ(queue.Front().arrived, std::ssize(pending.front()));
            ASSERT_EQ(TakeFront(queue), pending.front());
            size -= pending.front().size() + kOverhead;
            pending.erase(pending.begin());
        }
        ASSERT_EQ(queue.IsEmpty(), pending.empty());
        ASSERT_EQ(queue.Size(), size);
    }
}

} // namespace
} // namespace cf
