#ifndef PLATFORM_CHUNKQUEUE_H
#define PLATFORM_CHUNKQUEUE_H

#include "loop/Clock.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <list>
#include <span>

namespace cf {

/*
 * A queue of chunks of bytes, each with the time of its arrival, first in, first out.
 *
 * The chunks are stored one behind the other in blocks of 128 KiB. One thread appends them, another
 * one takes them: if each chunk were an object of its own, thousands of pending small ones would
 * fragment the heap of the first thread, and their memory would never go back to the system. A
 * block is so large that the daemon's heap maps and unmaps it as a whole.
 */
class ChunkQueue {
public:
    static constexpr std::size_t kMaximumChunkSize = 64 * 1024;

    struct Chunk {
        std::span<const std::uint8_t> bytes;
        Nanoseconds arrived;
    };

    // Where the bytes of the next chunk may be written, kMaximumChunkSize of them; empty when
    // memory is short.
    std::span<std::uint8_t> Reserve() noexcept;
    // Appends a chunk: the first bytes of Reserve(), one at least.
    void Append(std::size_t length, Nanoseconds arrived) noexcept;

    bool IsEmpty() const noexcept;
    // The first chunk, whose bytes stay until it is removed. The queue is not empty.
    Chunk Front() const noexcept;
    // Keeps the last block for the chunks that follow.
    void RemoveFront() noexcept;
    // Frees all blocks.
    void Clear() noexcept;

    // The memory of all chunks, in bytes, with what the queue stores for each.
    std::size_t Size() const noexcept {
        return size_;
    }

private:
    struct Header {
        Nanoseconds arrived;
        std::size_t length; // of the bytes that follow it
    };
    struct Block {
        Block() noexcept {} // leaves the bytes alone, so that only those in use take memory
        bool HasFreeSpace() const noexcept {
            return bytes.size() - used >= sizeof(Header) + kMaximumChunkSize;
        }
        std::array<std::uint8_t, 2 * kMaximumChunkSize> bytes;
        std::size_t used = 0;
    };

    Header FrontHeader() const noexcept;

    std::list<Block> blocks_;
    std::size_t removed_ = 0; // bytes of the first block whose chunks are gone
    std::size_t size_ = 0;
};

} // namespace cf

#endif
