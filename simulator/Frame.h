#ifndef SIMULATOR_FRAME_H
#define SIMULATOR_FRAME_H

/* The frames of both sockets: a header of 12 bytes in the host's byte order, then the payload. */

#include <cstddef>
#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

namespace simulator {

struct FrameHeader {
    std::uint32_t signature = 0x68536967;
    std::uint16_t reserved = 0;
    std::uint16_t headerSize = 12; // offset of the payload
    std::uint32_t dataLength = 0;
};
static_assert(sizeof(FrameHeader) == 12);

class FrameError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/* Encodes a frame. Sets header.dataLength; sends the other fields unchanged. A headerSize above 12
   adds NUL bytes before the payload. */
std::string EncodeFrame(std::string_view payload, FrameHeader header = {});

/* Reads the payloads of the frames in a stream of bytes. */
class FrameReader {
public:
    // A header with a longer payload is an error.
    static constexpr std::size_t kMaximumPayload = 1024 * 1024;

    // Appends bytes of the stream.
    void Append(std::string_view bytes) {
        buffer_ += bytes;
    }

    // Removes and returns the next payload; none if it is incomplete. Throws FrameError if the
    // stream does not continue with a valid header.
    std::optional<std::string> TakePayload();

private:
    std::string buffer_;
};

} // namespace simulator

#endif
