#ifndef BENCH_FRAME_H
#define BENCH_FRAME_H

#include <cstddef>
#include <string>

namespace bench {

/* The size of a frame's header: signature (4 bytes), reserved (2), size of the header (2), length
   of the payload (4), in the host's byte order. */
inline constexpr std::size_t kFrameHeader = 12;

/* Returns the payload with a frame header in front. */
std::string MakeFrame(const std::string& payload);

} // namespace bench

#endif
