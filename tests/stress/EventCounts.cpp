#include "EventCounts.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <iterator>
#include <mutex>
#include <set>

namespace {

std::array<std::atomic<std::uint64_t>, std::size(kEventNames)> g_counts;

std::mutex g_mutex;
std::set<std::string> g_problems; // guarded by g_mutex

} // namespace

void event_counts::Count(EventKind kind) {
    g_counts[kind.index].fetch_add(1, std::memory_order_relaxed);
}

void event_counts::Report() {
    for (std::size_t i = 0; i < g_counts.size(); ++i) {
        const std::uint64_t count = g_counts[i];
        std::printf("%10llu  %s\n", static_cast<unsigned long long>(count), kEventNames[i].data());
        if (count == 0)
            ReportProblem(std::string("never happened: ").append(kEventNames[i]));
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
