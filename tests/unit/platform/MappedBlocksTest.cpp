/* The block sizes that get mappings of their own in a process that links MappedBlocks.cpp. The end
   of the heap may serve some of the first blocks. A sanitizer replaces the heap: tests are skipped.
 */

#include <gtest/gtest.h>

#include <malloc.h>

#include <cstddef>
#include <cstdlib>
#include <vector>

namespace {

constexpr std::size_t kBlocks = 32;
constexpr std::size_t kServedByHeapEnd = 8;

std::size_t MappingsForBlocksOf(std::size_t size) {
    const std::size_t before = mallinfo2().hblks;
    std::vector<void*> blocks(kBlocks);
    for (void*& block : blocks)
        block = std::malloc(size);
    const std::size_t after = mallinfo2().hblks;
    for (void* block : blocks)
        std::free(block);
    EXPECT_EQ(mallinfo2().hblks, before);
    return after - before;
}

class MappedBlocks : public testing::Test {
protected:
    void SetUp() override {
        if (mallinfo2().arena == 0)
            GTEST_SKIP() << "not the heap of the C library";
    }
};

TEST_F(MappedBlocks, BlocksFrom128KiBAreMapped) {
    EXPECT_GE(MappingsForBlocksOf(std::size_t{128} << 10), kBlocks - kServedByHeapEnd);
    EXPECT_EQ(MappingsForBlocksOf(std::size_t{127} << 10), 0U);
}

TEST_F(MappedBlocks, ThresholdStaysAfterLargeBlockIsFreed) {
    EXPECT_EQ(MappingsForBlocksOf(std::size_t{8} << 20), kBlocks);
    EXPECT_GE(MappingsForBlocksOf(std::size_t{128} << 10), kBlocks - kServedByHeapEnd);
}

} // namespace
