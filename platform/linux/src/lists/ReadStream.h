#ifndef PLATFORM_READSTREAM_H
#define PLATFORM_READSTREAM_H

/*
 * A file that is read once from its beginning to its end:
 *
 *   new --Open--> open --Close--> closed
 *    \--Open fails--> failed
 *
 * Only a new stream can be opened, only an open one read.
 */

#include "objects/Object.h"

#include <CoreFoundation/CFStream.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

namespace cf {

enum class StreamState { New, Open, Failed, Closed };

} // namespace cf

struct __CFReadStream : cf::Object {
    static const cf::Class kClass;

    CFURLRef url; // owned
    cf::StreamState state = cf::StreamState::New;
    int descriptor = -1; // while it is open

    explicit __CFReadStream(CFURLRef file) noexcept : Object(&kClass), url(file) {}
};

namespace cf {

using ReadStream = ::__CFReadStream;

// What is left of the file, at most that many bytes of it. Nothing when there is no stream, it is
// not open or cannot be read. Throws std::bad_alloc.
std::optional<std::vector<std::uint8_t>> ReadBytes(ReadStream* stream, std::size_t maximum);

} // namespace cf

#endif
