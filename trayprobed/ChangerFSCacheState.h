#ifndef TRAYPROBED_CHANGERFSCACHESTATE_H
#define TRAYPROBED_CHANGERFSCACHESTATE_H

/*
 * The registry of mounted changer file systems: for each changer at most one, with its disk's BSD
 * name and its mount path. Disk Arbitration's callbacks fill and empty it.
 *
 * The operations take no state lock; who wants several answers that belong together holds it. Each
 * operation is one step under the registry's own lock, because the walk of a single disc reads it
 * without the state lock.
 */

#include "common/VErr.h"

#include <CoreFoundation/CoreFoundation.h>

VErrLink* InitChangerFSCacheState(void);
void TermChangerFSCacheState(void);

VErrLink* IsChangerFSGUIDInList(UInt64 changerGUID, bool* isInList);

/* size is in bytes, terminator included. An entry may go between a look and this call. */
VErrLink* GetChangerFSMountPath(UInt64 changerGUID, char* mountPath, CFIndex size);

/* In place of any earlier entry for the changer. Texts are UTF-8. */
VErrLink* AddChangerFSToList(UInt64 changerGUID, const char* bsdName, const char* mountPath);

/* The first entry with that name; a name that no entry has is no error. */
VErrLink* RemoveChangerFSFromList(const char* bsdName);

#endif
