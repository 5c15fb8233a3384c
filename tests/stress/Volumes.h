#ifndef TESTS_STRESS_VOLUMES_H
#define TESTS_STRESS_VOLUMES_H

/* The changers' file systems: bind mounts, in the sandbox, of trees with a disc in each slot. Not
   thread-safe. */

#include "Changers.h"

#include <string>

class Volumes {
public:
    // Creates and mounts all file systems.
    Volumes();

    // Mounts or unmounts a random file system, or removes or puts back a random disc.
    void Disturb();
    // Mounts all file systems and puts back all discs.
    void Restore();

    // The mount point of the changer's file system.
    static std::string PathOf(UInt64 changerGUID);

private:
    void ToggleMount(int changer);
    void ToggleDisc(int changer, UInt16 slot);

    bool isMounted_[kChangers] = {};
    bool isRemoved_[kChangers][kSlots] = {};
};

#endif
