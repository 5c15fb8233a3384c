#ifndef TRAYPROBED_CHANGERFSCACHETHREAD_H
#define TRAYPROBED_CHANGERFSCACHETHREAD_H

/*
 * Listing directories, so that the changer file system caches them: one disc right after it was
 * identified, or every disc of a changer, on a thread of its own and with progress shown through
 * the server. Listing is the whole work; of files, only the info files are opened.
 *
 * Paths are cut silently at 1023 bytes. The state lock is never held while a directory is listed.
 */

#include "common/VErr.h"

#include <CoreFoundation/CoreFoundation.h>

#include <dirent.h>

/* The name under which the daemon shows its status, and the server reports requests to abort. */
extern const char k_fsCacheThreadStatusClient[];

/* The progress of one full build; it belongs to the build's thread. */
struct FSCacheStatusReport {
    UInt64 changerGUID;
    char message[1024];
    UInt16 currentStep; // media roots walked to the end
    UInt16 maximumStep; // media roots counted before; fewer, when a disc came meanwhile
    UInt16 mediaDepth;  // media roots that the walk is inside of
};

/* ---- the walk; any thread without the state lock ---- */

/* scandir's filter: everything but "." and "..". */
int ShouldCacheItem(const struct dirent* entry);

/* Adds the media roots below the directory to the count, which wraps. What lies inside a media
   root is not looked at. A directory that cannot be listed is logged and counts nothing. */
VErrLink* CountMediaRootDirectories(const char* directory, UInt16* count);

/*
 * Lists the directory and, with descend, every directory below it; links are not followed. One
 * that cannot be listed is logged and passed over. After each subdirectory the changer's abort
 * flag is looked at: when it is set, the walk fails with kVErrCodeUserAborted. status may be null;
 * with it, each media root entered and left is reported.
 */
VErrLink* CacheFSDirectory(UInt64 changerGUID, const char* directory, SInt32 descend,
                           FSCacheStatusReport* status);

/* Lists the media roots of that storage element which are there now. An abort is a success. */
VErrLink* RunAFSCacheUpdate(UInt64 changerGUID, UInt16 storageElem, SInt32 descend,
                            const char* mountPath, SInt32* cached);

/* Lists one disc as soon as its media roots are there; waits up to 10 seconds for them, busily,
   since the server adds them right after identification. A disc that shows none is a success. */
VErrLink* RunFSCache(UInt64 changerGUID, UInt16 storageElem, SInt32 descend);

/* ---- progress ---- */

/* Shows 0 of 0, counts the media roots, shows 0 of that. The record belongs to the caller until
   End, and is null on failure. */
VErrLink* StartStatusReportingForFullFSCache(UInt64 changerGUID, const char* rootPath,
                                             FSCacheStatusReport** report);
VErrLink* StatusReportingEnterMedia(FSCacheStatusReport* report);
/* Leaving the outermost media root is one step. */
VErrLink* StatusReportingExitMedia(FSCacheStatusReport* report);
/* Clears the status and frees the record, which is kept when the status cannot be cleared. */
void EndStatusReportingForFullFSCache(FSCacheStatusReport* report);
VErrLink* ReportFSCacheClientStatus(const FSCacheStatusReport* report);
/* Clears what this daemon shows for the changer. */
VErrLink* ResetStatusReporting(UInt64 changerGUID);

/* ---- the full build ---- */

/* Starts a build of the changer on a detached thread, unless one is running. With or without the
   state lock; not known to the caller how it ends. */
VErrLink* StartChangerFSCache(UInt64 changerGUID);
/* The thread's body; it frees its context. */
void* RunChangerFSCacheThread(void* threadContext);

#endif
