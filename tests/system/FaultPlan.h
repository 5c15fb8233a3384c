#ifndef TESTS_SYSTEM_FAULTPLAN_H
#define TESTS_SYSTEM_FAULTPLAN_H

/*
 * What is to go wrong around the daemon, in memory that the test shares with FaultyCalls.cpp, the
 * library that is loaded into the daemon before all others. Calls by these very names count, its
 * libraries' too; not what they call by another name of the same (open64, __open_2), nor what libc
 * makes of itself.
 */

#include <atomic>
#include <iterator>
#include <string_view>

/* The functions that can fail. pthread_setspecific is none of them: GLib ends the process when one
   of its own calls of it fails. */
inline constexpr std::string_view kFaultyCalls[] = {
    "connect", "epoll_create1", "epoll_ctl", "epoll_wait",    "eventfd",        "fdopendir",
    "fopen",   "fstat",         "fstatat",   "lstat",         "open",           "openat",
    "opendir", "poll",          "read",      "readdir",       "pthread_create", "recv",
    "send",    "socket",        "statfs",    "timerfd_create"};

constexpr int IndexOfFaultyCall(std::string_view name) {
    for (int i = 0; i < static_cast<int>(std::size(kFaultyCalls)); ++i)
        if (kFaultyCalls[i] == name)
            return i;
    return -1;
}

struct FaultPlan {
    std::atomic<int> call = -1;      // which of them is to fail; -1: none
    std::atomic<int> error = 0;      // with that errno
    std::atomic<int> untilFault = 0; // counts its calls down to the one that fails
    std::atomic<long> waits = 0;     // how often the daemon has looked for something to do
};
static_assert(std::atomic<int>::is_always_lock_free && std::atomic<long>::is_always_lock_free);

/* The variable of the daemon's environment that names the file with the plan. */
inline constexpr const char* kFaultPlanVariable = "FAULT_PLAN";

/* What the daemon then says on its standard error. */
inline constexpr const char* kFaultNotice = "a call fails";

/* The daemon's monotonic clock runs that much faster, so that its short waits take no time. Its
   longest one for a reply is then three seconds. */
inline constexpr int kHaste = 10;

#endif
