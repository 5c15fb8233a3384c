#ifndef TESTS_SOAK_SERVERCRASH_H
#define TESTS_SOAK_SERVERCRASH_H

#include "ServerControl.h"
#include "SoakContext.h"

/* A server that is killed during identifications and a build. Before the kill, each of them is
   blocked at a request without reply or at a listing without end, so the expected counts are
   exact. */
class ServerCrash {
public:
    // `number` of the crash selects the discs and changers.
    ServerCrash(SoakContext& context, int number)
        : context_(context), control_(context), number_(number) {}

    // Starts and blocks the work. Call before the server is killed, when the daemon is idle.
    void Interrupt();

    // Call after the kill: waits until the daemon is idle and counts the failures that it logged.
    void CountFailures();

    // Requests the interrupted identifications and builds from the next server and waits for them.
    // The builds leave discs in the drives.
    static void RepeatInterruptedWork(SoakContext& context);

private:
    int ChangerAt(int position) const {
        return (number_ + position) % kChangers;
    }
    int SlotAt(int position) const {
        return (number_ / kChangers + position) % kDiscs;
    }
    void InterruptIdentification(Place place, Step last);
    void InterruptBuild(int changer);

    SoakContext& context_;
    ServerControl control_;
    const int number_;
};

#endif
