#ifndef CHANGERSERVERCOMMANDS_CHANGERSERVEREJECTDISC_H
#define CHANGERSERVERCOMMANDS_CHANGERSERVEREJECTDISC_H

/* The command that sends a disc back to its slot. */

#include "common/VErr.h"

#include <CoreFoundation/CoreFoundation.h>

enum : UInt32 {
    kEjectDiscPrivate = 1 << 0,        // the disc is mounted for this process alone
    kEjectDiscOverridePrivate = 1 << 1 // eject although the disc is mounted for another process
};

/* Requests the ejection, and repeats the request every second as long as the server is busy. The
   code is kVErrCodeCommandTimedOut when more than `timeout` whole seconds have passed. Any thread;
   blocks it. */
VErrLink* ChangerServerEjectDisc(double timeout, UInt64 changerGUID, UInt16 storageElem,
                                 UInt32 flags, SInt32 privateFamily);

/* Makes the message, which the caller owns; null on failure. */
VErrLink* InitEjectDiscMessage(UInt64 changerGUID, UInt16 storageElem, UInt32 flags,
                               SInt32 privateFamily, CFMutableDictionaryRef* message);

#endif
