#ifndef TRAYPROBED_MEDIAIDTHREAD_H
#define TRAYPROBED_MEDIAIDTHREAD_H

/*
 * Identifying one medium, on a thread of its own: having it mounted once by the server, and its
 * directories listed meanwhile. Nothing records the outcome; the server's next list tells.
 */

#include "common/VErr.h"

#include <CoreFoundation/CoreFoundation.h>

/* The thread owns and frees it. */
struct MediaIdThreadContext {
    UInt64 changerGUID;
    UInt16 storageElem;
    SInt32 buildDirCache; // also list what lies below the media root
};

/* Starts a detached thread for the storage element, then puts the element on the changer's
   in-progress list. The caller holds the state lock, so that the thread cannot take it off
   first. */
VErrLink* StartMediaId(UInt64 changerGUID, UInt16 storageElem, SInt32 buildDirCache);

/* The thread's body: always null. */
void* RunMediaIdThread(void* threadContext);

#endif
