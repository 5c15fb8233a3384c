#include "trayprobed/MediaIdState.h"

#include "common/CFHelpers.h"

#include <pthread.h>
#include <stdlib.h>

static const char kSourcePath[] = "trayprobed/MediaIdState";

static pthread_mutex_t g_mediaIdStateMutex;
static SInt32 g_mediaIdStateMutexInited = 0;

// Guarded by the store's own lock.
static CFMutableDictionaryRef g_changerListDict = nullptr; // changer GUID to state dictionary
static CFArrayRef g_changerInfoListArr = nullptr;
static SInt32 g_globalShouldIdMedia = 1;

// ---- the store's own lock ----

// Never destroyed: detached threads may still run after TermMediaIdState().
static pthread_mutex_t g_storeMutex;
static pthread_once_t g_storeMutexOnce = PTHREAD_ONCE_INIT;

static void InitStoreMutex(void) {
    pthread_mutexattr_t attributes;
    pthread_mutexattr_init(&attributes);
    pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_RECURSIVE);
    pthread_mutex_init(&g_storeMutex, &attributes);
    pthread_mutexattr_destroy(&attributes);
}

void BeginStoreAccess(void) {
    pthread_once(&g_storeMutexOnce, InitStoreMutex);
    pthread_mutex_lock(&g_storeMutex);
}

void EndStoreAccess(void) {
    pthread_mutex_unlock(&g_storeMutex);
}

// ---- start-up, shutdown and the state lock ----

VErrLink* InitMediaIdState(void) {
    VErrLink* err = nullptr;
    VERR_STATUS(err, pthread_mutex_init(&g_mediaIdStateMutex, nullptr), "fail pthread_mutex_init");
    if (err != nullptr)
        return err;
    g_mediaIdStateMutexInited = 1;
    CFMutableDictionaryRef changers = CFHCreateMutableDictionary();
    VERR_NEED(err, changers != nullptr, "fail create empty changer list dict");
    BeginStoreAccess();
    g_changerListDict = changers;
    EndStoreAccess();
    return err;
}

void TermMediaIdState(void) {
    VErrLink* err = nullptr;
    if (g_mediaIdStateMutexInited) {
        VERR_STATUS(err, pthread_mutex_destroy(&g_mediaIdStateMutex), "fail pthread_mutex_destroy");
        g_mediaIdStateMutexInited = 0;
    }
    BeginStoreAccess();
    CFHReleaseIfSet(g_changerListDict);
    g_changerListDict = nullptr;
    CFHReleaseIfSet(g_changerInfoListArr);
    g_changerInfoListArr = nullptr;
    EndStoreAccess();
    VErrLogAndCatch(&err);
}

VErrLink* LockMediaIdState(void) {
    VErrLink* err = nullptr;
    VERR_STATUS(err, pthread_mutex_lock(&g_mediaIdStateMutex), "fail pthread_mutex_lock");
    return err;
}

void UnlockMediaIdState(void) {
    VErrLink* err = nullptr;
    VERR_STATUS(err, pthread_mutex_unlock(&g_mediaIdStateMutex), "fail pthread_mutex_unlock");
    VErrLogAndCatch(&err);
}

// ---- data of the server ----

VErrLink* GetGlobalShouldIdMedia(SInt32* shouldId) {
    BeginStoreAccess();
    *shouldId = g_globalShouldIdMedia;
    EndStoreAccess();
    return nullptr;
}

VErrLink* SetGlobalShouldIdMedia(SInt32 shouldId) {
    BeginStoreAccess();
    g_globalShouldIdMedia = shouldId;
    EndStoreAccess();
    return nullptr;
}

VErrLink* SaveChangerInfoList(CFArrayRef list) {
    CFRetain(list);
    BeginStoreAccess();
    g_changerInfoListArr = list;
    EndStoreAccess();
    return nullptr;
}

VErrLink* GetChangerInfoDict(UInt64 changerGUID, CFDictionaryRef* info) {
    VErrLink* err = nullptr;
    *info = nullptr;
    BeginStoreAccess();
    const CFIndex count =
        g_changerInfoListArr != nullptr ? CFArrayGetCount(g_changerInfoListArr) : 0;
    for (CFIndex i = 0; err == nullptr && *info == nullptr && i < count; i++) {
        auto* entry = static_cast<CFDictionaryRef>(CFArrayGetValueAtIndex(g_changerInfoListArr, i));
        UInt64 entryGUID = 0;
        VERR_NEED(err, entry != nullptr, "fail get changer dict at %ld", i);
        VERR_STEP(err, CFHDictionaryGetUInt64Value(entry, CFSTR("GUID"), &entryGUID),
                  "fail get changerGUID");
        if (err == nullptr && entryGUID == changerGUID)
            *info = entry;
    }
    EndStoreAccess();
    if (err == nullptr && *info == nullptr)
        VERR_RAISE(VErrThrowWithErrCode(&err, kVErrCodeNotFound, "fail find changer GUID %016llX",
                                        changerGUID));
    return err;
}

// The storage element is the index in the media array. Null if the array is too short.
static CFDictionaryRef FindMediaInfo(CFArrayRef media, UInt16 storageElem) {
    if (storageElem >= CFArrayGetCount(media))
        return nullptr;
    return static_cast<CFDictionaryRef>(CFArrayGetValueAtIndex(media, storageElem));
}

VErrLink* MediaHasMountablePartitions(UInt64 changerGUID, UInt16 storageElem, SInt32* identified,
                                      SInt32* hasFileSystem) {
    VErrLink* err = nullptr;
    CFDictionaryRef changer = nullptr;
    CFDictionaryRef medium = nullptr;
    CFArrayRef media = nullptr;
    CFArrayRef partitions = nullptr;
    SInt32 identifyTime = 0;
    *identified = 0;
    *hasFileSystem = 0;

    BeginStoreAccess();
    VERR_NEED(err, g_changerInfoListArr != nullptr, "info list array is still NULL");
    VERR_STEP(err, GetChangerInfoDict(changerGUID, &changer), "fail GetChangerInfoDict");
    VERR_GET(err, media, CFHDictionaryFindArray(changer, CFSTR("Changer Media Info")),
             "fail CFDictionaryGetValue");
    VERR_GET(err, medium, FindMediaInfo(media, storageElem), "fail get info dictionary for sei %d",
             storageElem);
    VERR_STEP(err, CFHDictionaryGetSInt32Value(medium, CFSTR("Media Identify Time"), &identifyTime),
              "fail CFHDictionaryGetSInt32Value");
    if (err == nullptr && identifyTime != 0) {
        *identified = 1;
        VERR_GET(err, partitions, CFHDictionaryFindArray(medium, CFSTR("Media Partition Info")),
                 "fail CFDictionaryGetValue");
        const CFIndex count = err == nullptr ? CFArrayGetCount(partitions) : 0;
        for (CFIndex i = 0; err == nullptr && *hasFileSystem == 0 && i < count; i++) {
            auto* partition = static_cast<CFDictionaryRef>(CFArrayGetValueAtIndex(partitions, i));
            VERR_NEED(err, partition != nullptr, "fail get partition info for %ld", i);
            VERR_STEP(err,
                      CFHDictionaryGetBoolValue(partition, CFSTR("Partition Has File System"),
                                                hasFileSystem),
                      "fail check for fs on partition %ld", i);
        }
    }
    EndStoreAccess();
    return err;
}

// ---- changers ----

// Null if the changer is not known, and without a store.
static CFDictionaryRef FindChangerDict(CFNumberRef changerGUIDNum) {
    if (g_changerListDict == nullptr)
        return nullptr;
    return static_cast<CFDictionaryRef>(CFDictionaryGetValue(g_changerListDict, changerGUIDNum));
}

VErrLink* GetChangerDictForGUID(UInt64 changerGUID, CFMutableDictionaryRef* dict) {
    VErrLink* err = nullptr;
    *dict = nullptr;
    CFNumberRef number = CFHCreateUInt64Number(changerGUID);
    if (number == nullptr)
        return VERR_RAISE(VErrThrow(&err, "fail alloc changer GUID number"));
    BeginStoreAccess();
    CFDictionaryRef found = FindChangerDict(number);
    if (found == nullptr)
        VERR_RAISE(VErrThrowWithErrCode(&err, kVErrCodeNotFound, "fail find changer in list"));
    VERR_GET(err, *dict, CFDictionaryCreateMutableCopy(kCFAllocatorDefault, 0, found),
             "fail create mutable copy of found dictionary");
    EndStoreAccess();
    CFRelease(number);
    return err;
}

VErrLink* SetChangerDictForGUID(UInt64 changerGUID, CFDictionaryRef dict) {
    VErrLink* err = nullptr;
    CFNumberRef number = CFHCreateUInt64Number(changerGUID);
    if (number == nullptr)
        return VERR_RAISE(VErrThrow(&err, "fail alloc changer GUID number"));
    BeginStoreAccess();
    if (g_changerListDict != nullptr)
        CFDictionarySetValue(g_changerListDict, number, dict);
    EndStoreAccess();
    CFRelease(number);
    return nullptr;
}

VErrLink* IsChangerInList(UInt64 changerGUID, SInt32* isInList) {
    VErrLink* err = nullptr;
    CFNumberRef number = CFHCreateUInt64Number(changerGUID);
    if (number == nullptr)
        return VERR_RAISE(VErrThrow(&err, "fail alloc changer GUID number"));
    BeginStoreAccess();
    *isInList = FindChangerDict(number) != nullptr;
    EndStoreAccess();
    CFRelease(number);
    return nullptr;
}

VErrLink* GetChangerList(CFArrayRef* list) {
    VErrLink* err = nullptr;
    *list = nullptr;
    BeginStoreAccess();
    const CFIndex count =
        g_changerListDict != nullptr ? CFDictionaryGetCount(g_changerListDict) : 0;
    // One slot more than needed: calloc(0, ...) may return null.
    auto* numbers =
        static_cast<const void**>(calloc(static_cast<size_t>(count) + 1, sizeof(const void*)));
    VERR_NEED(err, numbers != nullptr, "fail alloc changer GUID buffer");
    if (err == nullptr && count != 0)
        CFDictionaryGetKeysAndValues(g_changerListDict, numbers, nullptr);
    VERR_GET(err, *list, CFArrayCreate(kCFAllocatorDefault, numbers, count, &kCFTypeArrayCallBacks),
             "fail create changer list array");
    free(numbers);
    EndStoreAccess();
    return err;
}

VErrLink* AddChangerToList(UInt64 changerGUID) {
    VErrLink* err = nullptr;
    CFNumberRef number = nullptr;
    CFMutableDictionaryRef dict = nullptr;
    CFMutableArrayRef inProgress = nullptr;
    VERR_GET(err, number, CFHCreateUInt64Number(changerGUID), "fail alloc changer GUID number");
    VERR_GET(err, dict, CFHCreateMutableDictionary(), "fail allocate changer dictionary");
    VERR_GET(err, inProgress, CFArrayCreateMutable(kCFAllocatorDefault, 0, &kCFTypeArrayCallBacks),
             "fail alloc media id in-progress array");
    VERR_NEED(err,
              CFHDictionaryStore(dict, CFSTR("GUID"), number) &&
                  CFHDictionaryStore(dict, CFSTR("In Progress"), inProgress),
              "fail allocate changer dictionary");
    BeginStoreAccess();
    VERR_NEED(err, CFHDictionaryStore(g_changerListDict, number, dict),
              "fail allocate changer dictionary");
    EndStoreAccess();
    CFHReleaseIfSet(inProgress);
    CFHReleaseIfSet(dict);
    CFHReleaseIfSet(number);
    return err;
}

VErrLink* RemoveChangerFromList(UInt64 changerGUID) {
    VErrLink* err = nullptr;
    CFNumberRef number = CFHCreateUInt64Number(changerGUID);
    if (number == nullptr)
        return VERR_RAISE(VErrThrow(&err, "fail alloc changer GUID number"));
    BeginStoreAccess();
    if (g_changerListDict != nullptr)
        CFDictionaryRemoveValue(g_changerListDict, number);
    EndStoreAccess();
    CFRelease(number);
    return nullptr;
}

// ---- storage elements in progress ----

VErrLink* AddStorageElemToMediaIdInProgressList(UInt64 changerGUID, UInt16 storageElem) {
    VErrLink* err = nullptr;
    CFMutableDictionaryRef dict = nullptr;
    CFNumberRef number = nullptr;
    CFArrayRef inProgress = nullptr;
    CFMutableArrayRef changed = nullptr;
    BeginStoreAccess();
    VERR_STEP(err, GetChangerDictForGUID(changerGUID, &dict), "fail GetChangerDictForGUID");
    VERR_GET(err, number, CFHCreateUInt16Number(storageElem),
             "fail create CFNumber from storage elem index");
    VERR_GET(err, inProgress, CFHDictionaryFindArray(dict, CFSTR("In Progress")),
             "fail get in progress array");
    if (err == nullptr && !CFArrayContainsValue(inProgress, CFHWholeArray(inProgress), number)) {
        VERR_GET(err, changed, CFArrayCreateMutableCopy(kCFAllocatorDefault, 0, inProgress),
                 "fail create mutable copy of in progress array");
        VERR_STEP(err, CFHArrayAppendUInt16Value(changed, storageElem),
                  "fail create mutable copy of in progress array");
        if (err == nullptr)
            CFDictionarySetValue(dict, CFSTR("In Progress"), changed);
        VERR_STEP(err, SetChangerDictForGUID(changerGUID, dict), "fail SetChangerDictForGUID");
    }
    EndStoreAccess();
    CFHReleaseIfSet(changed);
    CFHReleaseIfSet(number);
    CFHReleaseIfSet(dict);
    return err;
}

VErrLink* RemoveStorageElemFromMediaIdInProgressList(UInt64 changerGUID, UInt16 storageElem) {
    VErrLink* err = nullptr;
    CFMutableDictionaryRef dict = nullptr;
    CFNumberRef number = nullptr;
    CFArrayRef inProgress = nullptr;
    CFMutableArrayRef changed = nullptr;
    CFIndex index = kCFNotFound;
    BeginStoreAccess();
    VERR_STEP(err, GetChangerDictForGUID(changerGUID, &dict), "fail GetChangerDictForGUID");
    VERR_GET(err, number, CFHCreateUInt16Number(storageElem),
             "fail create CFNumber for storage elem index");
    VERR_GET(err, inProgress, CFHDictionaryFindArray(dict, CFSTR("In Progress")),
             "fail get in progress arr");
    if (err == nullptr)
        index = CFArrayGetFirstIndexOfValue(inProgress, CFHWholeArray(inProgress), number);
    if (index != kCFNotFound) {
        VERR_GET(err, changed, CFArrayCreateMutableCopy(kCFAllocatorDefault, 0, inProgress),
                 "fail create mutable copy of in progress arr");
        if (err == nullptr) {
            CFArrayRemoveValueAtIndex(changed, index);
            CFDictionarySetValue(dict, CFSTR("In Progress"), changed);
        }
        VERR_STEP(err, SetChangerDictForGUID(changerGUID, dict), "fail SetChangerDictForGUID");
    }
    EndStoreAccess();
    CFHReleaseIfSet(changed);
    CFHReleaseIfSet(number);
    CFHReleaseIfSet(dict);
    return err;
}

VErrLink* GetMediaIdInProgressCount(UInt64 changerGUID, UInt32* count) {
    VErrLink* err = nullptr;
    CFMutableDictionaryRef dict = nullptr;
    CFArrayRef inProgress = nullptr;
    VERR_STEP(err, GetChangerDictForGUID(changerGUID, &dict), "fail GetChangerDictForGUID");
    VERR_GET(err, inProgress, CFHDictionaryFindArray(dict, CFSTR("In Progress")),
             "fail get in progress arr");
    if (err == nullptr)
        *count = static_cast<UInt32>(CFArrayGetCount(inProgress));
    CFHReleaseIfSet(dict);
    return err;
}

VErrLink* IsStorageElemOnInProgressList(UInt64 changerGUID, UInt16 storageElem, SInt32* isOnList) {
    VErrLink* err = nullptr;
    CFNumberRef number = nullptr;
    CFMutableDictionaryRef dict = nullptr;
    CFArrayRef inProgress = nullptr;
    VERR_GET(err, number, CFHCreateUInt16Number(storageElem),
             "fail create CFNumber for storage elem index");
    VERR_STEP(err, GetChangerDictForGUID(changerGUID, &dict), "fail GetChangerDictForGUID");
    VERR_GET(err, inProgress, CFHDictionaryFindArray(dict, CFSTR("In Progress")),
             "fail get in progress arr");
    if (err == nullptr)
        *isOnList = CFArrayContainsValue(inProgress, CFHWholeArray(inProgress), number);
    CFHReleaseIfSet(dict);
    CFHReleaseIfSet(number);
    return err;
}

// ---- flags ----

static const CFStringRef kBuildInProgress = CFSTR("Changer FS Cache Build In Progress");
static const CFStringRef kShouldAbort = CFSTR("Should Abort Operation");

// A missing flag is 0.
static VErrLink* GetFlag(const char* function, UInt64 changerGUID, CFStringRef key, SInt32* flag) {
    VErrLink* err = nullptr;
    CFMutableDictionaryRef dict = nullptr;
    VERR_STEP_IN(function, err, GetChangerDictForGUID(changerGUID, &dict),
                 "fail GetChangerDictForGUID");
    if (err == nullptr)
        *flag = CFHDictionaryIsTrue(dict, key);
    CFHReleaseIfSet(dict);
    return err;
}

static VErrLink* SetFlag(const char* function, UInt64 changerGUID, CFStringRef key, SInt32 flag) {
    VErrLink* err = nullptr;
    CFMutableDictionaryRef dict = nullptr;
    BeginStoreAccess();
    VERR_STEP_IN(function, err, GetChangerDictForGUID(changerGUID, &dict),
                 "fail GetChangerDictForGUID");
    VERR_STEP_IN(function, err, CFHDictionarySetBoolValue(dict, key, flag),
                 "fail CFHDictionarySetBoolValue");
    VERR_NEED_IN(function, err, CFHDictionaryIsTrue(dict, key) == (flag != 0),
                 "fail CFHDictionarySetBoolValue");
    VERR_STEP_IN(function, err, SetChangerDictForGUID(changerGUID, dict),
                 "fail SetChangerDictForGUID");
    EndStoreAccess();
    CFHReleaseIfSet(dict);
    return err;
}

VErrLink* GetChangerFSCacheBuildInProgress(UInt64 changerGUID, SInt32* inProgress) {
    return GetFlag(__func__, changerGUID, kBuildInProgress, inProgress);
}

VErrLink* SetChangerFSCacheBuildInProgress(UInt64 changerGUID, SInt32 inProgress) {
    return SetFlag(__func__, changerGUID, kBuildInProgress, inProgress);
}

VErrLink* GetChangerShouldAbortOperation(UInt64 changerGUID, SInt32* shouldAbort) {
    return GetFlag(__func__, changerGUID, kShouldAbort, shouldAbort);
}

VErrLink* SetChangerShouldAbortOperation(UInt64 changerGUID, SInt32 shouldAbort) {
    return SetFlag(__func__, changerGUID, kShouldAbort, shouldAbort);
}
