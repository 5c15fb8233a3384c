#include "trayprobed/ChangerFSCacheThread.h"

#include "ChangerServerConnectionLib/ChangerServerCommands/ChangerServerRequestIdentification.h"
#include "ChangerServerConnectionLib/ChangerServerCommands/ChangerServerSetClientStatus.h"
#include "common/CFHelpers.h"
#include "common/PathBuffer.h"
#include "common/WallClock.h"
#include "fsclient/DirectoryInfo.h"
#include "trayprobed/ChangerFSCacheState.h"
#include "trayprobed/DirectoryWalk.h"
#include "trayprobed/MediaIdState.h"

#include <dirent.h>
#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

static const char kSourcePath[] = "trayprobed/ChangerFSCacheThread";

const char k_fsCacheThreadStatusClient[] = "trayprobed";
static const char k_fsCacheThreadStatusMessage[] = "Building changer directory cache";

constexpr double k_changerFSCacheTimeout = 10.0; // seconds, until the media roots of a disc exist

// ---- the walk ----

int ShouldCacheItem(const struct dirent* entry) {
    return strcmp(entry->d_name, ".") != 0 && strcmp(entry->d_name, "..") != 0;
}

// Logs the error of a directory, if any. The link names `function`.
static void LogUnlisted(const char* function, const DirectoryWalk* walk,
                        const WalkedDirectory* directory) {
    VErrLink* err = nullptr;
    if (directory->error == 0)
        return;
    VErrRaise(
        VErrThrowWithErrCode(&err, directory->error, "fail scandir on \"%s\"", walk->path.text),
        kSourcePath, function, __LINE__);
    VErrLogAndCatch(&err);
}

static VErrLink* CountMediaRootDirectories(DirectoryWalk* walk, WalkedDirectory* here,
                                           UInt16* count) {
    VErrLink* err = nullptr;
    WalkedDirectory child;
    EnterDirectory(walk, here);
    while (err == nullptr && FindSubdirectory(walk, here, &child)) {
        bool isMediaRoot = false;
        VERR_STEP(err, IsDirectoryMediaRootOfChangerFileSystem(walk->path.text, &isMediaRoot),
                  "fail IsDirectoryMediaRootOfChangerFileSystem");
        if (isMediaRoot)
            *count = static_cast<UInt16>(*count + 1);
        else
            VERR_STEP(err, CountMediaRootDirectories(walk, &child, count),
                      "fail CountMediaRootDirectories");
    }
    LogUnlisted(__func__, walk, here);
    LeaveDirectory(here);
    return err;
}

VErrLink* CountMediaRootDirectories(const char* directory, UInt16* count) {
    DirectoryWalk walk;
    WalkedDirectory top;
    BeginWalk(&walk, directory, ShouldCacheItem, &top);
    return CountMediaRootDirectories(&walk, &top, count);
}

struct CacheWalk {
    DirectoryWalk directories;
    UInt64 changerGUID;
    SInt32 descend;
    FSCacheStatusReport* status;
};

// EnterDirectory() lists the directory, which makes the file system cache it.
static VErrLink* CacheFSDirectory(CacheWalk* walk, WalkedDirectory* here) {
    VErrLink* err = nullptr;
    WalkedDirectory child;
    EnterDirectory(&walk->directories, here);
    while (err == nullptr && walk->descend && FindSubdirectory(&walk->directories, here, &child)) {
        bool isMediaRoot = false;
        if (walk->status != nullptr)
            VERR_STEP(
                err,
                IsDirectoryMediaRootOfChangerFileSystem(walk->directories.path.text, &isMediaRoot),
                "fail IsDirectoryMediaRootOfChangerFileSystem");
        if (isMediaRoot)
            VERR_STEP(err, StatusReportingEnterMedia(walk->status),
                      "fail StatusReportingEnterMedia");
        VERR_STEP(err, CacheFSDirectory(walk, &child), "fail CacheFSDirectory");

        // An abort takes effect here only: after a subdirectory.
        SInt32 shouldAbort = 0;
        VERR_STEP(err, LockMediaIdState(), "fail LockMediaIdState");
        const bool locked = err == nullptr;
        VERR_STEP(err, GetChangerShouldAbortOperation(walk->changerGUID, &shouldAbort),
                  "fail GetChangerShouldAbortOperation");
        if (locked)
            UnlockMediaIdState();
        if (shouldAbort)
            VERR_RAISE(VErrThrowWithErrCode(&err, kVErrCodeUserAborted, "user aborted"));
        if (isMediaRoot)
            VERR_STEP(err, StatusReportingExitMedia(walk->status), "fail StatusReportingExitMedia");
    }
    LogUnlisted(__func__, &walk->directories, here);
    LeaveDirectory(here);
    return err;
}

VErrLink* CacheFSDirectory(UInt64 changerGUID, const char* directory, SInt32 descend,
                           FSCacheStatusReport* status) {
    CacheWalk walk;
    WalkedDirectory top;
    BeginWalk(&walk.directories, directory, ShouldCacheItem, &top);
    walk.changerGUID = changerGUID;
    walk.descend = descend;
    walk.status = status;
    return CacheFSDirectory(&walk, &top);
}

// ---- one disc ----

static int PassAll(const struct dirent*) {
    return 1;
}

// A directory that cannot be listed has no names; that is not logged.
static void ListRoot(const char* path, size_t* budget, DirectoryNames* names) {
    DIR* directory = opendir(path);
    *names = {};
    if (directory == nullptr)
        return;
    ListDirectoryNames(directory, PassAll, budget, names);
    closedir(directory);
}

VErrLink* RunAFSCacheUpdate(UInt64 changerGUID, UInt16 storageElem, SInt32 descend,
                            const char* mountPath, SInt32* cached) {
    VErrLink* err = nullptr;
    PathBuffer path;
    size_t nameBudget = kNameBudget;
    DirectoryNames names;
    bool aborted = false;
    *cached = 0;
    SetPath(&path, mountPath);
    const size_t rootLength = AppendToPath(&path, "");
    ListRoot(path.text, &nameBudget, &names);
    const char* name = nullptr;
    while (err == nullptr && !aborted && (name = NextDirectoryName(&names)) != nullptr) {
        bool isMediaRoot = false;
        UInt16 entryElem = 0;
        TruncatePath(&path, rootLength);
        AppendToPath(&path, name);
        VERR_STEP(err, IsDirectoryMediaRootOfChangerFileSystem(path.text, &isMediaRoot),
                  "fail IsDirectoryRootOfChangerFileSystem"); // without "Media": a fixed text
        if (isMediaRoot)
            VERR_STEP(
                err,
                GetChangerFileSystemMediaRootInfo(path.text, nullptr, &entryElem, nullptr, nullptr),
                "fail GetChangerFileSystemMediaRootInfo");
        if (err != nullptr || !isMediaRoot || entryElem != storageElem)
            continue;
        err = CacheFSDirectory(changerGUID, path.text, descend, nullptr);
        aborted = err != nullptr && VErrGetErrCode(err) == kVErrCodeUserAborted;
        if (aborted)
            VErrCatch(&err);
        else if (err != nullptr)
            VERR_RAISE(VErrThrow(&err, "fail CacheFSMediaRoot for \"%s\"", path.text));
        else
            *cached = 1;
    }
    FreeDirectoryNames(&names);
    return err;
}

VErrLink* RunFSCache(UInt64 changerGUID, UInt16 storageElem, SInt32 descend) {
    VErrLink* err = nullptr;
    bool isMounted = false;
    char mountPath[kPathSize];
    VERR_STEP(err, IsChangerFSGUIDInList(changerGUID, &isMounted), "fail IsChangerFSGUIDInList");
    if (err != nullptr || !isMounted)
        return err;
    VERR_STEP(err, GetChangerFSMountPath(changerGUID, mountPath, sizeof mountPath),
              "fail GetChangerFSMountPath");

    time_t start = time(nullptr);
    bool done = false;
    while (err == nullptr && !done) {
        SInt32 identified = 0;
        SInt32 hasFileSystem = 0;
        SInt32 cached = 0;
        VERR_STEP(
            err, MediaHasMountablePartitions(changerGUID, storageElem, &identified, &hasFileSystem),
            "fail MediaHasMountablePartitions");
        VERR_STEP(err, RunAFSCacheUpdate(changerGUID, storageElem, descend, mountPath, &cached),
                  "fail RunAFSCacheUpdate");
        done = cached || (identified && !hasFileSystem) ||
               SecondsSince(&start) >= k_changerFSCacheTimeout;
    }
    return err;
}

// ---- progress ----

VErrLink* ReportFSCacheClientStatus(const FSCacheStatusReport* report) {
    VErrLink* err = nullptr;
    VERR_STEP(err,
              ChangerServerSetClientStatus(report->changerGUID, k_fsCacheThreadStatusClient,
                                           report->message, report->currentStep,
                                           report->maximumStep, false),
              "fail ChangerServerSetClientStatus");
    return err;
}

VErrLink* StartStatusReportingForFullFSCache(UInt64 changerGUID, const char* rootPath,
                                             FSCacheStatusReport** report) {
    VErrLink* err = nullptr;
    *report = nullptr;
    auto* started = static_cast<FSCacheStatusReport*>(calloc(1, sizeof(FSCacheStatusReport)));
    if (started == nullptr)
        return VERR_RAISE(VErrThrow(&err, "fail malloc"));
    started->changerGUID = changerGUID;
    snprintf(started->message, sizeof started->message, "%s", k_fsCacheThreadStatusMessage);
    VERR_STEP(err, ReportFSCacheClientStatus(started), "fail ReportFSCacheClientStatus");
    if (err == nullptr) { // a failed count does not end the build
        VErrLink* countErr = nullptr;
        VERR_STEP(countErr, CountMediaRootDirectories(rootPath, &started->maximumStep),
                  "fail CountMediaRootDirectories");
        VErrLogAndCatch(&countErr);
    }
    VERR_STEP(err, ReportFSCacheClientStatus(started), "fail ReportFSCacheClientStatus");
    if (err == nullptr)
        *report = started;
    else
        free(started);
    return err;
}

VErrLink* StatusReportingEnterMedia(FSCacheStatusReport* report) {
    report->mediaDepth = static_cast<UInt16>(report->mediaDepth + 1);
    return nullptr;
}

VErrLink* StatusReportingExitMedia(FSCacheStatusReport* report) {
    VErrLink* err = nullptr;
    report->mediaDepth = static_cast<UInt16>(report->mediaDepth - 1);
    if (report->mediaDepth > 0)
        return nullptr;
    report->currentStep = static_cast<UInt16>(report->currentStep + 1);
    VERR_STEP(err, ReportFSCacheClientStatus(report), "fail ReportFSCacheClientStatus");
    return err;
}

VErrLink* ResetStatusReporting(UInt64 changerGUID) {
    VErrLink* err = nullptr;
    VERR_STEP(err, ChangerServerClearClientStatus(changerGUID, k_fsCacheThreadStatusClient),
              "fail ChangerServerClearClientStatus");
    return err;
}

void EndStatusReportingForFullFSCache(FSCacheStatusReport* report) {
    VErrLink* err = nullptr;
    VERR_STEP(err, ResetStatusReporting(report->changerGUID), "fail ResetStatusReporting");
    if (err == nullptr)
        free(report);
    VErrLogAndCatch(&err);
}

// ---- the full build ----

struct FSCacheThreadContext {
    UInt64 changerGUID;
    pthread_mutex_t starting; // locked until StartChangerFSCache() has set the build flag
};

// Waits until the build flag is set. A build that ended before would leave the flag set for ever.
static void WaitForStarter(FSCacheThreadContext* context) {
    pthread_mutex_lock(&context->starting);
    pthread_mutex_unlock(&context->starting);
}

static void FreeThreadContext(FSCacheThreadContext* context) {
    pthread_mutex_destroy(&context->starting);
    free(context);
}

VErrLink* StartChangerFSCache(UInt64 changerGUID) {
    VErrLink* err = nullptr;
    SInt32 inProgress = 0;
    VERR_STEP(err, GetChangerFSCacheBuildInProgress(changerGUID, &inProgress),
              "fail GetChangerFSCacheBuildInProgress");
    if (err != nullptr || inProgress)
        return err;
    auto* context = static_cast<FSCacheThreadContext*>(malloc(sizeof(FSCacheThreadContext)));
    if (context == nullptr)
        return VERR_RAISE(VErrThrow(&err, "fail alloc thread context"));
    context->changerGUID = changerGUID;
    pthread_mutex_init(&context->starting, nullptr);
    pthread_mutex_lock(&context->starting);

    pthread_t thread;
    pthread_attr_t attributes;
    VERR_STATUS(err, pthread_attr_init(&attributes), "fail pthread_attr_init");
    const bool attributesInited = err == nullptr;
    VERR_STATUS(err, pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED),
                "fail pthread_attr_setdetachstate");
    VERR_STATUS(err, pthread_create(&thread, &attributes, RunChangerFSCacheThread, context),
                "fail pthread_create");
    const bool created = err == nullptr;
    VERR_STEP(err, SetChangerFSCacheBuildInProgress(changerGUID, 1),
              "fail SetChangerFSCacheBuildInProgress");
    pthread_mutex_unlock(&context->starting);

    const int destroyed = attributesInited ? pthread_attr_destroy(&attributes) : 0;
    if (destroyed != 0)
        VERR_RAISE(VErrThrowWithErrCode(&err, destroyed, "fail pthread_attr_destroy"));
    if (!created)
        FreeThreadContext(context);
    return err;
}

// An abort by the user is a success.
static VErrLink* WalkChanger(UInt64 changerGUID, const char* mountPath,
                             FSCacheStatusReport* status) {
    VErrLink* err = CacheFSDirectory(changerGUID, mountPath, 1, status);
    if (err != nullptr && VErrGetErrCode(err) == kVErrCodeUserAborted)
        VErrCatch(&err);
    return err;
}

void* RunChangerFSCacheThread(void* threadContext) {
    auto* context = static_cast<FSCacheThreadContext*>(threadContext);
    const UInt64 changerGUID = context->changerGUID;
    VErrLink* err = nullptr;
    FSCacheStatusReport* status = nullptr;
    bool isMounted = false;
    char mountPath[kPathSize];
    WaitForStarter(context);

    VERR_STEP(err, LockMediaIdState(), "fail LockMediaIdState");
    bool locked = err == nullptr;
    VERR_STEP(err, IsChangerFSGUIDInList(changerGUID, &isMounted),
              "fail IsChangerFSGUIDInList for %016llX", changerGUID);
    if (isMounted) {
        VERR_STEP(err, GetChangerFSMountPath(changerGUID, mountPath, sizeof mountPath),
                  "fail GetChangerFSMountPath");
    }
    if (isMounted && err == nullptr) {
        UnlockMediaIdState();
        locked = false;
        VERR_STEP(err, ChangerServerRequestChangerIdentification(changerGUID, false),
                  "fail ChangerServerRequestChangerIdentification");
        VERR_STEP(err, StartStatusReportingForFullFSCache(changerGUID, mountPath, &status),
                  "fail StartStatusReportingForFullFSCache");
        VERR_STEP(err, WalkChanger(changerGUID, mountPath, status), "fail CacheFSDirectory");
    }
    if (status != nullptr)
        EndStatusReportingForFullFSCache(status);

    // The rest runs after a failed build, too, and has an error chain of its own. The state lock is
    // held while the request is withdrawn.
    VErrLink* endErr = nullptr;
    if (!locked) {
        VERR_STEP(endErr, LockMediaIdState(), "fail LockMediaIdState");
        locked = endErr == nullptr;
    }
    VERR_STEP(endErr, SetChangerFSCacheBuildInProgress(changerGUID, 0),
              "fail SetChangerFSCacheBuildInProgress");
    VERR_STEP(endErr, ChangerServerRequestChangerIdentification(changerGUID, false),
              "fail ChangerServerRequestChangerIdentification");
    if (locked)
        UnlockMediaIdState();
    FreeThreadContext(context);

    VErrLogAndCatch(&endErr);
    VErrLogAndCatch(&err);
    return nullptr;
}
