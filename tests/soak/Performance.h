#ifndef TESTS_SOAK_PERFORMANCE_H
#define TESTS_SOAK_PERFORMANCE_H

#include "Ledger.h"

#include "testbed/TestRun.h"

#include <string>
#include <vector>

inline constexpr int kChangers = 8;
inline constexpr int kChangersOfTheOverture = 2; // the daemon knows the first ones from it
inline constexpr int kDrives = 2;                // of a changer
inline constexpr int kDiscs = 7; // of a changer, in its first slots; one slot more is spare

/* What a server that was killed in the middle of its work left undone, and over all of them what
   became of it. */
struct CrashRecord {
    std::vector<Place> discs;  // to be identified by the next server
    std::vector<int> changers; // to be built by it

    long servers = 0;
    long begunIdentifications = 0;
    long begunBuilds = 0;
    long mounted = 0; // of these discs, and so identified by the server that was killed
    long endsOfIdentifications = 0; // logged by the daemon
    long endsOfBuilds = 0;
    std::vector<std::string> otherLines; // logged at that time
    long identifiedAgain = 0;
    long builtAgain = 0;
};

/* What all servers have in common, and what has been counted over them. */
struct Performance {
    testbed::TestRun run;
    Ledger ledger;
    testbed::ResourceUsage quiet; // of the daemon when it is connected and has nothing to do
    std::string pipe;             // takes a copy of all notifications

    long notifications = 0; // "changer info" only
    long mounts = 0;        // taken up by the daemon
    long wholeBuilds = 0;
    long abortedBuilds = 0;
    CrashRecord crashes;
    std::vector<std::string> leftovers; // at the end of a server: requests, statuses, held discs
};

#endif
