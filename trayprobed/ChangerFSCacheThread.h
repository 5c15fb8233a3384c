#ifndef TRAYPROBED_CHANGERFSCACHETHREAD_H
#define TRAYPROBED_CHANGERFSCACHETHREAD_H

/*
 * Builds of the directory cache. Listing a directory makes the changer file system cache it, so a
 * build is a walk that lists directories; of files, it opens only the info files. One build lists a
 * single disc right after its identification. A full build lists all discs of a changer on a thread
 * of its own, and reports its progress to the server.
 *
 * Paths are cut as a PathBuffer is. The state lock is never held while a directory is listed.
 */

#include "common/VErr.h"

#include <CoreFoundation/CoreFoundation.h>

#include <dirent.h>

/* The client name of the daemon's status at the server, and of requests to abort. */
extern const char k_fsCacheThreadStatusClient[];

/* The progress of a full build; it belongs to the thread of the build. */
struct FSCacheStatusReport {
    UInt64 changerGUID;
    char message[1024];
    UInt16 currentStep; // number of media roots that are done
    UInt16 maximumStep; // number of media roots that were counted at the start
    UInt16 mediaDepth;  // number of media roots around the present place of the walk
};

/* ---- the walk; any thread that does not hold the state lock ---- */

/* A DirectoryFilter: returns 0 for "." and "..", and else 1. */
int ShouldCacheItem(const struct dirent* entry);

/* Adds the number of media roots below the directory to *count, which wraps. Does not enter a media
   root. Logs a directory that cannot be listed, and skips it. */
VErrLink* CountMediaRootDirectories(const char* directory, UInt16* count);

/*
 * Lists the directory and, if descend is not 0, all directories below it; does not follow symbolic
 * links. Logs a directory that cannot be listed, and skips it. Checks the changer's abort flag
 * after each subdirectory; the code is kVErrCodeUserAborted if the flag is set. Reports media roots
 * to status, which may be null.
 */
VErrLink* CacheFSDirectory(UInt64 changerGUID, const char* directory, SInt32 descend,
                           FSCacheStatusReport* status);

/* Lists the media roots of the storage element that are below the mount path now. *cached becomes 1
   if there is one that was listed, and else 0. An abort by the user is a success. */
VErrLink* RunAFSCacheUpdate(UInt64 changerGUID, UInt16 storageElem, SInt32 descend,
                            const char* mountPath, SInt32* cached);

/* Waits until the media roots of the storage element exist, and lists them. Waits up to 10 seconds,
   polling without a pause: they are expected right after the identification. If there are none in
   that time, if the disc has no file system, or if the changer is not mounted, returns null. */
VErrLink* RunFSCache(UInt64 changerGUID, UInt16 storageElem, SInt32 descend);

/* ---- progress of a full build; each exchange with the server blocks the thread ---- */

/* Reports step 0 of 0, counts the media roots below rootPath, and reports step 0 of their number.
   The caller owns *report until EndStatusReportingForFullFSCache(); null on failure. */
VErrLink* StartStatusReportingForFullFSCache(UInt64 changerGUID, const char* rootPath,
                                             FSCacheStatusReport** report);

/* The walk enters a media root. Always returns null. */
VErrLink* StatusReportingEnterMedia(FSCacheStatusReport* report);

/* The walk leaves a media root. If that is the outermost one, reports the next step. */
VErrLink* StatusReportingExitMedia(FSCacheStatusReport* report);

/* Clears the status at the server and frees the report. If the status cannot be cleared, logs the
   error and does not free the report. */
void EndStatusReportingForFullFSCache(FSCacheStatusReport* report);

/* Sends the report to the server. */
VErrLink* ReportFSCacheClientStatus(const FSCacheStatusReport* report);

/* Clears the daemon's status for the changer at the server. */
VErrLink* ResetStatusReporting(UInt64 changerGUID);

/* ---- the full build ---- */

/* Starts a full build on a detached thread, unless the changer has one in progress. Returns before
   the build ends; the build logs its errors. Any thread, with or without the state lock. */
VErrLink* StartChangerFSCache(UInt64 changerGUID);

/* The body of the thread, which frees its context. Always returns null. */
void* RunChangerFSCacheThread(void* threadContext);

#endif
