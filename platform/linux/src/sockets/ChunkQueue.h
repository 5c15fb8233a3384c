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
 * A first-in, first-out queue of chunks of bytes, each with the monotonic time of its arrival.
 *
 * The queue stores the chunks contiguously in blocks of 128 KiB. One thread appends chunks, another
 * removes them: if each chunk were an allocation of its own, thousands of small pending chunks
 * would fragment the first thread's heap, and their memory would never return to the system. A
 * block is large enough for malloc() to map and unmap it as a whole.
 *
 * The queue has no lock; the caller serializes all calls.
 */
class ChunkQueue {
public:
    static constexpr std::size_t kMaximumChunkSize = 64 * 1024;

    struct Chunk {
        std::span<const std::uint8_t> bytes;
        Nanoseconds arrived;
    };

    // The free space for the next chunk, kMaximumChunkSize bytes; empty on a shortage of memory.
    // Valid until the next call of Append(), RemoveFront() or Clear().
    std::span<std::uint8_t> Reserve() noexcept;
    // Appends the first `length` bytes (1 to kMaximumChunkSize) of the space that Reserve() gave.
    void Append(std::size_t length, Nanoseconds arrived) noexcept;

    // True without chunks.
    bool IsEmpty() const noexcept;
    // The first chunk, whose bytes are valid until RemoveFront(). The queue must not be empty.
    Chunk Front() const noexcept;
    // Removes the first chunk and frees its block after the block's last chunk. The queue must not
    // be empty. The last block is kept for further chunks.
    void RemoveFront() noexcept;
    // Removes all chunks and frees all blocks.
    void Clear() noexcept;

    // The bytes of all chunks, with the header that the queue stores with each.
    std::size_t Size() const noexcept {
        return size_;
    }

private:
    struct Header {
        Nanoseconds arrived;
        std::size_t length; // of the chunk's bytes, which follow the header
    };
    struct Block {
        Block() noexcept {} // leaves `bytes` uninitialized: unused pages take no memory
        bool HasFreeSpace() const noexcept {
            return bytes.size() - used >= sizeof(Header) + kMaximumChunkSize;
        }
        std::array<std::uint8_t, 2 * kMaximumChunkSize> bytes;
        std::size_t used = 0;
    };

    Header FrontHeader() const noexcept;

    std::list<Block> blocks_;
    std::size_t removed_ = 0; // bytes of the first block that belong to removed chunks
    std::size_t size_ = 0;
};

} // namespace cf

#endif
