/*
 * The background reading.
 *
 * A stream is watched while it is started, has not ended and is not full. What arrives is read at
 * once, by the thread of the arrivals, at most a chunk at a time, and the stream's source is
 * signalled. The mutex of the arrivals guards all streams; it is held while a chunk is read, which
 * never blocks, so a descriptor that was unwatched under it is not read any more.
 *
 * Each chunk has the moment of its arrival: that of its reading, or the first deadline behind it
 * when the kernel had noted both before anybody could read.
 *
 * The end, an error and the lack of memory for a chunk are one thing: nothing can follow what has
 * been kept so far.
 */

#include "sockets/InboundStream.h"

#include <CoreFoundation/CFData.h>

#include <sys/ioctl.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <iterator>
#include <mutex>
#include <new>
#include <utility>

namespace cf {
namespace {

constexpr std::size_t kChunkSize = 64 * 1024;
constexpr std::size_t kFull = 64 * 1024 * 1024;
constexpr std::size_t kHalfFull = kFull / 2;
// About what a chunk takes besides its bytes, so that many small ones are bounded too.
constexpr std::size_t kChunkOverhead = 128;

constinit std::array<std::uint8_t, kChunkSize> g_buffer = {}; // guarded by the mutex, too

std::size_t SizeOf(const Object* chunk) noexcept {
    return static_cast<std::size_t>(CFDataGetLength(reinterpret_cast<CFDataRef>(chunk))) +
           kChunkOverhead;
}

std::size_t CountUnread(int descriptor) noexcept {
    int count = 0;
    ioctl(descriptor, FIONREAD, &count);
    return static_cast<std::size_t>(count);
}

// Also in error, which the question takes away.
bool IsAtEnd(int descriptor) noexcept {
    std::uint8_t byte = 0;
    const ssize_t count = recv(descriptor, &byte, sizeof byte, MSG_PEEK | MSG_DONTWAIT);
    return count == 0 || (count < 0 && errno != EAGAIN && errno != EINTR);
}

} // namespace

InboundStream::InboundStream() noexcept : Watched(Arrived) {}

void InboundStream::Arrived(Watched& watched, Nanoseconds by) noexcept {
    auto& stream = static_cast<InboundStream&>(watched);
    if (by == kNever) {
        stream.ReadUpTo(g_buffer.size(), MonotonicNow());
        return;
    }
    // What waits now came before the deadline, and so did an end behind it. What comes while it is
    // read did not.
    std::size_t unread = CountUnread(stream.descriptor_);
    while (unread > 0 && stream.IsWatched()) {
        const std::size_t count = stream.ReadUpTo(unread, by);
        if (count == 0)
            return;
        unread -= count;
    }
    if (stream.IsWatched() && IsAtEnd(stream.descriptor_))
        stream.End(by);
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

// How many bytes it read; 0 at the end, too.
std::size_t InboundStream::ReadUpTo(std::size_t size, Nanoseconds arrived) noexcept {
    const ssize_t count =
        recv(descriptor_, g_buffer.data(), std::min(size, g_buffer.size()), MSG_DONTWAIT);
    if (count < 0 && (errno == EAGAIN || errno == EINTR))
        return 0;
    const std::span bytes(g_buffer.data(), static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
    if (bytes.empty() || !Keep(bytes, arrived)) {
        End(arrived);
    } else {
        if (size_ >= kFull)
            Unwatch();
        Signal(*source_);
    }
    return bytes.size();
}

bool InboundStream::Keep(std::span<const std::uint8_t> bytes, Nanoseconds arrived) noexcept {
    auto data = Owned<const Object>::Adopt(
        AsObject(CFDataCreate(kCFAllocatorDefault, bytes.data(), std::ssize(bytes))));
    if (!data)
        return false;
    try {
        chunks_.push_back({std::move(data), arrived});
    } catch (const std::bad_alloc&) {
        return false;
    }
    size_ += bytes.size() + kChunkOverhead;
    return true;
}

void InboundStream::Start(int descriptor, Source& source) noexcept {
    const std::lock_guard lock(ArrivalsMutex());
    descriptor_ = descriptor;
    source_ = &source;
    if (!ended_ && size_ < kFull)
        StartWatching();
    if (ended_ || !chunks_.empty())
        Signal(source);
}

void InboundStream::Pause() noexcept {
    const std::lock_guard lock(ArrivalsMutex());
    Unwatch();
    source_ = nullptr;
}

InboundStream::Arrival InboundStream::Take() noexcept {
    const std::lock_guard lock(ArrivalsMutex());
    Arrival arrival;
    if (chunks_.empty()) {
        arrival.isEnd = ended_;
        return arrival;
    }
    arrival.data = std::move(chunks_.front().data);
    chunks_.pop_front();
    size_ -= SizeOf(arrival.data.Get());
    arrival.isLast = chunks_.empty() && !ended_;
    if (source_ != nullptr && !IsWatched() && !ended_ && size_ <= kHalfFull)
        StartWatching();
    return arrival;
}

bool InboundStream::HasArrivedBy(Nanoseconds moment) noexcept {
    const std::lock_guard lock(ArrivalsMutex());
    return chunks_.empty() ? ended_ && endArrived_ <= moment : chunks_.front().arrived <= moment;
}

void InboundStream::Discard() noexcept {
    const std::lock_guard lock(ArrivalsMutex());
    chunks_.clear();
    size_ = 0;
}

} // namespace cf
