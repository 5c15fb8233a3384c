#ifndef TESTS_SOAK_SOAKCONTEXT_H
#define TESTS_SOAK_SOAKCONTEXT_H

#include "CountComparison.h"
#include "testbed/TestRun.h"

#include <string>
#include <vector>

inline constexpr int kChangers = 8;
inline constexpr int kWarmUpChangers = 2; // the warm-up server has the first ones
inline constexpr int kDrives = 2;         // per changer
inline constexpr int kDiscs = 7;          // per changer, in its first slots; one more slot is spare

/* The work that the last killed server interrupted, and counts over all killed servers. */
struct CrashCounts {
    std::vector<Place> discs;  // the next server requests their identification
    std::vector<int> changers; // the next server requests their build

    long servers = 0;
    long interruptedIdentifications = 0;
    long interruptedBuilds = 0;
    long mounted = 0;               // of these discs; the killed server counted them as identified
    long failedIdentifications = 0; // logged by the daemon
    long failedBuilds = 0;
    std::vector<std::string> otherLines; // logged at that time
    long repeatedIdentifications = 0;
    long repeatedBuilds = 0;
};

/* The state that all cycles share, and the counts over all cycles. */
struct SoakContext {
    testbed::TestRun run;
    CountComparison counts;
    testbed::ResourceUsage idleUsage; // of the connected daemon without work
    std::string pipe;                 // receives a copy of all notifications

    long notifications = 0; // "changer info" only
    long mounts = 0;        // registered by the daemon
    long completedBuilds = 0;
    long abortedBuilds = 0;
    CrashCounts crashes;
    std::vector<std::string> leftovers; // at the end of a cycle: requests, statuses, held discs
};

#endif
