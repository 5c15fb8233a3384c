#include "trayprobed/ChangerFSCacheManager.h"

#include "common/CFHelpers.h"
#include "common/PathBuffer.h"
#include "fsclient/DirectoryInfo.h"
#include "trayprobed/ChangerFSCacheState.h"
#include "trayprobed/MediaIdState.h"

static const char kSourcePath[] = "trayprobed/ChangerFSCacheManager";

static CFRunLoopRef g_changerFSCacheManagerRunLoop = nullptr; // borrowed
static DASessionRef g_changerFSCacheManagerDASession = nullptr;

VErrLink* InitChangerFSCacheManager(void) {
    VErrLink* err = nullptr;
    g_changerFSCacheManagerRunLoop = CFRunLoopGetCurrent();
    DASessionRef session = DASessionCreate(kCFAllocatorDefault);
    if (session == nullptr)
        return VERR_RAISE(VErrThrow(&err, "fail DASessionCreate"));
    DARegisterDiskAppearedCallback(session, nullptr, DiskArbDiskAppearedCallback, nullptr);
    DARegisterDiskDisappearedCallback(session, nullptr, DiskArbDiskDisappearedCallback, nullptr);
    DASessionScheduleWithRunLoop(session, g_changerFSCacheManagerRunLoop, kCFRunLoopDefaultMode);
    g_changerFSCacheManagerDASession = session;
    return nullptr;
}

// Releasing the session removes its registrations.
void TermChangerFSCacheManager(void) {
    if (g_changerFSCacheManagerRunLoop == nullptr || g_changerFSCacheManagerDASession == nullptr)
        return;
    DASessionUnscheduleFromRunLoop(g_changerFSCacheManagerDASession, g_changerFSCacheManagerRunLoop,
                                   kCFRunLoopDefaultMode);
    CFRelease(g_changerFSCacheManagerDASession);
    g_changerFSCacheManagerDASession = nullptr;
}

// False for a disk without a mounted volume, or whose volume path does not fit.
static bool GetVolumePath(CFDictionaryRef description, char* path, CFIndex size) {
    auto* url =
        static_cast<CFURLRef>(CFDictionaryGetValue(description, kDADiskDescriptionVolumePathKey));
    return url != nullptr &&
           CFURLGetFileSystemRepresentation(url, true, reinterpret_cast<UInt8*>(path), size);
}

// The state lock is not held while the root is recognised. With the lock, the info file is read
// again.
void DiskArbDiskAppearedCallback(DADiskRef disk, void* /* context */) {
    const char* bsdName = DADiskGetBSDName(disk);
    if (bsdName == nullptr)
        return;
    VErrLink* err = nullptr;
    CFDictionaryRef description = nullptr;
    char path[kPathSize] = "";
    bool isRoot = false;
    VERR_GET(err, description, DADiskCopyDescription(disk), "fail DADiskCopyDescription");
    if (err == nullptr && GetVolumePath(description, path, sizeof path))
        VERR_STEP(err, IsDirectoryRootOfChangerFileSystem(path, &isRoot),
                  "fail IsDirectoryRootOfChangerFileSystem for \"%s\"", path);
    if (isRoot) {
        UInt64 changerGUID = 0;
        VERR_STEP(err, LockMediaIdState(), "fail LockMediaIdState");
        const bool locked = err == nullptr;
        VERR_STEP(err, GetChangerFileSystemRootInfo(path, &changerGUID),
                  "fail GetChangerFileSystemRootInfo for \"%s\"", path);
        VERR_STEP(err, AddChangerFSToList(changerGUID, bsdName, path), "fail AddChangerFSToList");
        if (locked)
            UnlockMediaIdState();
    }
    CFHReleaseIfSet(description);
    VErrLogAndCatch(&err);
}

void DiskArbDiskDisappearedCallback(DADiskRef disk, void* /* context */) {
    VErrLink* err = nullptr;
    VERR_STEP(err, LockMediaIdState(), "fail LockMediaIdState");
    const bool locked = err == nullptr;
    const char* bsdName = DADiskGetBSDName(disk);
    if (bsdName != nullptr)
        VERR_STEP(err, RemoveChangerFSFromList(bsdName),
                  "fail RemoveChangerFSFromList for bsd name \"%s\"", bsdName);
    if (locked)
        UnlockMediaIdState();
    VErrLogAndCatch(&err);
}
