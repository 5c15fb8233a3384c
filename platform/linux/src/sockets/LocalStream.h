#ifndef PLATFORM_LOCALSTREAM_H
#define PLATFORM_LOCALSTREAM_H

/* The system calls of a connected local stream socket, with time-outs in seconds. */

#include <CoreFoundation/CFSocket.h>

#include <cstdint>
#include <span>

namespace cf {

/* A descriptor connected to an address of the layout of <sys/un.h>, or -1: the address is none,
   nobody listens there, or the listener did not accept in time. */
int ConnectToLocalStream(std::span<const std::uint8_t> address, CFTimeInterval timeout) noexcept;

/* Sends all of the bytes, as CFSocketSendData tells. */
CFSocketError SendAll(int descriptor, std::span<const std::uint8_t> bytes,
                      CFTimeInterval timeout) noexcept;

} // namespace cf

#endif
