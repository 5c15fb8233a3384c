/*
 * Reading of sockets in the background.
 *
 * The arrivals thread (Arrivals.h) watches a stream while the stream is started, has not ended and
 * has not reached the high water mark. It reads input at once, at most one chunk at a time, appends
 * the chunk to the queue and signals the stream's source. The loop's thread dequeues; at the low
 * water mark it starts the watching again.
 *
 * Lock: ArrivalsMutex() guards all streams. The reading thread (the arrivals thread, or a loop's
 * thread in HandleArrivals()) holds it during recv(), which does not block. So no thread reads from
 * a descriptor once Unwatch() has returned.
 *
 * The arrival time of a chunk is the time of recv(). If the kernel reported both the input and a
 * later deadline before any thread could read, the date of that deadline is used instead.
 *
 * The end of the stream, an error and a shortage of memory for a chunk have the same effect: the
 * stream ends behind the chunks queued so far.
 */

#include "sockets/InboundStream.h"

#include <CoreFoundation/CFData.h>

#include <sys/ioctl.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <iterator>
#include <mutex>

namespace cf {
namespace {

constexpr std::size_t kHighWaterMark = 64 * 1024 * 1024;
constexpr std::size_t kLowWaterMark = kHighWaterMark / 2;

Owned<const Object> CreateData(std::span<const std::uint8_t> bytes) noexcept {
    return Owned<const Object>::Adopt(
        AsObject(CFDataCreate(kCFAllocatorDefault, bytes.data(), std::ssize(bytes))));
}

// The number of bytes in the socket's receive buffer.
std::size_t CountUnread(int descriptor) noexcept {
    int count = 0;
    ioctl(descriptor, FIONREAD, &count);
    return static_cast<std::size_t>(count);
}

// True at the end of the stream and for a pending error. recv() clears the error.
bool IsAtEnd(int descriptor) noexcept {
    std::uint8_t byte = 0;
    const ssize_t count = recv(descriptor, &byte, sizeof byte, MSG_PEEK | MSG_DONTWAIT);
    return count == 0 || (count < 0 && errno != EAGAIN && errno != EINTR);
}

} // namespace

InboundStream::InboundStream() noexcept : WatchedDescriptor(OnReadable) {}

void InboundStream::OnReadable(WatchedDescriptor& watched, Nanoseconds arrivedBy) noexcept {
    auto& stream = static_cast<InboundStream&>(watched);
    if (arrivedBy == kNever) {
        stream.ReadUpTo(ChunkQueue::kMaximumChunkSize, MonotonicNow());
        return;
    }
    // Bytes in the receive buffer now arrived before the deadline, and so did an end of the stream
    // directly behind them. Bytes that arrive during this loop did not.
    std::size_t unread = CountUnread(stream.descriptor_);
    while (unread > 0 && stream.IsWatched()) {
        const std::size_t count = stream.ReadUpTo(unread, arrivedBy);
        if (count == 0)
            return;
        unread -= count;
    }
    if (stream.IsWatched() && IsAtEnd(stream.descriptor_))
        stream.End(arrivedBy);
}

void InboundStream::StartWatching() noexcept {
    if (!Watch(descriptor_))
        End(MonotonicNow());
}

void InboundStream::End(Nanoseconds arrived) noexcept {
    Unwatch();
    ended_ = true;
    endArrived_ = arrived;
    Signal(*source_);
}

// Reads and queues one chunk. Returns its size; 0: no input, or the stream has ended.
std::size_t InboundStream::ReadUpTo(std::size_t size, Nanoseconds arrived) noexcept {
    const auto space = chunks_.Reserve();
    const ssize_t count =
        space.empty() ? 0
                      : recv(descriptor_, space.data(), std::min(size, space.size()), MSG_DONTWAIT);
    if (count < 0 && (errno == EAGAIN || errno == EINTR))
        return 0;
    if (count <= 0) {
        End(arrived);
        return 0;
    }
    const auto length = static_cast<std::size_t>(count);
    chunks_.Append(length, arrived);
    if (chunks_.Size() >= kHighWaterMark)
        Unwatch();
    Signal(*source_);
    return length;
}

void InboundStream::Start(int descriptor, Source& source) noexcept {
    const std::lock_guard lock(ArrivalsMutex());
    descriptor_ = descriptor;
    source_ = &source;
    if (!ended_ && chunks_.Size() < kHighWaterMark)
        StartWatching();
    if (ended_ || !chunks_.IsEmpty())
        Signal(source);
}

void InboundStream::Pause() noexcept {
    const std::lock_guard lock(ArrivalsMutex());
    Unwatch();
    source_ = nullptr;
}

InboundStream::Chunk InboundStream::Dequeue() noexcept {
    const std::lock_guard lock(ArrivalsMutex());
    Chunk chunk;
    if (chunks_.IsEmpty()) {
        chunk.isEnd = ended_;
        return chunk;
    }
    chunk.data = CreateData(chunks_.Front().bytes);
    if (!chunk.data) {
        chunk.isEnd = true;
        return chunk;
    }
    chunks_.RemoveFront();
    chunk.isLast = chunks_.IsEmpty() && !ended_;
    if (source_ != nullptr && !IsWatched() && !ended_ && chunks_.Size() <= kLowWaterMark)
        StartWatching();
    return chunk;
}

bool InboundStream::HasArrivedBy(Nanoseconds time) noexcept {
    const std::lock_guard lock(ArrivalsMutex());
    return chunks_.IsEmpty() ? ended_ && endArrived_ <= time : chunks_.Front().arrived <= time;
}

void InboundStream::Discard() noexcept {
    const std::lock_guard lock(ArrivalsMutex());
    chunks_.Clear();
}

} // namespace cf
