#ifndef TESTS_STRESS_VOLUMES_H
#define TESTS_STRESS_VOLUMES_H

/* The changers' file systems: real mounts, in a sandbox, of trees with a disc for each slot.
   For one thread. */

#include "Changers.h"

#include <string>

class Volumes {
public:
    // All are mounted.
    Volumes();

    // Mounts or unmounts one, or takes a disc away or puts it back.
    void Disturb();
    // All is there again.
    void Restore();

    // Where the changer's file system is mounted when it is.
    static std::string PathOf(UInt64 changerGUID);

private:
    void Toggle(int changer);
    void ToggleDisc(int changer, UInt16 slot);

    bool isMounted_[kChangers] = {};
    bool isTaken_[kChangers][kSlots] = {};
};

#endif
