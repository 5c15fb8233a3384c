#ifndef CHANGERSERVERCONNECTIONLIB_CHANGERSERVERPROCESS_H
#define CHANGERSERVERCONNECTIONLIB_CHANGERSERVERPROCESS_H

/* The identity of a server process: a restarted server is another process. */

#include <CoreFoundation/CFBase.h>

#include <sys/time.h>

struct ChangerServerProcess {
    SInt32 pid;
    struct timeval startTime; // differs for a later process of the same id; zero if unknown
};

/* Sets *process to the id and the start time of the process that has the id now. Any thread. */
void GetChangerServerProcess(SInt32 pid, ChangerServerProcess* process);

/* True if the ids are equal and the start times are equal or one is unknown. Any thread. */
bool IsSameChangerServerProcess(const ChangerServerProcess* one, const ChangerServerProcess* other);

#endif
