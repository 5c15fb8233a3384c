#include "Tally.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <mutex>
#include <set>

namespace {

constexpr std::size_t kKinds = static_cast<std::size_t>(Kind::kCount);

constexpr std::array<const char*, kKinds> kNames = {
    "changer lists",
    "  changers removed",
    "  changers added anew",
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
    "mounts asked for",
    "ejects asked for",
    "statuses shown",
    "statuses cleared",
    "answers in pieces",
    "answers late",
    "answers that the server is busy",
    "answers with an error",
    "requests left unanswered",
    "requests answered by closing",
    "server restarts",
    "notifications cut in the middle",
    "notification connections closed",
    "volumes mounted",
    "volumes unmounted",
    "discs taken away",
    "discs put back",
    "states checked at work",
    "states checked at rest",
};

std::array<std::atomic<std::uint64_t>, kKinds> g_counts;

std::mutex g_mutex;
std::set<std::string> g_complaints; // guarded by g_mutex

} // namespace

void tally::Count(Kind kind) {
    g_counts[static_cast<std::size_t>(kind)].fetch_add(1, std::memory_order_relaxed);
}

void tally::Report() {
    for (std::size_t i = 0; i < kKinds; ++i) {
        const std::uint64_t count = g_counts[i];
        std::printf("%10llu  %s\n", static_cast<unsigned long long>(count), kNames[i]);
        if (count == 0)
            Complain(std::string("never happened: ") + kNames[i]);
    }
}

bool tally::HasEverythingHappened() {
    return std::ranges::all_of(g_counts, [](const auto& count) { return count != 0; });
}

void tally::Complain(const std::string& text) {
    const std::lock_guard lock(g_mutex);
    if (g_complaints.insert(text).second)
        std::fprintf(stderr, "wrong: %s\n", text.c_str());
}

bool tally::HasComplaints() {
    const std::lock_guard lock(g_mutex);
    return !g_complaints.empty();
}
