// carouseld-sim: a simulated changer server to test the daemon with. See docs/simulator.md.

#include "simulator/Control.h"
#include "simulator/Descriptor.h"

#include <poll.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <exception>
#include <optional>
#include <string>

namespace {

using simulator::Descriptor;

// Blocks the terminating signals in all threads; poll() on the descriptor reports them.
Descriptor CatchSignals() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGTERM);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGHUP);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    std::signal(SIGPIPE, SIG_IGN);
    return Descriptor(signalfd(-1, &signals, SFD_CLOEXEC));
}

// Reads the lines of standard input, until the end of input or a signal.
class CommandReader {
public:
    explicit CommandReader(const Descriptor& signals) : signals_(signals) {}

    std::optional<std::string> Next() {
        for (;;) {
            if (const auto end = buffer_.find('\n'); end != buffer_.npos) {
                std::string line = buffer_.substr(0, end);
                buffer_.erase(0, end + 1);
                return line;
            }
            if (buffer_.size() > kMaximumLine || !Gather())
                return {};
        }
    }

private:
    static constexpr std::size_t kMaximumLine =
        16 * 1024 * 1024; // bytes; hex= arguments may be long

    bool Gather() {
        pollfd sources[] = {{STDIN_FILENO, POLLIN, 0}, {signals_.Get(), POLLIN, 0}};
        poll(sources, 2, -1);
        if (sources[1].revents != 0)
            return false;
        char buffer[4096];
        const ssize_t length = read(STDIN_FILENO, buffer, sizeof buffer);
        if (length > 0)
            buffer_.append(buffer, static_cast<std::size_t>(length));
        return length > 0;
    }

    const Descriptor& signals_;
    std::string buffer_;
};

void Run() {
    const Descriptor signals = CatchSignals();
    simulator::Events events(STDOUT_FILENO);
    bool hasQuit = false;
    {
        simulator::Simulator simulator(events);
        simulator::Control control(simulator);
        CommandReader reader(signals);
        while (!hasQuit) {
            const auto line = reader.Next();
            if (!line)
                break;
            hasQuit = !control.Execute(*line);
        }
    }
    if (hasQuit)
        events.Print("ok");
}

} // namespace

int main() {
    try {
        Run();
        return 0;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "carouseld-sim: %s\n", error.what());
        return 1;
    }
}
