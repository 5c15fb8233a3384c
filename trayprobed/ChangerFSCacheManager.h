#ifndef TRAYPROBED_CHANGERFSCACHEMANAGER_H
#define TRAYPROBED_CHANGERFSCACHEMANAGER_H

/*
 * Where each changer file system is mounted: a Disk Arbitration session, whose callbacks recognise
 * the file systems by the info file at their root and keep the registry. Everything runs on the
 * thread that called Init, on its run loop.
 */

#include "common/VErr.h"

#include <DiskArbitration/DiskArbitration.h>

/* After InitChangerFSCacheState. What is mounted already is reported as soon as the loop runs. */
VErrLink* InitChangerFSCacheManager(void);
/* No callback follows. */
void TermChangerFSCacheManager(void);

/* They log their errors; a failed add leaves the changer out until its volume is mounted again, a
   failed removal leaves an entry behind. */
void DiskArbDiskAppearedCallback(DADiskRef disk, void* context);
void DiskArbDiskDisappearedCallback(DADiskRef disk, void* context);

#endif
