#ifndef PLATFORM_READSTREAM_H
#define PLATFORM_READSTREAM_H

/*
 * Read streams: a file that is read once from its beginning to its end.
 *
 *   new --Open--> open --Close--> closed
 *    \--Open fails--> failed
 *
 * Only a new stream can be opened, and only an open one can be read. Opening the stream reads the
 * contents, up to the maximum size. On the main thread, which runs the program's loop, this blocks
 * for at most 30 seconds, even if the file system does not reply.
 */

#include "files/FileContents.h"
#include "objects/Object.h"

#include <CoreFoundation/CFStream.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

struct __CFReadStream : cf::Object {
    static const cf::Class kClass;

    CFURLRef url;              // owned
    bool wasOpened = false;    // CFReadStreamOpen was called, successfully or not
    cf::FileContents contents; // empty unless the stream is open
    std::size_t position = 0;  // in the contents, of the next byte to read

    // A new stream. The caller retains the URL for it.
    explicit __CFReadStream(CFURLRef file) noexcept : Object(&kClass), url(file) {}
};

namespace cf {

using ReadStream = ::__CFReadStream;

/* The maximum size of a file. One more byte is read, to detect larger files. */
inline constexpr std::size_t kMaximumFileSize = std::size_t{16} << 20;

/* Reads the next bytes, at most `maximum`; empty at the end. They are borrowed until the stream is
   closed. Nothing if the stream is nullptr, is not open, or its file cannot be read. */
std::optional<std::span<const std::uint8_t>> ReadBytes(ReadStream* stream,
                                                       std::size_t maximum) noexcept;

} // namespace cf

#endif
