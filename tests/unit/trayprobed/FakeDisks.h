#ifndef TESTS_UNIT_TRAYPROBED_FAKEDISKS_H
#define TESTS_UNIT_TRAYPROBED_FAKEDISKS_H

/* Replaces Disk Arbitration. The journal shows the calls on sessions; disks appear and disappear
   when the test calls the callbacks. */

#include "support/CFOwned.h"

#include <DiskArbitration/DiskArbitration.h>

/* A disk with that name and volume path; either may be nullptr, for a disk without. */
class FakeDisk {
public:
    explicit FakeDisk(const char* bsdName, const char* volumePath = nullptr);
    // `volumePath` is the value of the volume path's key in the description.
    FakeDisk(const char* bsdName, CFTypeRef volumePath);

    DADiskRef Ref() {
        return reinterpret_cast<DADiskRef>(this);
    }
    void FailDescription() {
        failsDescription_ = true;
    }

    const char* bsdName_;
    CFOwned<CFTypeRef> volumePath_;
    bool failsDescription_ = false;
    bool wasNamedUnderTheLock_ = false; // at the last DADiskGetBSDName
};

/* The next DASessionCreate returns nullptr. */
void FailNextSession();

#endif
