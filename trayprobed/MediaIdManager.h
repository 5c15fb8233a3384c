#ifndef TRAYPROBED_MEDIAIDMANAGER_H
#define TRAYPROBED_MEDIAIDMANAGER_H

/*
 * Turns the server's notifications into what the daemon does: keeping the list of changers, the
 * daily builds, aborts, builds on request, and the choice of the next disc to identify.
 *
 * The callbacks run on the main thread, each holding the state lock for its whole run, and log
 * their errors. The handlers run under that lock; the first failure ends the pass over the
 * changers, so that one bad entry holds up those behind it until the next notification.
 *
 * "changer list": array of changer GUIDs.
 * "root preferences": dictionary with, optionally, "IdentifyMediaOnInsert" (boolean).
 * "changer info": array of dictionaries, one for each changer:
 *   "GUID"                            64-bit number
 *   "Changer Ready"                   boolean; changers that are not are passed over
 *   "Changer Preferences"             dictionary, each key optional:
 *     "IdentifyMediaOnInsert"           boolean; else the root preference
 *     "BuildDirCacheOnIdentify"         boolean, default false
 *     "BuildDirCacheOnSchedule"         boolean, default false
 *     "BuildDirCacheTimeHours"          32-bit number, default 1
 *     "BuildDirCacheTimeMinutes"        32-bit number, default 0
 *   "Changer Media Info"              array by storage element of dictionaries:
 *     "Media Kind"                      16-bit number; 0 is an empty slot
 *     "Media Request Identification"    boolean, default false
 *     "Media Storage Element Index"     16-bit number
 *     "Media Identify Time"             32-bit number; 0 is never
 *     "Media Mount State"               32-bit number; 0 and 0x40 are not mounted
 *     "Media Partition Info"            array of dictionaries with "Partition Has File System"
 *   "Data Transfer Element Count"     16-bit number, the drives
 *   "Changer Request Identification"  boolean, default false: build the directory cache now
 *   "Changer Client Status"           dictionary by client name of dictionaries with
 *     "Abort Requested"                 boolean
 */

#include "ChangerServerConnectionLib/ChangerServerNotifications.h"
#include "common/VErr.h"

#include <CoreFoundation/CoreFoundation.h>

/* After InitMediaIdState, on the main thread. */
VErrLink* InitMediaIdManager(void);
void TermMediaIdManager(void);

void ChangerListNotificationCallBack(CFTypeRef value, ChangerNotificationSubscription* subscription,
                                     void* refCon);
void RootPrefsNotificationCallBack(CFTypeRef value, ChangerNotificationSubscription* subscription,
                                   void* refCon);
/* The subscription tells which server process sent the list; null: the same one as before. */
void ChangerInfoNotificationCallBack(CFTypeRef value, ChangerNotificationSubscription* subscription,
                                     void* refCon);

/* Drops the state of each known changer that the list does not name. */
VErrLink* HandleRemovedChangers(CFArrayRef changerList);

/* Each takes one entry of "changer info". */
VErrLink* HandleAddedChangers(CFDictionaryRef changerInfo);
VErrLink* UpdateChangerSettings(CFDictionaryRef changerInfo);
VErrLink* HandleChangerOperationAbort(CFDictionaryRef changerInfo);
VErrLink* HandleManualChangerFSBuildStart(CFDictionaryRef changerInfo);

/*
 * Starts at most one identification for the changer: when none is running, or while both the
 * mounted media and the running identifications are fewer than the drives. Requested media come
 * before never identified ones; within each, the lowest position wins.
 */
VErrLink* HandleStartingMediaId(CFDictionaryRef changerInfo);
VErrLink* CountChangerMountedMedia(CFArrayRef media, UInt16* count);
VErrLink* SpawnNextManualMediaId(UInt64 changerGUID, CFArrayRef media, SInt32 buildDirCache,
                                 SInt32* started);
VErrLink* SpawnNextAutomaticMediaId(UInt64 changerGUID, CFArrayRef media, SInt32 buildDirCache,
                                    SInt32* started);

#endif
