#ifndef TESTS_FAULTS_FAULTPLAN_H
#define TESTS_FAULTS_FAULTPLAN_H

/*
 * The fault that PreloadedCalls.cpp injects into a running daemon, in memory that the test shares
 * with it. The calls of the daemon's libraries count as well; calls by another name (open64), and
 * those that libc makes of its own functions, do not.
 */

#include <atomic>

struct FaultPlan {
    std::atomic<int> call = -1;      // the row of Calls.def that fails; -1: none
    std::atomic<int> error = 0;      // errno, or kShort
    std::atomic<int> untilFault = 0; // counts the calls down to the one that fails
    std::atomic<long> waits = 0;     // how often the daemon has waited for events
};
static_assert(std::atomic<int>::is_always_lock_free && std::atomic<long>::is_always_lock_free);

/* The variable of the daemon's environment that names the file with the plan. */
inline constexpr const char* kFaultPlanVariable = "FAULT_PLAN";

/* The line on the daemon's standard error when a call fails. */
inline constexpr const char* kFaultNotice = "a call fails";

/* The factor by which the daemon's monotonic clock is faster, which shortens its time-outs. The
   longest one for a reply is then three seconds. */
inline constexpr int kHaste = 10;

#endif
