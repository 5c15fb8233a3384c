#ifndef TRAYPROBED_MEDIAIDSTATE_H
#define TRAYPROBED_MEDIAIDSTATE_H

/*
 * The store: what the daemon knows about changers. It has the changer info list that the server
 * sent last, a state dictionary for each known changer, and the global default for identifying
 * media.
 *
 * There are two locks. The state lock makes a sequence of calls atomic: a caller takes it around
 * the sequence. It is not recursive, and of the functions below only LockMediaIdState() takes it.
 * The store's own lock is inside each function, because two callers do not hold the state lock: the
 * daily timer, and the caching of a single disc. The store calls no other module of trayprobed
 * under this lock.
 *
 * A state dictionary is copied, changed and stored as a whole: after a failure, the former one is
 * unchanged. For a changer that is not known, functions fail with kVErrCodeNotFound. Flags are 0 or
 * 1. Any thread may call any function whose contract names no thread.
 */

#include "common/VErr.h"

#include <CoreFoundation/CoreFoundation.h>

/* Creates the empty store. Main thread, before other threads start. */
VErrLink* InitMediaIdState(void);

/* Releases the store. No changer is known from then on, to threads that still run. Without a store,
   nothing happens. */
void TermMediaIdState(void);

/* Takes the state lock; blocks until it is free. The code of an error is an errno value; the caller
   does not have the lock then, and does not unlock it. */
VErrLink* LockMediaIdState(void);

/* Releases the state lock, which the calling thread holds. Logs its errors. */
void UnlockMediaIdState(void);

/* The store's own lock, for the sources of the store alone. It is recursive: between the two calls,
   several functions form one update. Call no other module of trayprobed in between. */
void BeginStoreAccess(void);
void EndStoreAccess(void);

/* ---- data of the server ---- */

/* Whether media are identified on insert if the preferences of their changer do not specify it;
   initially 1. Always return null. */
VErrLink* GetGlobalShouldIdMedia(SInt32* shouldId);
VErrLink* SetGlobalShouldIdMedia(SInt32 shouldId);

/* Retains the list and makes it the saved one. No list is ever released: readers without the state
   lock may still use a former one. Always returns null. */
VErrLink* SaveChangerInfoList(CFArrayRef list);

/* Gets the changer's entry of the saved list, borrowed; null on failure. */
VErrLink* GetChangerInfoDict(UInt64 changerGUID, CFDictionaryRef* info);

/* Gets whether the medium was ever identified, and if so, whether one of its partitions has a file
   system; from the saved list. On failure, what was not found out is 0. */
VErrLink* MediaHasMountablePartitions(UInt64 changerGUID, UInt16 storageElem, SInt32* identified,
                                      SInt32* hasFileSystem);

/* ---- changers ---- */

/* Gets a copy of the changer's state, which the caller owns; null on failure. */
VErrLink* GetChangerDictForGUID(UInt64 changerGUID, CFMutableDictionaryRef* dict);

/* Stores the changer's state. A shortage of memory in the store is not reported. */
VErrLink* SetChangerDictForGUID(UInt64 changerGUID, CFDictionaryRef dict);

/* Gets whether the changer is known. Fails without memory alone. */
VErrLink* IsChangerInList(UInt64 changerGUID, SInt32* isInList);

/* Gets the GUIDs of the known changers as numbers, in an array that the caller owns. */
VErrLink* GetChangerList(CFArrayRef* list);

/* Makes the changer known, with a new state that replaces any former one. */
VErrLink* AddChangerToList(UInt64 changerGUID);

/* Removes the changer's state; does not stop its timer, build or identifications. For a changer
   that is not known, nothing happens. */
VErrLink* RemoveChangerFromList(UInt64 changerGUID);

/* ---- storage elements whose identification is in progress ---- */

/* Add an element to the changer's list, or remove it. If it is there, or not there, nothing
 * happens. */
VErrLink* AddStorageElemToMediaIdInProgressList(UInt64 changerGUID, UInt16 storageElem);
VErrLink* RemoveStorageElemFromMediaIdInProgressList(UInt64 changerGUID, UInt16 storageElem);

/* Get the number of elements on the changer's list, and whether an element is on it. The output
   stays as it was on failure. */
VErrLink* GetMediaIdInProgressCount(UInt64 changerGUID, UInt32* count);
VErrLink* IsStorageElemOnInProgressList(UInt64 changerGUID, UInt16 storageElem, SInt32* isOnList);

/* ---- flags of a changer; initially 0 ---- */

/* Whether a full build is in progress. The output stays as it was on failure. */
VErrLink* GetChangerFSCacheBuildInProgress(UInt64 changerGUID, SInt32* inProgress);
VErrLink* SetChangerFSCacheBuildInProgress(UInt64 changerGUID, SInt32 inProgress);

/* Whether the user requested to abort the daemon's operation. The output stays as it was on
   failure. */
VErrLink* GetChangerShouldAbortOperation(UInt64 changerGUID, SInt32* shouldAbort);
VErrLink* SetChangerShouldAbortOperation(UInt64 changerGUID, SInt32 shouldAbort);

/* ---- the daily full build (MediaIdStateTimer.cpp); on one thread, which has the run loop ---- */

/*
 * Adds a timer to the calling thread's run loop. The timer fires at the next occurrence of the
 * local time, and then every 86400 seconds. The calendar normalises an hour or a minute out of
 * range.
 *
 * A timer that was scheduled before is not stopped: call UnscheduleChangerFSCacheTimer() first. The
 * timer of a changer that is removed continues: each time it fires it logs an error, until the
 * changer is known again.
 */
VErrLink* ScheduleChangerFSCacheTimer(UInt64 changerGUID, SInt32 hour, SInt32 minute);

/* Stops the changer's timer. Without a timer, nothing happens. */
VErrLink* UnscheduleChangerFSCacheTimer(UInt64 changerGUID);

/* The timer fires: starts a full build. info is the changer's GUID as a number. Logs its errors. */
void ChangerFSCache(CFRunLoopTimerRef timer, void* info);

#endif
