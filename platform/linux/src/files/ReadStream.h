#ifndef PLATFORM_READSTREAM_H
#define PLATFORM_READSTREAM_H

/*
 * A file that is read once from its beginning to its end:
 *
 *   new --Open--> open --Close--> closed
 *    \--Open fails--> failed
 *
 * Only a new stream can be opened, only an open one read. Opening it reads all that anybody may
 * read of it. Where that is done on the main thread, which carries all of the program's reactions,
 * a file system that does not answer is given half a minute.
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
    bool wasOpened = false;    // once, with success or without
    cf::FileContents contents; // none unless it is open
    std::size_t position = 0;  // of what is left of the contents

    explicit __CFReadStream(CFURLRef file) noexcept : Object(&kClass), url(file) {}
};

namespace cf {

using ReadStream = ::__CFReadStream;

/* Of a file, no more than this is read, and one byte that tells of more. */
inline constexpr std::size_t kMaximumFileSize = std::size_t{16} << 20;

/* What is left of the file, at most that many bytes of it, good as long as the stream is open.
   Nothing when there is no stream, it is not open or cannot be read. */
std::optional<std::span<const std::uint8_t>> ReadBytes(ReadStream* stream,
                                                       std::size_t maximum) noexcept;

} // namespace cf

#endif
