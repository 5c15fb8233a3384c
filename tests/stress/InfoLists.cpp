#include "InfoLists.h"

#include "EventCounts.h"
#include "common/VErr.h"
#include "testbed/Failure.h"

#include <CoreFoundation/CoreFoundation.h>

#include <condition_variable>
#include <mutex>
#include <utility>
#include <vector>

namespace {

std::mutex g_mutex; // guards the variables below
std::condition_variable g_changed;
long g_sent = 0;
std::vector<CFArrayRef> g_saved;

long SavedCount() {
    return static_cast<long>(g_saved.size());
}

} // namespace

extern "C" {
// SaveChangerInfoList
VErrLink* __real__Z19SaveChangerInfoListPK9__CFArray(CFArrayRef list);

VErrLink* __wrap__Z19SaveChangerInfoListPK9__CFArray(CFArrayRef list) {
    VErrLink* err = __real__Z19SaveChangerInfoListPK9__CFArray(list);
    event_counts::Count("changer infos handled");
    const std::lock_guard lock(g_mutex);
    g_saved.push_back(list);
    g_changed.notify_all();
    return err;
}
}

namespace info_lists {

void BeginRound() {
    const std::lock_guard lock(g_mutex);
    g_sent = 0;
}

void CountSentList() {
    const std::lock_guard lock(g_mutex);
    ++g_sent;
}

long SentCount() {
    const std::lock_guard lock(g_mutex);
    return g_sent;
}

bool AwaitPendingAtMost(long most, const std::atomic<bool>& isCancelled) {
    std::unique_lock lock(g_mutex);
    g_changed.wait(lock, [&] { return isCancelled || g_sent - SavedCount() <= most; });
    return !isCancelled;
}

void NotifyWaiters() {
    const std::lock_guard lock(g_mutex);
    g_changed.notify_all();
}

void AwaitSaved(long count) {
    std::unique_lock lock(g_mutex);
    if (!g_changed.wait_for(lock, testbed::kTimeOut, [&] { return SavedCount() >= count; }))
        throw testbed::Failure("the daemon no longer handles notifications");
}

void ReleaseReplaced() {
    const std::lock_guard lock(g_mutex);
    g_saved.pop_back(); // the daemon releases the last one itself
    for (CFArrayRef list : std::exchange(g_saved, {}))
        CFRelease(list);
}

} // namespace info_lists
