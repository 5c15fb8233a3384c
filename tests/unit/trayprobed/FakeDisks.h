#ifndef TESTS_UNIT_TRAYPROBED_FAKEDISKS_H
#define TESTS_UNIT_TRAYPROBED_FAKEDISKS_H

/* Disk Arbitration in place of the real one. Sessions and what is done with them are noted in the
   journal; disks appear and disappear when the test calls the callbacks. */

#include "support/CFOwned.h"

#include <DiskArbitration/DiskArbitration.h>

/* A disk with that name and volume path; each may be absent. */
class FakeDisk {
public:
    FakeDisk(const char* bsdName, const char* volumePath);
    // Whose description has this under the volume path's key.
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
    bool wasNamedUnderTheLock_ = false; // when its name was asked for last
};

/* The next session cannot be made. */
void FailNextSession();

#endif
