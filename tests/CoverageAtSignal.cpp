/*
 * Linked into every program of the coverage build. A process writes its counts when it exits, so
 * one that a signal ends would write none: the daemon, which SIGTERM ends, and a process that
 * aborts. Here the counts are written first; then the signal ends the process as it would have.
 *
 * Writing is not safe in a signal handler in general: it allocates. The daemon waits in its run
 * loop when the tests end it, and a process that aborts does so in code that holds no lock of the
 * library's.
 */

#include <csignal>

extern "C" void __gcov_dump(void);

namespace {

void WriteCounts(int signal) {
    __gcov_dump();
    std::signal(signal, SIG_DFL);
    std::raise(signal); // pending until this handler returns
}

[[gnu::constructor]] void Install() {
    std::signal(SIGTERM, WriteCounts);
    std::signal(SIGABRT, WriteCounts);
}

} // namespace
