#include "LocalServer.h"

#include "loop/Arrivals.h"

#include <gtest/gtest.h>

#include <linux/sockios.h>
#include <linux/un.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <mutex>
#include <thread>
#include <utility>

namespace {

sockaddr_un Address(const std::string& path) {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    return address;
}

} // namespace

Peer::Peer(Peer&& other) noexcept : descriptor_(std::exchange(other.descriptor_, -1)) {}

Peer::~Peer() {
    Close();
}

void Peer::Close() {
    if (descriptor_ >= 0)
        close(std::exchange(descriptor_, -1));
}

void Peer::Write(std::string_view bytes) const {
    while (!bytes.empty()) {
        const ssize_t sent = send(descriptor_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        ASSERT_GT(sent, 0) << errno;
        bytes.remove_prefix(static_cast<std::size_t>(sent));
    }
}

std::string Peer::Read(std::size_t count) const {
    std::string bytes;
    std::array<char, 65536> buffer;
    while (bytes.size() < count) {
        const ssize_t got =
            recv(descriptor_, buffer.data(), std::min(buffer.size(), count - bytes.size()), 0);
        if (got <= 0)
            break;
        bytes.append(buffer.data(), static_cast<std::size_t>(got));
    }
    return bytes;
}

int Peer::Unread() const {
    int count = -1;
    EXPECT_EQ(ioctl(descriptor_, SIOCOUTQ, &count), 0);
    return count;
}

// The kernel counts bytes as read before recv() returns, and the same recv() may return bytes that
// are written meanwhile. The client calls recv() with the mutex locked.
void Peer::AwaitReading() const {
    while (Unread() > 0)
        std::this_thread::yield();
    const std::lock_guard readerHasReturned(cf::ArrivalsMutex());
}

void Peer::ShutDownWriting() const {
    EXPECT_EQ(shutdown(descriptor_, SHUT_WR), 0);
}

LocalServer::LocalServer(int backlog) : listener_(socket(AF_UNIX, SOCK_STREAM, 0)) {
    const sockaddr_un address = Address(path_);
    EXPECT_EQ(bind(listener_, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    EXPECT_EQ(listen(listener_, backlog), 0);
}

LocalServer::~LocalServer() {
    StopListening();
}

Peer LocalServer::Accept() const {
    const int descriptor = accept(listener_, nullptr, nullptr);
    EXPECT_GE(descriptor, 0);
    return Peer(descriptor);
}

void LocalServer::StopListening() {
    if (listener_ >= 0)
        close(std::exchange(listener_, -1));
}

void LocalServer::FillBacklog() {
    const sockaddr_un address = Address(path_);
    for (;;) {
        const int client = socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0);
        waiting_.emplace_back(client);
        if (connect(client, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
            EXPECT_EQ(errno, EAGAIN);
            return;
        }
    }
}
