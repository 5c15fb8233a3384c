#include "Frame.h"

#include <cstdint>

namespace bench {
namespace {

template<typename Integer>
void Append(std::string& frame, Integer value) {
    frame.append(reinterpret_cast<const char*>(&value), sizeof value);
}

} // namespace

std::string MakeFrame(const std::string& payload) {
    std::string frame;
    frame.reserve(kFrameHeader + payload.size());
    Append(frame, std::uint32_t{0x68536967});
    Append(frame, std::uint16_t{0});
    Append(frame, static_cast<std::uint16_t>(kFrameHeader));
    Append(frame, static_cast<std::uint32_t>(payload.size()));
    return frame += payload;
}

} // namespace bench
