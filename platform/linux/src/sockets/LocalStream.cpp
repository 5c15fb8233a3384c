#include "sockets/LocalStream.h"

#include "loop/Clock.h"

#include <linux/un.h> // the kernel's own address, where <sys/un.h> is that of BSD
#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <optional>

namespace cf {
namespace {

// The address is BSD's: a byte with the length, a byte with the family, then the path, which ends
// with a NUL or with the address.
constexpr std::size_t kFamilyAt = 1;
constexpr std::size_t kPathAt = 2;
constexpr std::size_t kLongestPath = 104;

std::optional<sockaddr_un> ToKernelAddress(std::span<const std::uint8_t> address) noexcept {
    if (address.size() <= kPathAt || address.size() > kPathAt + kLongestPath ||
        address[kFamilyAt] != AF_UNIX || address[kPathAt] == 0)
        return std::nullopt;
    const auto path = address.subspan(kPathAt);
    sockaddr_un result = {};
    static_assert(sizeof result.sun_path > kLongestPath);
    result.sun_family = AF_UNIX;
    std::ranges::copy(path, result.sun_path); // shorter than sun_path: a NUL follows
    return result;
}

timeval ToTimeval(Nanoseconds time) noexcept {
    const Nanoseconds microseconds = std::max<Nanoseconds>(time / 1000, 1); // 0 is no limit
    return {microseconds / 1'000'000, microseconds % 1'000'000};
}

// The time-out of the next attempt. The kernel rounds a time-out up by as much as an eighth, which
// is seconds for half a minute. So an attempt takes 7/8 of a long time-out.
Nanoseconds NextWait(Nanoseconds left) noexcept {
    constexpr Nanoseconds kShort = kSecond / 10;
    return left > kShort ? left - left / 8 : left;
}

// Blocks in connect(): a non-blocking connect() fails at once if the listener's backlog is full.
// EAGAIN: SO_SNDTIMEO has expired. The option may stay set, because no later call on the socket
// blocks.
bool Connect(int descriptor, const sockaddr_un& address, CFTimeInterval timeout) noexcept {
    const Nanoseconds end = MonotonicNow() + ToNanoseconds(timeout);
    do {
        const timeval wait = ToTimeval(NextWait(end - MonotonicNow()));
        setsockopt(descriptor, SOL_SOCKET, SO_SNDTIMEO, &wait, sizeof wait);
        if (connect(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0)
            return true;
    } while ((errno == EAGAIN || errno == EINTR) && MonotonicNow() < end);
    return false;
}

// Waits until the descriptor is writable or the monotonic time `end`. False if `end` has passed.
bool WaitUntilWritable(int descriptor, Nanoseconds end) noexcept {
    const Nanoseconds left = end - MonotonicNow();
    if (left <= 0)
        return false;
    pollfd wait = {descriptor, POLLOUT, 0};
    const timespec limit = {left / kSecond, left % kSecond};
    ppoll(&wait, 1, &limit, nullptr);
    return true;
}

} // namespace

int ConnectToLocalStream(std::span<const std::uint8_t> address, CFTimeInterval timeout) noexcept {
    const auto target = ToKernelAddress(address);
    if (!target)
        return -1;
    const int descriptor = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (descriptor < 0 || Connect(descriptor, *target, timeout))
        return descriptor;
    close(descriptor);
    return -1;
}

CFSocketError SendAll(int descriptor, std::span<const std::uint8_t> bytes,
                      CFTimeInterval timeout) noexcept {
    const Nanoseconds end = MonotonicNow() + (timeout > 0 ? ToNanoseconds(timeout) : kNever);
    while (!bytes.empty()) {
        const ssize_t sent =
            send(descriptor, bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
        if (sent >= 0)
            bytes = bytes.subspan(static_cast<std::size_t>(sent));
        else if (errno != EAGAIN && errno != EINTR)
            return kCFSocketError;
        else if (!WaitUntilWritable(descriptor, end))
            return kCFSocketTimeout;
    }
    return kCFSocketSuccess;
}

} // namespace cf
