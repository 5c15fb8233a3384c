#include "ScriptedServer.h"

#include <gtest/gtest.h>

#include <linux/un.h> // the kernel's sockaddr_un; the tree's <sys/un.h> declares that of BSD
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <utility>

std::string Connection::Read(std::size_t count) {
    std::string bytes(count, '\0');
    std::size_t got = 0;
    while (got < count) {
        const ssize_t length = recv(descriptor_, bytes.data() + got, count - got, 0);
        if (length <= 0)
            break;
        got += static_cast<std::size_t>(length);
    }
    bytes.resize(got);
    return bytes;
}

std::string Connection::ReadFrame() {
    const std::string header = Read(12);
    if (header.size() < 12)
        return {};
    std::uint32_t length = 0;
    std::memcpy(&length, header.data() + 8, sizeof length);
    return Read(length);
}

void Connection::Write(std::string_view bytes, std::size_t pieceSize) {
    while (!bytes.empty()) {
        const ssize_t sent =
            send(descriptor_, bytes.data(), std::min(bytes.size(), pieceSize), MSG_NOSIGNAL);
        if (sent < 0) // the client has closed
            return;
        bytes.remove_prefix(static_cast<std::size_t>(sent));
    }
}

void Connection::WaitForInput() {
    pollfd wait = {descriptor_, POLLIN, 0};
    EXPECT_EQ(poll(&wait, 1, -1), 1);
}

void Connection::WaitForEnd() {
    char buffer[4096];
    while (recv(descriptor_, buffer, sizeof buffer, 0) > 0) {
    }
}

Script SendAndWait(std::string bytes, std::size_t pieceSize) {
    return [=](Connection& connection) {
        connection.Write(bytes, pieceSize);
        connection.WaitForEnd();
    };
}

ScriptedServer::ScriptedServer(const std::string& path, std::vector<Script> scripts)
    : path_(path), listener_(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    unlink(path.c_str());
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    EXPECT_EQ(bind(listener_, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0)
        << errno;
    EXPECT_EQ(listen(listener_, 16), 0);
    thread_ = std::thread([this, played = std::move(scripts)] { RunScripts(played); });
}

ScriptedServer::~ScriptedServer() {
    shutdown(listener_, SHUT_RDWR); // ends a pending accept()
    Join();
    close(listener_);
    unlink(path_.c_str());
}

void ScriptedServer::Join() {
    if (thread_.joinable())
        thread_.join();
}

void ScriptedServer::RunScripts(const std::vector<Script>& scripts) {
    for (const Script& script : scripts) {
        const int descriptor = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
        if (descriptor < 0)
            return;
        Connection connection(descriptor);
        script(connection);
        close(descriptor);
    }
}
