#ifndef PLATFORM_LOCALSTREAM_H
#define PLATFORM_LOCALSTREAM_H

/* The system calls of a connected local stream socket, with time-outs in seconds. Any thread. */

#include <CoreFoundation/CFSocket.h>

#include <cstdint>
#include <span>

namespace cf {

/* Connects to `address`, which has the layout of <sys/un.h> of BSD. Returns a descriptor that the
   caller owns, or -1: the address is invalid, no server listens, the listener's backlog stayed full
   for `timeout`, or descriptors are short. Blocks for at most about `timeout`. */
int ConnectToLocalStream(std::span<const std::uint8_t> address, CFTimeInterval timeout) noexcept;

/* Sends all bytes, with the time-out and the results of CFSocketSendData(). Blocks while the
   socket's send buffer is full. */
CFSocketError SendAll(int descriptor, std::span<const std::uint8_t> bytes,
                      CFTimeInterval timeout) noexcept;

} // namespace cf

#endif
