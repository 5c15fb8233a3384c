#ifndef CHANGERSERVERCOMMANDS_CHANGERSERVEREJECTDISC_H
#define CHANGERSERVERCOMMANDS_CHANGERSERVEREJECTDISC_H

/* The command that sends a disc back to its slot. */

#include "common/VErr.h"

#include <CoreFoundation/CoreFoundation.h>

enum : UInt32 {
    kEjectDiscPrivate = 1 << 0,        // of a disc that this process mounted for itself
    kEjectDiscOverridePrivate = 1 << 1 // although another process holds it
};

/*
 * Asks once a second for as long as the server is busy. Fails with kVErrCodeCommandTimedOut once
 * more than timeout whole seconds have passed. Any thread; blocks it.
 */
VErrLink* ChangerServerEjectDisc(double timeout, UInt64 changerGUID, UInt16 storageElem,
                                 UInt32 flags, SInt32 privateFamily);

/* The message alone, owned by the caller. */
VErrLink* InitEjectDiscMessage(UInt64 changerGUID, UInt16 storageElem, UInt32 flags,
                               SInt32 privateFamily, CFMutableDictionaryRef* message);

#endif
