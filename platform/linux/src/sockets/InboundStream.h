#ifndef PLATFORM_INBOUNDSTREAM_H
#define PLATFORM_INBOUNDSTREAM_H

#include "loop/Arrivals.h"
#include "loop/RunLoopSource.h"
#include "objects/Object.h"
#include "sockets/ChunkQueue.h"

#include <cstddef>

namespace cf {

/* The inbound bytes of a socket: read by the arrivals thread, queued, and dequeued by the thread of
   the socket's loop. All functions but the constructor take ArrivalsMutex(); none blocks. */
class InboundStream : WatchedDescriptor {
public:
    // Not started.
    InboundStream() noexcept;

    // Starts reading from `descriptor` and signals `source` whenever Dequeue() has a result. Both
    // must stay valid until Pause().
    void Start(int descriptor, Source& source) noexcept;
    // Stops reading and signalling. Queued chunks remain.
    void Pause() noexcept;

    struct Chunk {
        Owned<const Object> data; // a CFData; empty: the end of the stream, or an empty queue
        bool isEnd = false;       // end, error or shortage of memory: do not call Dequeue() again
        bool isLast = true;       // at present, Dequeue() has no further result
    };
    // Removes the first chunk of the queue. Reading resumes at the low water mark.
    Chunk Dequeue() noexcept;

    // True if the next result of Dequeue() had arrived by `time` of the monotonic clock.
    bool HasArrivedBy(Nanoseconds time) noexcept;

    // Frees all queued chunks. The stream is paused.
    void Discard() noexcept;

private:
    static void OnReadable(WatchedDescriptor& watched, Nanoseconds arrivedBy) noexcept;
    void StartWatching() noexcept;
    std::size_t ReadUpTo(std::size_t size, Nanoseconds arrived) noexcept;
    void End(Nanoseconds arrived) noexcept;

    // Guarded by ArrivalsMutex().
    int descriptor_ = -1;
    Source* source_ = nullptr; // while started
    ChunkQueue chunks_;
    bool ended_ = false;
    Nanoseconds endArrived_ = 0; // once it has ended
};

} // namespace cf

#endif
