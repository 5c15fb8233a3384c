#include "LocalSocket.h"

#include "testbed/Failure.h"

#include <sys/socket.h>
#include <sys/un.h>

namespace bench {
namespace {

constexpr int kBacklog = 16;

sockaddr_un AddressOf(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    return address;
}

testbed::Descriptor MakeSocket() {
    testbed::Descriptor made(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    testbed::Require(static_cast<bool>(made), "cannot make a socket");
    return made;
}

} // namespace

std::string RequestPath(pid_t server) {
    return "/tmp/carouseld-" + std::to_string(server);
}

std::string NotificationPath(pid_t server) {
    return "/tmp/carouseldn-" + std::to_string(server);
}

testbed::Descriptor Listen(const std::string& path) {
    testbed::Descriptor listener = MakeSocket();
    const sockaddr_un address = AddressOf(path);
    const auto* at = reinterpret_cast<const sockaddr*>(&address);
    testbed::Require(bind(listener.Get(), at, sizeof address) == 0 &&
                         listen(listener.Get(), kBacklog) == 0,
                     "cannot listen at " + path);
    return listener;
}

testbed::Descriptor Accept(const testbed::Descriptor& listener) {
    testbed::Descriptor client(accept4(listener.Get(), nullptr, nullptr, SOCK_CLOEXEC));
    testbed::Require(static_cast<bool>(client), "cannot accept a client");
    return client;
}

testbed::Descriptor Connect(const std::string& path) {
    testbed::Descriptor client = MakeSocket();
    const sockaddr_un address = AddressOf(path);
    const auto* to = reinterpret_cast<const sockaddr*>(&address);
    testbed::Require(connect(client.Get(), to, sizeof address) == 0, "cannot connect to " + path);
    return client;
}

} // namespace bench
