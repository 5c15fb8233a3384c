#ifndef TESTS_SOAK_SERVERCRASH_H
#define TESTS_SOAK_SERVERCRASH_H

#include "Dialogue.h"
#include "Performance.h"

#include <map>
#include <string>

/* A server that is killed in the middle of identifications and a build. Each of them is brought to
   a request that the server leaves unanswered, or to a listing that it does not finish, so that
   what the server has counted is known when it is killed. */
class ServerCrash {
public:
    // The discs and changers concerned rotate with the number of the crash.
    ServerCrash(Performance& performance, int number)
        : performance_(performance), dialogue_(performance), number_(number) {}

    // Before the server is killed. The daemon has nothing else to do.
    void CutOff();

    // After it was killed: waits until the daemon has given up everything, and counts how often it
    // logged so. With the next server all of it has to be made up for.
    void CountEnds();

    // What the server that was killed last left undone is asked for again. The build leaves discs
    // in the drives.
    static void MakeUp(Performance& performance);

private:
    int ChangerAt(int position) const {
        return (number_ + position) % kChangers;
    }
    int SlotAt(int position) const {
        return (number_ / kChangers + position) % kDiscs;
    }
    void CutOffIdentification(Place place, Step last);
    void CutOffBuild(int changer);

    Performance& performance_;
    Dialogue dialogue_;
    const int number_;
};

#endif
