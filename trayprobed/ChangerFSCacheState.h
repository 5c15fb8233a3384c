#ifndef TRAYPROBED_CHANGERFSCACHESTATE_H
#define TRAYPROBED_CHANGERFSCACHESTATE_H

/*
 * The registry of mounted changer file systems. A changer has at most one entry: the BSD name of
 * its disk and its mount path. The callbacks of Disk Arbitration write the registry.
 *
 * Any thread may call any function; the registry has a lock of its own, and no function takes the
 * state lock. A caller that needs several calls to agree holds the state lock around them. The
 * caching of a single disc calls without it.
 */

#include "common/VErr.h"

#include <CoreFoundation/CoreFoundation.h>

/* Creates the empty registry. */
VErrLink* InitChangerFSCacheState(void);

/* Releases the registry. It is empty from then on, for threads that still run. */
void TermChangerFSCacheState(void);

/* Whether the changer has an entry. Fails without memory alone. */
VErrLink* IsChangerFSGUIDInList(UInt64 changerGUID, bool* isInList);

/* Copies the mount path, as UTF-8. Fails if there is no entry, or if the path does not fit into
   size bytes, terminator included. */
VErrLink* GetChangerFSMountPath(UInt64 changerGUID, char* mountPath, CFIndex size);

/* Adds an entry, in place of a former one of the changer. Texts are UTF-8. */
VErrLink* AddChangerFSToList(UInt64 changerGUID, const char* bsdName, const char* mountPath);

/* Removes an entry with the BSD name; without such an entry, nothing happens. */
VErrLink* RemoveChangerFSFromList(const char* bsdName);

#endif
