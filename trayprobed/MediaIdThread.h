#ifndef TRAYPROBED_MEDIAIDTHREAD_H
#define TRAYPROBED_MEDIAIDTHREAD_H

/*
 * Identifying one medium, on a thread of its own: having it mounted once by the server, and its
 * directories listed meanwhile. Nothing records the outcome; the server's next list tells.
 */

#include "ChangerServerConnectionLib/ChangerServerProcess.h"
#include "common/VErr.h"

#include <CoreFoundation/CoreFoundation.h>

/* The thread owns it. It frees it, too, unless it leaves its storage element on the in-progress
   list: then the context stays until the element is taken off (HandleMediaIdServer). */
struct MediaIdThreadContext {
    UInt64 changerGUID;
    UInt16 storageElem;
    SInt32 buildDirCache;        // also list what lies below the media root
    ChangerServerProcess server; // whose notification asked for it
    bool hasEnded;               // the thread has, and left its element on the list
    MediaIdThreadContext* next;  // the one that was started before
};

/* Starts a detached thread for the storage element, then puts the element on the changer's
   in-progress list. The caller holds the state lock, so that the thread cannot take it off
   first. */
VErrLink* StartMediaId(UInt64 changerGUID, UInt16 storageElem, SInt32 buildDirCache);

/*
 * Tells which server process sends the notifications now: what is started from here on was picked
 * on its word. A thread whose withdrawal fails leaves its element on the in-progress list and so
 * out of reach; that holds as long as the server lives that asked for it. Elements left by threads
 * that have ended are taken off here when another process had asked for them. The caller holds the
 * state lock. Never fails: what cannot be taken off without memory is taken off by the next call.
 */
void HandleMediaIdServer(const ChangerServerProcess* server);

/* The thread's body: always null. */
void* RunMediaIdThread(void* threadContext);

#endif
