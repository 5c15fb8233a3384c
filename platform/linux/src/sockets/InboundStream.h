#ifndef PLATFORM_INBOUNDSTREAM_H
#define PLATFORM_INBOUNDSTREAM_H

#include "loop/Arrivals.h"
#include "loop/RunLoopSource.h"
#include "objects/Object.h"
#include "sockets/ChunkQueue.h"

#include <cstddef>

namespace cf {

/* What arrives at a socket, read in the background and kept until the socket's loop takes it. */
class InboundStream : WatchedDescriptor {
public:
    InboundStream() noexcept;

    // Reads from the descriptor, and signals the source when there is something to take. Between
    // Start and Pause both stay.
    void Start(int descriptor, Source& source) noexcept;
    void Pause() noexcept;

    struct Chunk {
        Owned<const Object> data; // empty: the stream is at its end, or nothing has come
        bool isEnd = false;       // also for want of memory; nothing may be taken after it
        bool isLast = true;       // nothing more to take for now
    };
    Chunk Dequeue() noexcept;

    // Whether what Dequeue gives next had arrived by that time of the monotonic clock.
    bool HasArrivedBy(Nanoseconds time) noexcept;

    void Discard() noexcept;

private:
    static void OnReadable(WatchedDescriptor& watched, Nanoseconds arrivedBy) noexcept;
    void StartWatching() noexcept;
    std::size_t ReadUpTo(std::size_t size, Nanoseconds arrived) noexcept;
    void End(Nanoseconds arrived) noexcept;

    // All guarded by the mutex of the arrivals.
    int descriptor_ = -1;
    Source* source_ = nullptr; // while started
    ChunkQueue chunks_;
    bool ended_ = false;
    Nanoseconds endArrived_ = 0; // once it has ended
};

} // namespace cf

#endif
