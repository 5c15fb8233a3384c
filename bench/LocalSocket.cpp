#include "LocalSocket.h"

#include "stage/Failure.h"

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

stage::Descriptor MakeSocket() {
    stage::Descriptor made(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    stage::Require(static_cast<bool>(made), "cannot make a socket");
    return made;
}

} // namespace

std::string RequestPath(pid_t server) {
    return "/tmp/carouseld-" + std::to_string(server);
}

std::string NotificationPath(pid_t server) {
    return "/tmp/carouseldn-" + std::to_string(server);
}

stage::Descriptor Listen(const std::string& path) {
    stage::Descriptor listener = MakeSocket();
    const sockaddr_un address = AddressOf(path);
    const auto* at = reinterpret_cast<const sockaddr*>(&address);
    stage::Require(bind(listener.Get(), at, sizeof address) == 0 &&
                       listen(listener.Get(), kBacklog) == 0,
                   "cannot listen at " + path);
    return listener;
}

stage::Descriptor Accept(const stage::Descriptor& listener) {
    stage::Descriptor client(accept4(listener.Get(), nullptr, nullptr, SOCK_CLOEXEC));
    stage::Require(static_cast<bool>(client), "cannot accept a client");
    return client;
}

stage::Descriptor Connect(const std::string& path) {
    stage::Descriptor client = MakeSocket();
    const sockaddr_un address = AddressOf(path);
    const auto* to = reinterpret_cast<const sockaddr*>(&address);
    stage::Require(connect(client.Get(), to, sizeof address) == 0, "cannot connect to " + path);
    return client;
}

} // namespace bench
