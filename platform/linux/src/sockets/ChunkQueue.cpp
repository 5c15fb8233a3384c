#include "sockets/ChunkQueue.h"

#include <cstring>
#include <new>

namespace cf {

std::span<std::uint8_t> ChunkQueue::Reserve() noexcept {
    if (blocks_.empty() || !blocks_.back().HasFreeSpace()) {
        try {
            blocks_.emplace_back();
        } catch (const std::bad_alloc&) {
            return {};
        }
    }
    Block& block = blocks_.back();
    return std::span(block.bytes).subspan(block.used + sizeof(Header), kMaximumChunkSize);
}

void ChunkQueue::Append(std::size_t length, Nanoseconds arrived) noexcept {
    Block& block = blocks_.back();
    const Header header = {arrived, length};
    std::memcpy(block.bytes.data() + block.used, &header, sizeof header);
    block.used += sizeof header + length;
    size_ += sizeof header + length;
}

bool ChunkQueue::IsEmpty() const noexcept {
    return size_ == 0;
}

// Copies the header, which is not aligned: chunks have any length.
ChunkQueue::Header ChunkQueue::FrontHeader() const noexcept {
    Header header = {};
    std::memcpy(&header, blocks_.front().bytes.data() + removed_, sizeof header);
    return header;
}

ChunkQueue::Chunk ChunkQueue::Front() const noexcept {
    const Header header = FrontHeader();
    const std::span bytes(blocks_.front().bytes);
    return {bytes.subspan(removed_ + sizeof header, header.length), header.arrived};
}

void ChunkQueue::RemoveFront() noexcept {
    const std::size_t length = sizeof(Header) + FrontHeader().length;
    removed_ += length;
    size_ -= length;
    if (removed_ < blocks_.front().used)
        return;
    removed_ = 0;
    if (blocks_.size() > 1)
        blocks_.pop_front();
    else
        blocks_.front().used = 0;
}

void ChunkQueue::Clear() noexcept {
    blocks_.clear();
    removed_ = 0;
    size_ = 0;
}

} // namespace cf
