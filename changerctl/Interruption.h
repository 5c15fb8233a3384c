#ifndef CHANGERCTL_INTERRUPTION_H
#define CHANGERCTL_INTERRUPTION_H

/* Signals that end the process, deferred while something must be undone first. */

#include <array>
#include <csignal>

namespace changerctl {

/* Thrown in place of the end of the process. main() raises the signal again. */
struct Interrupted {
    int signal;
};

/* While an object exists, SIGHUP, SIGINT, SIGQUIT and SIGTERM are stored. The second signal ends
   the process at once. A signal that the process ignores, as under nohup, stays ignored. */
class Interruption {
public:
    Interruption();
    ~Interruption();
    Interruption(const Interruption&) = delete;
    Interruption& operator=(const Interruption&) = delete;

    // Throws Interrupted if a signal has arrived.
    static void Check();

private:
    static constexpr std::array kSignals{SIGHUP, SIGINT, SIGQUIT, SIGTERM};

    std::array<struct sigaction, kSignals.size()> former_{};
};

} // namespace changerctl

#endif
