// carouseld-echo: a message server that gives every request back as its reply, one client at a
// time, and ends with its standard input. It says one line when it listens.

#include "Echo.h"
#include "LocalAddress.h"

#include <array>
#include <csignal>
#include <cstdio>
#include <poll.h>
#include <string>
#include <sys/socket.h>
#include <unistd.h>

namespace {

int Listen(const std::string& path) {
    const sockaddr_un address = bench::LocalAddress(path);
    const int socket = ::socket(AF_UNIX, SOCK_STREAM, 0);
    const bool listens =
        bind(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 &&
        listen(socket, 16) == 0;
    return listens ? socket : -1;
}

bool AwaitClient(int listener) {
    std::array<pollfd, 2> waits = {{{listener, POLLIN, 0}, {STDIN_FILENO, POLLIN, 0}}};
    return poll(waits.data(), waits.size(), -1) > 0 && waits[1].revents == 0;
}

} // namespace

int main() {
    std::signal(SIGPIPE, SIG_IGN);
    const std::string path = "/tmp/carouseld-" + std::to_string(getpid());
    const int listener = Listen(path);
    if (listener < 0) {
        return 1;
    }
    std::puts("listening");
    std::fflush(stdout);
    while (AwaitClient(listener)) {
        const int client = accept(listener, nullptr, nullptr);
        bench::GiveBack(client);
        close(client);
    }
    unlink(path.c_str());
    return 0;
}
