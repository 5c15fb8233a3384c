#ifndef CHANGERSERVERCONNECTIONLIB_CHANGERSERVERPROCESS_H
#define CHANGERSERVERCONNECTIONLIB_CHANGERSERVERPROCESS_H

/* Which process of the server's it is: a server that is started again is another one. */

#include <CoreFoundation/CFBase.h>

#include <sys/time.h>

/* A process of the server's. The start time tells it from a later one of the same id; it is zero
   where it could not be read. */
struct ChangerServerProcess {
    SInt32 pid;
    struct timeval startTime;
};

/* Looks up the start time of the process that has the id now. Never fails. */
void GetChangerServerProcess(SInt32 pid, ChangerServerProcess* process);

/* A start time that is not known equals any. */
bool IsSameChangerServerProcess(const ChangerServerProcess* one, const ChangerServerProcess* other);

#endif
