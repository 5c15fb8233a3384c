#include "loop/Arrivals.h"

#include "threads/AllSignalsBlocked.h"

#include <sys/epoll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <exception>
#include <thread>
#include <utility>

namespace cf {
namespace {

// g_mutex guards the variables below. They have no destructors, because the arrivals thread may
// outlive main().
constinit std::mutex g_mutex;
constinit int g_epoll = -1;

// All watched descriptors: a hash table of lists, by the lowest byte of the descriptor. Descriptors
// are small consecutive numbers, so a list rarely has a second member.
constinit std::array<WatchedDescriptor*, 256> g_watched = {};

WatchedDescriptor*& FirstWatched(int descriptor) noexcept {
    return g_watched[static_cast<std::size_t>(descriptor) % g_watched.size()];
}

} // namespace

// Up to kCapacity events of the kernel, in the order in which the descriptors became ready. The
// order of events is known only within a batch: of input in one batch and a deadline in the next
// one, either may have been first.
class EventBatch {
public:
    // Waits at most so long for events; -1: without limit.
    void Fetch(int milliseconds) noexcept {
        const int count =
            epoll_wait(g_epoll, events_.data(), static_cast<int>(events_.size()), milliseconds);
        count_ = static_cast<std::size_t>(std::max(count, 0));
    }

    // Calls the handlers. The caller holds g_mutex.
    void Handle() noexcept {
        const Nanoseconds now = MonotonicNow();
        Nanoseconds arrivedBy =
            kNever; // the first date among the expired deadlines behind an event
        for (std::size_t i = count_; i-- > 0;) {
            const WatchedDescriptor* watched = Find(events_[i].data.fd);
            if (watched != nullptr && watched->date_ <= now)
                arrivedBy = std::min(arrivedBy, watched->date_);
            arrivedBy_[i] = arrivedBy;
        }
        for (std::size_t i = 0; i < count_; ++i)
            if (WatchedDescriptor* watched = Find(events_[i].data.fd))
                watched->handler_(*watched, arrivedBy_[i]);
    }

private:
    // Null if the descriptor was unwatched after the event.
    static WatchedDescriptor* Find(int descriptor) noexcept {
        WatchedDescriptor* watched = FirstWatched(descriptor);
        while (watched != nullptr && watched->descriptor_ != descriptor)
            watched = watched->next_;
        return watched;
    }

    static constexpr std::size_t kCapacity = 512;
    std::array<epoll_event, kCapacity> events_;
    std::array<Nanoseconds, kCapacity> arrivedBy_;
    std::size_t count_ = 0;
};

namespace {

[[noreturn]] void RunArrivalsThread() noexcept {
    EventBatch events;
    for (;;) {
        events.Fetch(-1);
        const std::lock_guard lock(g_mutex);
        events.Handle();
    }
}

} // namespace

bool StartArrivals() noexcept {
    const std::lock_guard lock(g_mutex);
    if (g_epoll >= 0)
        return true;
    g_epoll = epoll_create1(EPOLL_CLOEXEC);
    if (g_epoll < 0)
        return false;
    try {
        const process::AllSignalsBlocked blocked;
        std::thread(RunArrivalsThread).detach();
    } catch (const std::exception&) { // shortage of threads or memory
        close(std::exchange(g_epoll, -1));
    }
    return g_epoll >= 0;
}

bool AreArrivalsStarted() noexcept {
    return g_epoll >= 0;
}

void HandleArrivals() noexcept {
    const std::lock_guard lock(g_mutex);
    if (!AreArrivalsStarted())
        return;
    EventBatch events;
    events.Fetch(0);
    events.Handle();
}

std::mutex& ArrivalsMutex() noexcept {
    return g_mutex;
}

bool WatchedDescriptor::Watch(int descriptor, Nanoseconds date) noexcept {
    epoll_event event = {};
    event.events = EPOLLIN;
    event.data.fd = descriptor;
    if (epoll_ctl(g_epoll, EPOLL_CTL_ADD, descriptor, &event) != 0)
        return false;
    descriptor_ = descriptor;
    date_ = date;
    next_ = std::exchange(FirstWatched(descriptor), this);
    return true;
}

void WatchedDescriptor::Unwatch() noexcept {
    if (!IsWatched())
        return;
    epoll_ctl(g_epoll, EPOLL_CTL_DEL, descriptor_, nullptr);
    WatchedDescriptor** link = &FirstWatched(descriptor_);
    while (*link != this)
        link = &(*link)->next_;
    *link = next_;
    descriptor_ = -1;
}

} // namespace cf
