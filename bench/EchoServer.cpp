// carouseld-echo: a message server that echoes every request, one client at a time. It prints
// "listening" when it is ready, and exits at the end of its standard input.

#include "Echo.h"
#include "LocalSocket.h"

#include <poll.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdio>
#include <exception>
#include <string>

namespace {

// Waits for a client; returns false at the end of standard input.
bool AwaitClient(const testbed::Descriptor& listener) {
    std::array<pollfd, 2> waits = {{{listener.Get(), POLLIN, 0}, {STDIN_FILENO, POLLIN, 0}}};
    return poll(waits.data(), waits.size(), -1) > 0 && waits[1].revents == 0;
}

void Serve() {
    const std::string path = bench::RequestPath(getpid());
    const testbed::Descriptor listener = bench::Listen(path);
    std::puts("listening");
    std::fflush(stdout);
    while (AwaitClient(listener))
        bench::EchoFrame(bench::Accept(listener).Get());
    unlink(path.c_str());
}

} // namespace

int main() {
    std::signal(SIGPIPE, SIG_IGN);
    try {
        Serve();
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "%s\n", failure.what());
        return 1;
    }
    return 0;
}
