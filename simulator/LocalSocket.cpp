#include "simulator/LocalSocket.h"

#include <linux/sockios.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <system_error>
#include <utility>

namespace simulator {

namespace {

constexpr int kPollInterval = 1;   // milliseconds; poll() does not report that the peer has read
constexpr int kShortageDelay = 10; // milliseconds without accept() when no descriptor is free
constexpr int kBacklog = 128;

[[noreturn]] void ThrowErrno(const std::string& what) {
    throw std::system_error(errno, std::generic_category(), what);
}

Descriptor Listen(const std::string& path) {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path) {
        errno = ENAMETOOLONG;
        ThrowErrno(path);
    }
    std::memcpy(address.sun_path, path.c_str(), path.size());
    Descriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    unlink(path.c_str());
    if (bind(socket.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
        listen(socket.Get(), kBacklog) != 0) {
        ThrowErrno(path);
    }
    return socket;
}

// Polls the socket; false if `stop` is signalled.
bool Wait(int socket, short events, int milliseconds, const WakeEvent& stop) {
    pollfd sources[] = {{socket, events, 0}, {stop.Get(), POLLIN, 0}};
    poll(sources, 2, milliseconds);
    return sources[1].revents == 0;
}

} // namespace

ListeningSocket::ListeningSocket(std::string path)
    : path_(std::move(path)), socket_(Listen(path_)) {}

ListeningSocket::~ListeningSocket() {
    unlink(path_.c_str());
}

Descriptor ListeningSocket::Accept() const {
    Descriptor client(accept4(socket_.Get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
    if (client.Get() < 0 && (errno == EMFILE || errno == ENFILE))
        poll(nullptr, 0,
             kShortageDelay); // the client stays pending, so poll() would return at once
    return client;
}

bool HasPeerReadAll(int socket) {
    int unread = 0;
    return ioctl(socket, SIOCOUTQ, &unread) != 0 || unread == 0;
}

SendResult SendSome(int socket, Piece& piece) {
    const ssize_t count =
        send(socket, piece.bytes.data(), piece.bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
    if (count < 0) {
        const bool mayTryAgain = errno == EAGAIN || errno == EINTR;
        return mayTryAgain ? SendResult::Again : SendResult::Lost;
    }
    piece.bytes.erase(0, static_cast<std::size_t>(count));
    return piece.bytes.empty() ? SendResult::Done : SendResult::Again;
}

bool SendPieces(int socket, std::vector<Piece> pieces, const WakeEvent& stop) {
    for (Piece& piece : pieces) {
        while (piece.alone && !HasPeerReadAll(socket))
            if (!Wait(socket, 0, kPollInterval, stop))
                return false;
        for (auto result = SendSome(socket, piece); result != SendResult::Done;
             result = SendSome(socket, piece)) {
            if (result == SendResult::Lost || !Wait(socket, POLLOUT, -1, stop))
                return false;
        }
    }
    return true;
}

bool ReceiveSome(int socket, std::string& bytes, const WakeEvent& stop) {
    for (;;) {
        if (!Wait(socket, POLLIN, -1, stop))
            return false;
        char buffer[65536];
        const ssize_t count = recv(socket, buffer, sizeof buffer, MSG_DONTWAIT);
        if (count > 0) {
            bytes.append(buffer, static_cast<std::size_t>(count));
            return true;
        }
        if (count == 0 || (errno != EAGAIN && errno != EINTR))
            return false;
    }
}

} // namespace simulator
