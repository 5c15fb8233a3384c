#ifndef TRAYPROBED_MEDIAIDTHREAD_H
#define TRAYPROBED_MEDIAIDTHREAD_H

/*
 * The identification of one medium, on a thread of its own: the server mounts the medium and
 * thereby identifies it; the thread lists the medium's directories before it is ejected. The result
 * is not stored here: it is in the server's next notification.
 */

#include "ChangerServerConnectionLib/ChangerServerProcess.h"
#include "common/VErr.h"

#include <CoreFoundation/CoreFoundation.h>

/* The context of one thread, which frees it. If the thread ends and leaves its storage element on
   the in-progress list, the context remains until HandleMediaIdServer() removes the element. */
struct MediaIdThreadContext {
    UInt64 changerGUID;
    UInt16 storageElem;
    SInt32 buildDirCache;        // also list the directories below the media root
    ChangerServerProcess server; // whose notification caused the identification
    bool hasEnded;               // the thread ended and left its element on the list
    MediaIdThreadContext* next;  // the context that was created before
};

/* Starts a detached thread for the storage element, and adds the element to the changer's
   in-progress list. The caller holds the state lock: the thread cannot remove the element before it
   is added. */
VErrLink* StartMediaId(UInt64 changerGUID, UInt16 storageElem, SInt32 buildDirCache);

/*
 * Sets the server process that sends the notifications from now on. A thread that cannot withdraw
 * its request leaves its element on the in-progress list, so that the element is not started again
 * as long as the server process of that request lives. If the process is another one now, this
 * function removes the element, once the thread has ended. Never fails: an element that cannot be
 * removed without memory is removed by a later call. The caller holds the state lock.
 */
void HandleMediaIdServer(const ChangerServerProcess* server);

/* The body of the thread. Logs its errors; always returns null. */
void* RunMediaIdThread(void* threadContext);

#endif
