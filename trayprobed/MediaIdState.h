#ifndef TRAYPROBED_MEDIAIDSTATE_H
#define TRAYPROBED_MEDIAIDSTATE_H

/*
 * What the daemon remembers about changers: the last changer info list that the server pushed, a
 * state dictionary for each known changer, and the global default for identifying media.
 *
 * Two locks. The state lock makes a sequence of operations one step; callers take it around the
 * whole sequence, and no operation but LockMediaIdState takes it. It is not recursive. Beneath it
 * the store has a lock of its own, taken by each operation and held across no call out, because
 * two callers come without the state lock: the daily timer, and the walk of a single disc.
 *
 * State dictionaries are copied, changed and written back whole; a failure on the way leaves the
 * stored one as it was. Operations on a changer that is not known fail with kVErrCodeNotFound.
 * Flags are 0 or 1.
 */

#include "common/VErr.h"

#include <CoreFoundation/CoreFoundation.h>

/* On the main thread, before other threads start and after they are of no account. Term does
   nothing harmful when Init did not succeed. */
VErrLink* InitMediaIdState(void);
void TermMediaIdState(void);

VErrLink* LockMediaIdState(void);
void UnlockMediaIdState(void);

/* The store's own lock, for the sources of the store alone. It is recursive: between the two calls,
   several operations form one update. Call nothing outside the store in between. */
void BeginStoreAccess(void);
void EndStoreAccess(void);

/* Whether media are identified on insert where a changer's preferences do not say. Never fail. */
VErrLink* GetGlobalShouldIdMedia(SInt32* shouldId);
VErrLink* SetGlobalShouldIdMedia(SInt32 shouldId);

/* Keeps the list. Earlier lists stay retained for ever, so that a reader without the state lock
   never loses what it reads. Never fails. */
VErrLink* SaveChangerInfoList(CFArrayRef list);

/* The changer's entry in the saved list, borrowed. */
VErrLink* GetChangerInfoDict(UInt64 changerGUID, CFDictionaryRef* info);

/* Whether the medium was ever identified, and then whether any of its partitions holds a file
   system. May be called without the state lock. */
VErrLink* MediaHasMountablePartitions(UInt64 changerGUID, UInt16 storageElem, SInt32* identified,
                                      SInt32* hasFileSystem);

/* A copy of the changer's state, owned by the caller. */
VErrLink* GetChangerDictForGUID(UInt64 changerGUID, CFMutableDictionaryRef* dict);
VErrLink* SetChangerDictForGUID(UInt64 changerGUID, CFDictionaryRef dict);

VErrLink* IsChangerInList(UInt64 changerGUID, SInt32* isInList);
/* The known changers' GUIDs as numbers; the caller owns the array. */
VErrLink* GetChangerList(CFArrayRef* list);
/* With a fresh state, in place of any earlier one. */
VErrLink* AddChangerToList(UInt64 changerGUID);
/* Drops the whole state; nothing else is told. An unknown changer is no error. */
VErrLink* RemoveChangerFromList(UInt64 changerGUID);

/* The storage elements whose identification runs. Adding twice and removing an absent one are no
   errors. */
VErrLink* AddStorageElemToMediaIdInProgressList(UInt64 changerGUID, UInt16 storageElem);
VErrLink* RemoveStorageElemFromMediaIdInProgressList(UInt64 changerGUID, UInt16 storageElem);
VErrLink* GetMediaIdInProgressCount(UInt64 changerGUID, UInt32* count);
VErrLink* IsStorageElemOnInProgressList(UInt64 changerGUID, UInt16 storageElem, SInt32* isOnList);

VErrLink* GetChangerFSCacheBuildInProgress(UInt64 changerGUID, SInt32* inProgress);
VErrLink* SetChangerFSCacheBuildInProgress(UInt64 changerGUID, SInt32 inProgress);
VErrLink* GetChangerShouldAbortOperation(UInt64 changerGUID, SInt32* shouldAbort);
VErrLink* SetChangerShouldAbortOperation(UInt64 changerGUID, SInt32 shouldAbort);

/*
 * The daily directory cache build: a timer on the calling thread's run loop, the same thread for
 * all calls, first at the next occurrence of that local time and then every 86400 seconds.
 * Hour and minute are normalised by the calendar. Scheduling twice leaves both timers firing, so
 * unschedule first. The timer of a changer that is removed goes on: it fails daily, and builds
 * again once the changer is back.
 */
VErrLink* ScheduleChangerFSCacheTimer(UInt64 changerGUID, SInt32 hour, SInt32 minute);
/* Without a timer nothing happens. */
VErrLink* UnscheduleChangerFSCacheTimer(UInt64 changerGUID);
/* The timer's callout; info is a number, the changer's GUID. */
void ChangerFSCache(CFRunLoopTimerRef timer, void* info);

#endif
