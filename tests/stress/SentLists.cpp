#include "SentLists.h"

#include "Tally.h"
#include "common/VErr.h"
#include "testbed/Failure.h"

#include <CoreFoundation/CoreFoundation.h>

#include <condition_variable>
#include <mutex>
#include <utility>
#include <vector>

namespace {

std::mutex g_mutex; // guards what follows
std::condition_variable g_changed;
long g_sent = 0;
std::vector<CFArrayRef> g_saved;

long CountSaved() {
    return static_cast<long>(g_saved.size());
}

} // namespace

extern "C" {
// SaveChangerInfoList
VErrLink* __real__Z19SaveChangerInfoListPK9__CFArray(CFArrayRef list);
VErrLink* __wrap__Z19SaveChangerInfoListPK9__CFArray(CFArrayRef list);

VErrLink* __wrap__Z19SaveChangerInfoListPK9__CFArray(CFArrayRef list) {
    VErrLink* err = __real__Z19SaveChangerInfoListPK9__CFArray(list);
    tally::Count(Kind::kListSaved);
    const std::lock_guard lock(g_mutex);
    g_saved.push_back(list);
    g_changed.notify_all();
    return err;
}
}

namespace sent_lists {

void BeginRound() {
    const std::lock_guard lock(g_mutex);
    g_sent = 0;
}

void NoteSent() {
    const std::lock_guard lock(g_mutex);
    ++g_sent;
}

long CountSent() {
    const std::lock_guard lock(g_mutex);
    return g_sent;
}

bool AwaitUnderWay(long most, const std::atomic<bool>& giveUp) {
    std::unique_lock lock(g_mutex);
    g_changed.wait(lock, [&] { return giveUp || g_sent - CountSaved() <= most; });
    return !giveUp;
}

void Wake() {
    const std::lock_guard lock(g_mutex);
    g_changed.notify_all();
}

void AwaitSaved(long count) {
    std::unique_lock lock(g_mutex);
    if (!g_changed.wait_for(lock, testbed::kTimeOut, [&] { return CountSaved() >= count; }))
        throw testbed::Failure("the daemon does not handle notifications any more");
}

void ReleaseReplaced() {
    const std::lock_guard lock(g_mutex);
    g_saved.pop_back(); // the last one was not replaced
    for (CFArrayRef list : std::exchange(g_saved, {}))
        CFRelease(list);
}

} // namespace sent_lists
