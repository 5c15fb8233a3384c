#ifndef TRAYPROBED_CHANGERFSCACHEMANAGER_H
#define TRAYPROBED_CHANGERFSCACHEMANAGER_H

/*
 * Observes the mounting of volumes: the callbacks of a Disk Arbitration session recognise changer
 * file systems by the info file in their root, and update the registry (ChangerFSCacheState.h).
 * Everything runs on the run loop of the thread that called InitChangerFSCacheManager().
 */

#include "common/VErr.h"

#include <DiskArbitration/DiskArbitration.h>

/* Starts the session. The first callbacks, for the volumes that are mounted already, come as soon
   as the run loop runs. Precondition: InitMediaIdState() and InitChangerFSCacheState() succeeded.
 */
VErrLink* InitChangerFSCacheManager(void);

/* Ends the session: no callback follows. Without a session, nothing happens. */
void TermChangerFSCacheManager(void);

/* Adds the changer to the registry if the disk's volume is a changer file system. Logs its errors;
   the changer is then missing until its volume is mounted again. */
void DiskArbDiskAppearedCallback(DADiskRef disk, void* context);

/* Removes the disk's changer from the registry. Logs its errors; the entry then remains. */
void DiskArbDiskDisappearedCallback(DADiskRef disk, void* context);

#endif
