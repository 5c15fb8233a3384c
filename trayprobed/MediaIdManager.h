#ifndef TRAYPROBED_MEDIAIDMANAGER_H
#define TRAYPROBED_MEDIAIDMANAGER_H

/*
 * Handles the server's notifications: keeps the list of changers, schedules the daily builds,
 * aborts builds, starts builds on request, and selects the next disc to identify.
 *
 * The callbacks run on the main thread, hold the state lock from begin to end, and log their
 * errors. The handlers run under that lock. The first failure ends the loop over the changers, so
 * an invalid entry delays those behind it until the next notification.
 *
 * "changer list": array of changer GUIDs.
 * "root preferences": dictionary with, optionally, "IdentifyMediaOnInsert" (boolean).
 * "changer info": array of dictionaries, one for each changer:
 *   "GUID"                            64-bit number
 *   "Changer Ready"                   boolean; other changers are skipped
 *   "Changer Preferences"             dictionary, each key optional:
 *     "IdentifyMediaOnInsert"           boolean, default: the root preference
 *     "BuildDirCacheOnIdentify"         boolean, default false
 *     "BuildDirCacheOnSchedule"         boolean, default false
 *     "BuildDirCacheTimeHours"          32-bit number, default 1
 *     "BuildDirCacheTimeMinutes"        32-bit number, default 0
 *   "Changer Media Info"              array by storage element of dictionaries:
 *     "Media Kind"                      16-bit number; 0 means an empty slot
 *     "Media Request Identification"    boolean, default false
 *     "Media Storage Element Index"     16-bit number
 *     "Media Identify Time"             32-bit number; 0 means never
 *     "Media Mount State"               32-bit number; 0 and 0x40 mean not mounted
 *     "Media Partition Info"            array of dictionaries with "Partition Has File System"
 *   "Data Transfer Element Count"     16-bit number: how many drives there are
 *   "Changer Request Identification"  boolean, default false: build the directory cache now
 *   "Changer Client Status"           dictionary by client name of dictionaries with
 *     "Abort Requested"                 boolean
 */

#include "ChangerServerConnectionLib/ChangerServerNotifications.h"
#include "common/VErr.h"

#include <CoreFoundation/CoreFoundation.h>

/* Subscribes to the notifications on the calling thread, which must be the main thread.
   Precondition: InitMediaIdState() succeeded. */
VErrLink* InitMediaIdManager(void);

/* Unsubscribes on the main thread: no callback follows. Without a subscription, nothing happens. */
void TermMediaIdManager(void);

/* "changer list": forgets the changers that are not on the list. */
void ChangerListNotificationCallBack(CFTypeRef value, ChangerNotificationSubscription* subscription,
                                     void* refCon);

/* "root preferences": stores the global default for identifying media, if there is one. */
void RootPrefsNotificationCallBack(CFTypeRef value, ChangerNotificationSubscription* subscription,
                                   void* refCon);

/* "changer info": saves the list, then calls the handlers for each changer that is ready. The
   subscription names the server process that sent the list; null stands for the same one as before.
 */
void ChangerInfoNotificationCallBack(CFTypeRef value, ChangerNotificationSubscription* subscription,
                                     void* refCon);

/* Removes the state of each known changer that is not on the list. */
VErrLink* HandleRemovedChangers(CFArrayRef changerList);

/* ---- handlers of one entry of "changer info" ---- */

/* If the changer is not known, clears the daemon's status for it at the server, which blocks the
   thread for an exchange, and adds the changer. */
VErrLink* HandleAddedChangers(CFDictionaryRef changerInfo);

/* Replaces the changer's daily timer by that of its preferences, if they request one. */
VErrLink* UpdateChangerSettings(CFDictionaryRef changerInfo);

/* Sets the changer's abort flag to whether the user requested to abort the daemon's operation. */
VErrLink* HandleChangerOperationAbort(CFDictionaryRef changerInfo);

/* Starts a full build if the entry requests one. */
VErrLink* HandleManualChangerFSBuildStart(CFDictionaryRef changerInfo);

/* Starts at most one identification: if none is in progress, or if both the mounted media and the
   identifications in progress are fewer than the drives. A requested medium precedes one that was
   never identified; among those, the first one of the list is taken. */
VErrLink* HandleStartingMediaId(CFDictionaryRef changerInfo);

/* ---- steps of HandleStartingMediaId ---- */

/* Counts the media that are mounted, by their mount state. */
VErrLink* CountChangerMountedMedia(CFArrayRef media, UInt16* count);

/* Start the identification of the first medium that was requested, or that was never identified,
   and is not in progress. *started becomes 1 then, and else 0. */
VErrLink* SpawnNextManualMediaId(UInt64 changerGUID, CFArrayRef media, SInt32 buildDirCache,
                                 SInt32* started);
VErrLink* SpawnNextAutomaticMediaId(UInt64 changerGUID, CFArrayRef media, SInt32 buildDirCache,
                                    SInt32* started);

#endif
