#include "stage/ReadWatch.h"

#include "stage/Failure.h"

#include <array>
#include <poll.h>
#include <sys/inotify.h>

namespace stage {

// Openings are watched too because the kernel merges equal events that follow on each other.
ReadWatch::ReadWatch(const std::string& path) : m_inotify(inotify_init1(IN_CLOEXEC)), m_path(path) {
    Require(inotify_add_watch(m_inotify.Get(), path.c_str(), IN_OPEN | IN_CLOSE) >= 0,
            "cannot watch " + path);
}

// The events of a watched file, other than those of a folder, carry no name: all have one size.
int ReadWatch::CountNewReads() const {
    std::array<inotify_event, 64> events{};
    const ssize_t length = read(m_inotify.Get(), events.data(), sizeof events);
    Require(length > 0, "cannot read the watch of " + m_path);
    int reads = 0;
    for (std::size_t i = 0; i < static_cast<std::size_t>(length) / sizeof(inotify_event); ++i) {
        reads += (events[i].mask & IN_CLOSE) != 0 ? 1 : 0;
    }
    return reads;
}

void ReadWatch::AwaitReads(int count) {
    const int patience = static_cast<int>(std::chrono::milliseconds(kPatience).count());
    while (m_reads < count) {
        pollfd polled{m_inotify.Get(), POLLIN, 0};
        if (poll(&polled, 1, patience) != 1) {
            throw Failure(m_path + " was not read " + std::to_string(count) + " times");
        }
        m_reads += CountNewReads();
    }
}

} // namespace stage
