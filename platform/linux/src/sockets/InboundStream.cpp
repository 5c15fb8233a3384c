/*
 * The background reading.
 *
 * One thread sleeps until any watched stream has something, takes at most one chunk from each, and
 * signals the stream's source. It is started for the first stream and then stays: with nothing to
 * read it makes no system call. One mutex guards all streams; it is held while a chunk is read,
 * which never blocks, so a descriptor that was unwatched under it is not read any more.
 *
 * A stream is watched while it is started, has not ended and is not full. The end, an error and
 * the lack of memory for a chunk are one thing: nothing can follow what has been kept so far.
 */

#include "sockets/InboundStream.h"

#include "processes/AllSignalsBlocked.h"

#include <CoreFoundation/CFData.h>

#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <mutex>
#include <new>
#include <system_error>
#include <thread>

namespace cf {
namespace {

constexpr std::size_t kChunkSize = 64 * 1024;
constexpr std::size_t kFull = 64 * 1024 * 1024;
constexpr std::size_t kHalfFull = kFull / 2;
// About what a chunk takes besides its bytes, so that many small ones are bounded too.
constexpr std::size_t kChunkOverhead = 128;

// None of these has a destructor: the thread may outlive main.
constinit std::mutex g_mutex;
constinit int g_epoll = -1;
constinit InboundStream* g_firstWatched = nullptr;

std::size_t SizeOf(const Object* chunk) noexcept {
    return static_cast<std::size_t>(CFDataGetLength(reinterpret_cast<CFDataRef>(chunk))) +
           kChunkOverhead;
}

} // namespace

bool StartReading() noexcept {
    const std::lock_guard lock(g_mutex);
    if (g_epoll >= 0)
        return true;
    g_epoll = epoll_create1(EPOLL_CLOEXEC);
    if (g_epoll < 0)
        return false;
    try {
        const process::AllSignalsBlocked blocked;
        std::thread(InboundStream::ReadForever).detach();
    } catch (const std::system_error&) {
        close(std::exchange(g_epoll, -1));
    } catch (const std::bad_alloc&) {
        close(std::exchange(g_epoll, -1));
    }
    return g_epoll >= 0;
}

void InboundStream::ReadForever() noexcept {
    static std::array<std::uint8_t, kChunkSize> buffer;
    for (;;) {
        std::array<epoll_event, 16> events;
        const int count = epoll_wait(g_epoll, events.data(), events.size(), -1);
        for (int i = 0; i < count; ++i) {
            const std::lock_guard lock(g_mutex);
            // Gone meanwhile, or another stream on the same descriptor, which merely has nothing.
            if (auto* stream = FindWatched(events[static_cast<std::size_t>(i)].data.fd))
                stream->ReadOnce(buffer);
        }
    }
}

InboundStream* InboundStream::FindWatched(int descriptor) noexcept {
    InboundStream* stream = g_firstWatched;
    while (stream != nullptr && stream->descriptor_ != descriptor)
        stream = stream->nextWatched_;
    return stream;
}

void InboundStream::Watch() noexcept {
    epoll_event event = {};
    event.events = EPOLLIN;
    event.data.fd = descriptor_;
    if (epoll_ctl(g_epoll, EPOLL_CTL_ADD, descriptor_, &event) != 0) {
        ended_ = true;
        Signal(*source_);
        return;
    }
    watched_ = true;
    nextWatched_ = std::exchange(g_firstWatched, this);
}

void InboundStream::Unwatch() noexcept {
    if (!std::exchange(watched_, false))
        return;
    epoll_ctl(g_epoll, EPOLL_CTL_DEL, descriptor_, nullptr);
    InboundStream** link = &g_firstWatched;
    while (*link != this)
        link = &(*link)->nextWatched_;
    *link = nextWatched_;
}

void InboundStream::ReadOnce(std::span<std::uint8_t> buffer) noexcept {
    const ssize_t count = recv(descriptor_, buffer.data(), buffer.size(), MSG_DONTWAIT);
    if (count < 0 && (errno == EAGAIN || errno == EINTR))
        return;
    ended_ = count <= 0 || !Keep(buffer.first(static_cast<std::size_t>(count)));
    if (ended_ || size_ >= kFull)
        Unwatch();
    Signal(*source_);
}

bool InboundStream::Keep(std::span<const std::uint8_t> bytes) noexcept {
    auto chunk = Owned<const Object>::Adopt(
        AsObject(CFDataCreate(kCFAllocatorDefault, bytes.data(), std::ssize(bytes))));
    if (!chunk)
        return false;
    try {
        chunks_.push_back(std::move(chunk));
    } catch (const std::bad_alloc&) {
        return false;
    }
    size_ += bytes.size() + kChunkOverhead;
    return true;
}

void InboundStream::Start(int descriptor, Source& source) noexcept {
    const std::lock_guard lock(g_mutex);
    descriptor_ = descriptor;
    source_ = &source;
    if (!ended_ && size_ < kFull)
        Watch();
    if (ended_ || !chunks_.empty())
        Signal(source);
}

void InboundStream::Pause() noexcept {
    const std::lock_guard lock(g_mutex);
    Unwatch();
    source_ = nullptr;
}

InboundStream::Arrival InboundStream::Take() noexcept {
    const std::lock_guard lock(g_mutex);
    Arrival arrival;
    if (chunks_.empty()) {
        arrival.isEnd = ended_;
        return arrival;
    }
    arrival.data = std::move(chunks_.front());
    chunks_.pop_front();
    size_ -= SizeOf(arrival.data.Get());
    arrival.isLast = chunks_.empty() && !ended_;
    if (source_ != nullptr && !watched_ && !ended_ && size_ <= kHalfFull)
        Watch();
    return arrival;
}

void InboundStream::Discard() noexcept {
    const std::lock_guard lock(g_mutex);
    chunks_.clear();
    size_ = 0;
}

} // namespace cf
