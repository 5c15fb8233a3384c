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
    std::uint16_t headerSize = 12; // where the payload begins
    std::uint32_t dataLength = 0;
};
static_assert(sizeof(FrameHeader) == 12);

class FrameError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/* The frame of the payload. The header's length is filled in; its other fields are sent as they
   stand, with padding up to a header size above 12. */
std::string EncodeFrame(std::string_view payload, FrameHeader header = {});

/* Cuts a stream of bytes, however it arrives, into the payloads of its frames. */
class FrameReader {
public:
    // Longer payloads are refused before they are gathered.
    static constexpr std::size_t kMaximumPayload = 1024 * 1024;

    void Append(std::string_view bytes) {
        buffer_ += bytes;
    }

    // The next whole payload, or nothing yet. Throws FrameError when what came is no frame.
    std::optional<std::string> TakePayload();

private:
    std::string buffer_;
};

} // namespace simulator

#endif
