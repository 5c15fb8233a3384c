#include "testbed/ReadWatch.h"

#include "testbed/Failure.h"

#include <poll.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <cstddef>

namespace testbed {

// IN_OPEN is watched as well because the kernel merges equal consecutive events: without it two
// reads could be one IN_CLOSE.
ReadWatch::ReadWatch(const std::string& path) : inotify_(inotify_init1(IN_CLOEXEC)), path_(path) {
    Require(inotify_add_watch(inotify_.Get(), path.c_str(), IN_OPEN | IN_CLOSE) >= 0,
            "cannot watch " + path);
}

// Events of a watched file have no name, unlike those of a folder; all have the same size.
int ReadWatch::CountNewReads() const {
    std::array<inotify_event, 64> events{};
    const ssize_t length = read(inotify_.Get(), events.data(), sizeof events);
    Require(length > 0, "cannot read the watch of " + path_);
    int reads = 0;
    for (std::size_t i = 0; i < static_cast<std::size_t>(length) / sizeof(inotify_event); ++i)
        reads += (events[i].mask & IN_CLOSE) != 0 ? 1 : 0;
    return reads;
}

void ReadWatch::AwaitReads(int count) {
    const int timeOut = static_cast<int>(std::chrono::milliseconds(kTimeOut).count());
    while (reads_ < count) {
        pollfd polled{inotify_.Get(), POLLIN, 0};
        if (poll(&polled, 1, timeOut) != 1)
            throw Failure(path_ + " was not read " + std::to_string(count) + " times");
        reads_ += CountNewReads();
    }
}

int ReadWatch::CountReadsSoFar() {
    pollfd polled{inotify_.Get(), POLLIN, 0};
    while (poll(&polled, 1, 0) == 1)
        reads_ += CountNewReads();
    return reads_;
}

} // namespace testbed
