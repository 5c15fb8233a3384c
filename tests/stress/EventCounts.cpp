#include "EventCounts.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <mutex>
#include <set>

namespace {

constexpr std::size_t kKinds = static_cast<std::size_t>(EventKind::kCount);

constexpr std::array<const char*, kKinds> kNames = {
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

std::array<std::atomic<std::uint64_t>, kKinds> g_counts;

std::mutex g_mutex;
std::set<std::string> g_problems; // guarded by g_mutex

} // namespace

void event_counts::Count(EventKind kind) {
    g_counts[static_cast<std::size_t>(kind)].fetch_add(1, std::memory_order_relaxed);
}

void event_counts::Report() {
    for (std::size_t i = 0; i < kKinds; ++i) {
        const std::uint64_t count = g_counts[i];
        std::printf("%10llu  %s\n", static_cast<unsigned long long>(count), kNames[i]);
        if (count == 0)
            ReportProblem(std::string("never happened: ") + kNames[i]);
    }
}

bool event_counts::HasEveryEvent() {
    return std::ranges::all_of(g_counts, [](const auto& count) { return count != 0; });
}

void event_counts::ReportProblem(const std::string& text) {
    const std::lock_guard lock(g_mutex);
    if (g_problems.insert(text).second)
        std::fprintf(stderr, "problem: %s\n", text.c_str());
}

bool event_counts::HasProblems() {
    const std::lock_guard lock(g_mutex);
    return !g_problems.empty();
}
