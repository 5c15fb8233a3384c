#include "simulator/Frame.h"

#include <algorithm>
#include <cstring>

namespace simulator {

std::string EncodeFrame(std::string_view payload, FrameHeader header) {
    header.dataLength = static_cast<std::uint32_t>(payload.size());
    std::string frame(sizeof header, '\0');
    std::memcpy(frame.data(), &header, sizeof header);
    frame.resize(std::max<std::size_t>(sizeof header, header.headerSize), '\0');
    return frame.append(payload);
}

std::optional<std::string> FrameReader::TakePayload() {
    FrameHeader header;
    if (buffer_.size() < sizeof header)
        return {};
    std::memcpy(&header, buffer_.data(), sizeof header);
    if (header.signature != FrameHeader{}.signature)
        throw FrameError("wrong signature");
    if (header.headerSize < sizeof header || header.dataLength > kMaximumPayload)
        throw FrameError("header out of range");
    const std::size_t length = std::size_t{header.headerSize} + header.dataLength;
    if (buffer_.size() < length)
        return {};
    std::string payload = buffer_.substr(header.headerSize, header.dataLength);
    buffer_.erase(0, length);
    return payload;
}

} // namespace simulator
