#ifndef TESTS_STRESS_EVENTCOUNTS_H
#define TESTS_STRESS_EVENTCOUNTS_H

/* Counts of events by kind, and problems that were found. Thread-safe. */

#include <cstddef>
#include <string>
#include <string_view>

/* The names of the kinds as printed; the indented ones are details of the kind above them. */
inline constexpr std::string_view kEventNames[] = {
    // contents of notifications
    "changer lists",
    "  changers removed",
    "  changers added again",
    "root preferences",
    "changer infos",
    "  media infos",
    "  media lists of 5,000 slots",
    "  identification requests",
    "  build requests",
    "  abort requests",
    "  daily builds set",
    // actions of the daemon
    "changer infos handled",
    "identifications started",
    "identifications ended",
    "builds started",
    "builds ended",
    "walks aborted",
    "daily timers fired",
    "connect timers fired",
    "replies timed out",
    "lines logged",
    // requests of the daemon, and replies
    "requests withdrawn",
    "mounts requested",
    "ejects requested",
    "statuses set",
    "statuses cleared",
    "replies in pieces",
    "late replies",
    "replies that the server is busy",
    "replies with an error",
    "requests without reply",
    "connections closed without reply",
    // events outside the daemon
    "server restarts",
    "notifications truncated",
    "notification connections closed",
    "volumes mounted",
    "volumes unmounted",
    "discs removed",
    "discs put back",
    "states checked while busy",
    "states checked when idle",
};

/* A kind, created from its name without the indent. An unknown name does not compile. */
struct EventKind {
    consteval EventKind(const char* name) {
        while (kEventNames[index].substr(kEventNames[index].find_first_not_of(' ')) != name)
            ++index;
    }
    bool operator==(const EventKind&) const = default;

    std::size_t index = 0;
};

namespace event_counts {

void Count(EventKind kind);
/* Prints one line per kind and reports each kind with count 0 as a problem. */
void Report();

/* True if no count is 0. */
bool HasEveryEvent();

/* Prints a problem to standard error, each text once. */
void ReportProblem(const std::string& text);
bool HasProblems();

} // namespace event_counts

#endif
