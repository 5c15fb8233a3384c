/*
 * carouseld-puppet: a changer server that a test controls. Each line of standard input is one step,
 * performed by the only thread, which may block, and answered by one line. A test can therefore
 * stop or kill the server between any two bytes. CHANNEL is "messages" or "notifications"; the
 * accepted connections are numbered from 1.
 *
 *   name HEX               sets the process's name
 *   listen CHANNEL BACKLOG creates the socket of this process's PID, or changes its backlog
 *   fill CHANNEL           connects to the socket until connect() would block
 *   drain CHANNEL          accepts and closes the connections of "fill"
 *   await CHANNEL          waits until a client can be accepted
 *   accept CHANNEL         accepts the next client: "accepted NUMBER"
 *   refuse CHANNEL COUNT   accepts COUNT clients and closes their connections at once
 *   peek NUMBER            waits until there are bytes to read, without reading them
 *   read NUMBER COUNT      reads COUNT bytes of a request
 *   request NUMBER         reads the rest of a request: "request XML", without line breaks
 *   write NUMBER HEX       writes all bytes: "written", or "lost" if the client has closed
 *   end NUMBER             waits until the client has closed, then closes
 *   close NUMBER           closes the connection
 */

#include "testbed/Descriptor.h"
#include "testbed/Failure.h"

#include <poll.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <iostream>
#include <map>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

namespace {

using testbed::Descriptor;
using testbed::Require;

constexpr std::size_t kHeaderSize = 12;
constexpr std::size_t kLengthAt = 8;

struct Channel {
    sockaddr_un address = {};
    Descriptor listener;
    std::vector<Descriptor> fillers;
};

struct Connection {
    Descriptor socket;
    std::string request; // the bytes read so far
};

std::map<std::string, Channel> g_channels;
std::map<int, Connection> g_connections;

std::string FromHex(const std::string& hex) {
    std::string bytes;
    for (const char* digits = hex.data(); digits != hex.data() + hex.size(); digits += 2) {
        unsigned char byte = 0;
        std::from_chars(digits, digits + 2, byte, 16);
        bytes += static_cast<char>(byte);
    }
    return bytes;
}

sockaddr_un AddressOf(const std::string& channel) {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    const std::string name = channel == "messages" ? "carouseld-" : "carouseldn-";
    ("/tmp/" + name + std::to_string(getpid())).copy(address.sun_path, sizeof address.sun_path - 1);
    return address;
}

void Bind(Channel& channel, const std::string& name) {
    channel.address = AddressOf(name);
    channel.listener = Descriptor(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    Require(bind(channel.listener.Get(), reinterpret_cast<const sockaddr*>(&channel.address),
                 sizeof channel.address) == 0,
            "bind");
}

void Listen(const std::string& name, int backlog) {
    Channel& channel = g_channels[name];
    if (!channel.listener)
        Bind(channel, name);
    Require(listen(channel.listener.Get(), backlog) == 0, "listen");
}

void Fill(Channel& channel) {
    bool isConnected = true;
    while (isConnected) {
        Descriptor client(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
        isConnected = connect(client.Get(), reinterpret_cast<const sockaddr*>(&channel.address),
                              sizeof channel.address) == 0;
        if (isConnected)
            channel.fillers.push_back(std::move(client));
    }
    Require(errno == EAGAIN, "connect");
}

Descriptor Accept(const Channel& channel) {
    Descriptor client(accept4(channel.listener.Get(), nullptr, nullptr, SOCK_CLOEXEC));
    Require(static_cast<bool>(client), "accept");
    return client;
}

void Drain(Channel& channel) {
    for (; !channel.fillers.empty(); channel.fillers.pop_back())
        Accept(channel);
}

void Read(Connection& connection, std::size_t count) {
    std::string bytes(count, '\0');
    const ssize_t length = recv(connection.socket.Get(), bytes.data(), count, MSG_WAITALL);
    Require(length == static_cast<ssize_t>(count), "read");
    connection.request += bytes;
}

std::string ReadRequest(Connection& connection) {
    Read(connection, kHeaderSize - std::min(kHeaderSize, connection.request.size()));
    std::uint32_t length = 0;
    connection.request.copy(reinterpret_cast<char*>(&length), sizeof length, kLengthAt);
    Read(connection, kHeaderSize + length - connection.request.size());
    std::string xml = connection.request.substr(kHeaderSize);
    std::replace(xml.begin(), xml.end(), '\n', ' ');
    return xml;
}

bool Write(const Connection& connection, const std::string& bytes) {
    for (std::size_t done = 0; done < bytes.size();) {
        const ssize_t sent =
            send(connection.socket.Get(), bytes.data() + done, bytes.size() - done, MSG_NOSIGNAL);
        if (sent < 0)
            return false;
        done += static_cast<std::size_t>(sent);
    }
    return true;
}

void AwaitEnd(const Connection& connection) {
    char rest = 0;
    while (recv(connection.socket.Get(), &rest, 1, 0) > 0) {
    }
}

std::string DoWithChannel(const std::string& verb, const std::string& name, int number) {
    Channel& channel = g_channels[name];
    if (verb == "listen") {
        Listen(name, number);
    } else if (verb == "fill") {
        Fill(channel);
    } else if (verb == "drain") {
        Drain(channel);
    } else if (verb == "await") {
        pollfd waiting = {channel.listener.Get(), POLLIN, 0};
        poll(&waiting, 1, -1);
    } else if (verb == "accept") {
        const int next = static_cast<int>(g_connections.size()) + 1;
        g_connections[next].socket = Accept(channel);
        return "accepted " + std::to_string(next);
    } else if (verb == "refuse") {
        for (int i = 0; i < number; ++i)
            Accept(channel);
    }
    return "done";
}

std::string DoWithConnection(const std::string& verb, int number, const std::string& argument) {
    Connection& connection = g_connections.at(number);
    if (verb == "peek") {
        char byte = 0;
        recv(connection.socket.Get(), &byte, 1, MSG_PEEK);
    } else if (verb == "read") {
        Read(connection, std::stoul(argument));
    } else if (verb == "request") {
        return "request " + ReadRequest(connection);
    } else if (verb == "write") {
        return Write(connection, FromHex(argument)) ? "written" : "lost";
    } else if (verb == "end") {
        AwaitEnd(connection);
        connection.socket.Close();
    } else if (verb == "close") {
        connection.socket.Close();
    }
    return "done";
}

std::string Do(const std::string& line) {
    std::istringstream words(line);
    std::string verb;
    std::string object;
    std::string argument;
    words >> verb >> object >> argument;
    if (verb == "name") {
        prctl(PR_SET_NAME, FromHex(object).c_str());
        return "done";
    }
    if (object == "messages" || object == "notifications")
        return DoWithChannel(verb, object, argument.empty() ? 0 : std::stoi(argument));
    return DoWithConnection(verb, std::stoi(object), argument);
}

} // namespace

int main() {
    std::ios::sync_with_stdio(false); // lines may be long
    for (std::string line; std::getline(std::cin, line);) {
        try {
            std::cout << Do(line) << std::endl;
        } catch (const std::exception& failure) {
            std::cout << "failed " << failure.what() << std::endl;
        }
    }
}
