#ifndef PLATFORM_INBOUNDSTREAM_H
#define PLATFORM_INBOUNDSTREAM_H

#include "loop/RunLoopSource.h"
#include "objects/Object.h"

#include <cstddef>
#include <cstdint>
#include <list>
#include <span>

namespace cf {

// Starts the one thread that reads for all streams, unless it runs. False when it cannot be made.
bool StartReading() noexcept;

// What arrives at a socket, read in the background and kept until the socket's loop takes it.
class InboundStream {
public:
    InboundStream() noexcept = default;
    InboundStream(const InboundStream&) = delete;
    InboundStream& operator=(const InboundStream&) = delete;

    // Reads from the descriptor, and signals the source when there is something to take. Between
    // Start and Pause both stay.
    void Start(int descriptor, Source& source) noexcept;
    void Pause() noexcept;

    struct Arrival {
        Owned<const Object> data; // empty: the stream is at its end, or nothing has come
        bool isEnd = false;
        bool isLast = true; // nothing more to take for now
    };
    Arrival Take() noexcept;

    void Discard() noexcept;

private:
    [[noreturn]] static void ReadForever() noexcept;
    static InboundStream* FindWatched(int descriptor) noexcept;
    friend bool StartReading() noexcept;

    void Watch() noexcept;
    void Unwatch() noexcept;
    void ReadOnce(std::span<std::uint8_t> buffer) noexcept;
    bool Keep(std::span<const std::uint8_t> bytes) noexcept;

    // All guarded by the reader's mutex.
    int descriptor_ = -1;
    Source* source_ = nullptr; // while started
    std::list<Owned<const Object>> chunks_;
    std::size_t size_ = 0; // of the chunks, with what they take besides
    bool ended_ = false;
    bool watched_ = false;
    InboundStream* nextWatched_ = nullptr;
};

} // namespace cf

#endif
