#include "trayprobed/MediaIdManager.h"

#include "common/CFHelpers.h"
#include "trayprobed/ChangerFSCacheThread.h"
#include "trayprobed/MediaIdState.h"
#include "trayprobed/MediaIdThread.h"

static const char kSourcePath[] = "trayprobed/MediaIdManager";

constexpr UInt16 kNoMedium = 0; // an empty slot
constexpr UInt32 kNotMounted = 0;
constexpr UInt32 kNotCountedAsMounted = 0x40; // like kNotMounted, uses no drive

static SInt32 g_subscribedToChangerNotifications = 0;
static ChangerNotificationSubscription* g_changerNotificationId = nullptr;

VErrLink* InitMediaIdManager(void) {
    VErrLink* err = nullptr;
    VERR_STEP(err,
              SubscribeToChangerNotifications(
                  ChangerListNotificationCallBack, RootPrefsNotificationCallBack,
                  ChangerInfoNotificationCallBack, nullptr, &g_changerNotificationId),
              "fail SubscribeToChangerNotifications");
    if (err == nullptr)
        g_subscribedToChangerNotifications = 1;
    return err;
}

void TermMediaIdManager(void) {
    if (!g_subscribedToChangerNotifications)
        return;
    VErrLink* err = nullptr;
    VERR_STEP(err, UnsubscribeFromChangerNotifications(g_changerNotificationId),
              "fail UnsubscribeFromChangerNotifications");
    if (err == nullptr)
        g_subscribedToChangerNotifications = 0;
    VErrLogAndCatch(&err);
}

// ---- "changer list" ----

void ChangerListNotificationCallBack(CFTypeRef value, ChangerNotificationSubscription*, void*) {
    VErrLink* err = nullptr;
    VERR_NEED(err, CFGetTypeID(value) == CFArrayGetTypeID(), "fail get changer list as array");
    VERR_STEP(err, LockMediaIdState(), "fail LockMediaIdState");
    const bool locked = err == nullptr;
    VERR_STEP(err, HandleRemovedChangers(static_cast<CFArrayRef>(value)),
              "fail HandleRemovedChangers");
    if (locked)
        UnlockMediaIdState();
    VErrLogAndCatch(&err);
}

VErrLink* HandleRemovedChangers(CFArrayRef changerList) {
    VErrLink* err = nullptr;
    CFArrayRef known = nullptr; // never released: one small array per notification
    VERR_STEP(err, GetChangerList(&known), "fail get old changer list");
    const CFIndex count = err == nullptr ? CFArrayGetCount(known) : 0;
    for (CFIndex i = 0; err == nullptr && i < count; i++) {
        const void* number = CFArrayGetValueAtIndex(known, i);
        UInt64 changerGUID = 0;
        VERR_NEED(err, number != nullptr, "fail get changer GUID CFNumber at index %ld", i);
        if (err != nullptr || CFArrayContainsValue(changerList, CFHWholeArray(changerList), number))
            continue;
        VERR_STEP(err, CFHArrayGetUInt64Value(known, i, &changerGUID),
                  "fail get changer GUID at index %ld", i);
        VERR_STEP(err, RemoveChangerFromList(changerGUID),
                  "fail remove changer GUID %016llX from list", changerGUID);
    }
    return err;
}

// ---- "root preferences" ----

void RootPrefsNotificationCallBack(CFTypeRef value, ChangerNotificationSubscription*, void*) {
    auto* preferences = static_cast<CFDictionaryRef>(value);
    SInt32 shouldId = 0;
    VErrLink* err = nullptr;
    VERR_NEED(err, CFGetTypeID(value) == CFDictionaryGetTypeID(),
              "fail get root preferences as dictionary");
    VERR_STEP(err, LockMediaIdState(), "fail LockMediaIdState");
    const bool locked = err == nullptr;
    if (locked && CFDictionaryContainsKey(preferences, CFSTR("IdentifyMediaOnInsert"))) {
        VERR_STEP(err,
                  CFHDictionaryGetBoolValue(preferences, CFSTR("IdentifyMediaOnInsert"), &shouldId),
                  "fail get should id media value as boolean");
        VERR_STEP(err, SetGlobalShouldIdMedia(shouldId), "fail SetGlobalShouldIdMedia");
    }
    if (locked)
        UnlockMediaIdState();
    VErrLogAndCatch(&err);
}

// ---- "changer info" ----

void ChangerInfoNotificationCallBack(CFTypeRef value, ChangerNotificationSubscription* subscription,
                                     void*) {
    auto* list = static_cast<CFArrayRef>(value);
    VErrLink* err = nullptr;
    VERR_NEED(err, CFGetTypeID(value) == CFArrayGetTypeID(), "fail get changer info as array");
    VERR_STEP(err, LockMediaIdState(), "fail LockMediaIdState");
    const bool locked = err == nullptr;
    if (locked && subscription != nullptr)
        HandleMediaIdServer(&subscription->server);
    VERR_STEP(err, SaveChangerInfoList(list), "fail SaveChangerList");
    const CFIndex count = err == nullptr ? CFArrayGetCount(list) : 0;
    for (CFIndex i = 0; err == nullptr && i < count; i++) {
        auto* info = static_cast<CFDictionaryRef>(CFArrayGetValueAtIndex(list, i));
        SInt32 isReady = 0;
        VERR_NEED(err, info != nullptr, "fail get changer info dict at index %ld", i);
        VERR_STEP(err, CFHDictionaryGetBoolValue(info, CFSTR("Changer Ready"), &isReady),
                  "fail check for changer ready");
        if (!isReady)
            continue;
        VERR_STEP(err, HandleAddedChangers(info),
                  "fail handle added changers for changer at index %ld", i);
        VERR_STEP(err, UpdateChangerSettings(info), "fail UpdateChangerSettings");
        VERR_STEP(err, HandleChangerOperationAbort(info), "fail HandleChangerOperationAbort");
        VERR_STEP(err, HandleManualChangerFSBuildStart(info),
                  "fail HandleManualChangerFSBuildStart");
        VERR_STEP(err, HandleStartingMediaId(info),
                  "fail handle start media id for changer at index %ld", i);
    }
    if (locked)
        UnlockMediaIdState();
    VErrLogAndCatch(&err);
}

VErrLink* HandleAddedChangers(CFDictionaryRef changerInfo) {
    VErrLink* err = nullptr;
    UInt64 changerGUID = 0;
    SInt32 isKnown = 0;
    VERR_STEP(err, CFHDictionaryGetUInt64Value(changerInfo, CFSTR("GUID"), &changerGUID),
              "fail get changer GUID");
    VERR_STEP(err, IsChangerInList(changerGUID, &isKnown), "fail check for changer %016llX in list",
              changerGUID);
    if (!isKnown) {
        VERR_STEP(err, ResetStatusReporting(changerGUID), "fail ResetStatusReporting");
        VERR_STEP(err, AddChangerToList(changerGUID), "fail add changer GUID %016llX to list",
                  changerGUID);
    }
    return err;
}

// A missing number leaves *value as it was. False if the value is not a number of 32 bits.
static bool GetOptionalNumber(CFDictionaryRef dict, CFStringRef key, SInt32* value) {
    const void* number = CFDictionaryGetValue(dict, key);
    return number == nullptr ||
           CFNumberGetValue(static_cast<CFNumberRef>(number), kCFNumberSInt32Type, value);
}

VErrLink* UpdateChangerSettings(CFDictionaryRef changerInfo) {
    VErrLink* err = nullptr;
    UInt64 changerGUID = 0;
    CFDictionaryRef preferences = nullptr;
    VERR_STEP(err, CFHDictionaryGetUInt64Value(changerInfo, CFSTR("GUID"), &changerGUID),
              "fail get changer GUID");
    VERR_STEP(err, UnscheduleChangerFSCacheTimer(changerGUID),
              "fail UnscheduleChangerFSCacheTimer");
    VERR_GET(err, preferences,
             CFHDictionaryFindDictionary(changerInfo, CFSTR("Changer Preferences")),
             "fail get changer preferences");
    if (err == nullptr && CFHDictionaryIsTrue(preferences, CFSTR("BuildDirCacheOnSchedule"))) {
        SInt32 hours = 1;
        SInt32 minutes = 0;
        VERR_NEED(err, GetOptionalNumber(preferences, CFSTR("BuildDirCacheTimeHours"), &hours),
                  "fail get hours as number");
        VERR_NEED(err, GetOptionalNumber(preferences, CFSTR("BuildDirCacheTimeMinutes"), &minutes),
                  "fail get minutes as number");
        VERR_STEP(err, ScheduleChangerFSCacheTimer(changerGUID, hours, minutes),
                  "fail ScheduleChangerFSCacheTimer for %016llX with %d:%02d", changerGUID, hours,
                  minutes);
    }
    return err;
}

VErrLink* HandleChangerOperationAbort(CFDictionaryRef changerInfo) {
    VErrLink* err = nullptr;
    UInt64 changerGUID = 0;
    CFDictionaryRef statuses = nullptr;
    CFStringRef clientName = nullptr;
    SInt32 shouldAbort = 0;
    VERR_STEP(err, CFHDictionaryGetUInt64Value(changerInfo, CFSTR("GUID"), &changerGUID),
              "fail get changer GUID");
    VERR_GET(err, statuses,
             CFHDictionaryFindDictionary(changerInfo, CFSTR("Changer Client Status")),
             "fail get client status list dict");
    VERR_GET(err, clientName,
             CFStringCreateWithCString(kCFAllocatorDefault, k_fsCacheThreadStatusClient,
                                       kCFStringEncodingUTF8),
             "fail alloc client name str");
    if (err == nullptr && CFDictionaryContainsKey(statuses, clientName)) {
        auto* own = static_cast<CFDictionaryRef>(CFDictionaryGetValue(statuses, clientName));
        VERR_STEP(err, CFHDictionaryGetBoolValue(own, CFSTR("Abort Requested"), &shouldAbort),
                  "fail CFHDictionaryGetBoolValue");
    }
    VERR_STEP(err, SetChangerShouldAbortOperation(changerGUID, shouldAbort),
              "fail SetChangerShouldAbortOperation");
    CFHReleaseIfSet(clientName);
    return err;
}

VErrLink* HandleManualChangerFSBuildStart(CFDictionaryRef changerInfo) {
    VErrLink* err = nullptr;
    UInt64 changerGUID = 0;
    VERR_STEP(err, CFHDictionaryGetUInt64Value(changerInfo, CFSTR("GUID"), &changerGUID),
              "fail get changer GUID");
    if (CFHDictionaryIsTrue(changerInfo, CFSTR("Changer Request Identification")))
        VERR_STEP(err, StartChangerFSCache(changerGUID), "fail StartChangerFSCache");
    return err;
}

// ---- the next disc to identify ----

VErrLink* HandleStartingMediaId(CFDictionaryRef changerInfo) {
    VErrLink* err = nullptr;
    CFDictionaryRef preferences = nullptr;
    CFArrayRef media = nullptr;
    SInt32 shouldId = 0;
    UInt64 changerGUID = 0;
    UInt16 mounted = 0;
    UInt16 drives = 0;
    UInt32 inProgress = 0;
    VERR_GET(err, preferences,
             CFHDictionaryFindDictionary(changerInfo, CFSTR("Changer Preferences")),
             "fail get changer preferences");
    if (err == nullptr && CFDictionaryContainsKey(preferences, CFSTR("IdentifyMediaOnInsert")))
        VERR_STEP(err,
                  CFHDictionaryGetBoolValue(preferences, CFSTR("IdentifyMediaOnInsert"), &shouldId),
                  "fail get should id media flag from changer prefs");
    else
        VERR_STEP(err, GetGlobalShouldIdMedia(&shouldId), "fail GetGlobalShouldIdMedia");
    VERR_STEP(err, CFHDictionaryGetUInt64Value(changerInfo, CFSTR("GUID"), &changerGUID),
              "fail get changer GUID from changer info dict");
    VERR_GET(err, media, CFHDictionaryFindArray(changerInfo, CFSTR("Changer Media Info")),
             "fail get changer media array for changer GUID %016llX", changerGUID);
    VERR_STEP(err, CountChangerMountedMedia(media, &mounted),
              "fail CountChangerMountedMedia for changer GUID %016llX", changerGUID);
    VERR_STEP(
        err,
        CFHDictionaryGetUInt16Value(changerInfo, CFSTR("Data Transfer Element Count"), &drives),
        "fail get count of data transfer elements for changer GUID %016llX", changerGUID);
    VERR_STEP(err, GetMediaIdInProgressCount(changerGUID, &inProgress),
              "fail GetMediaIdInProgressCount for changer GUID %016llX", changerGUID);
    // If none is in progress, one may always start, regardless of the mounted media.
    if (err != nullptr || (inProgress != 0 && (mounted >= drives || inProgress >= drives)))
        return err;

    const SInt32 buildDirCache = CFHDictionaryIsTrue(preferences, CFSTR("BuildDirCacheOnIdentify"));
    SInt32 started = 0;
    VERR_STEP(err, SpawnNextManualMediaId(changerGUID, media, buildDirCache, &started),
              "fail SpawnNextManualMediaId for changer GUID %016llX", changerGUID);
    if (!started && shouldId)
        VERR_STEP(err, SpawnNextAutomaticMediaId(changerGUID, media, buildDirCache, &started),
                  "fail SpawnNextAutomaticMediaId for changer GUID %016llX", changerGUID);
    return err;
}

VErrLink* CountChangerMountedMedia(CFArrayRef media, UInt16* count) {
    VErrLink* err = nullptr;
    *count = 0;
    const CFIndex mediaCount = CFArrayGetCount(media);
    for (CFIndex i = 0; err == nullptr && i < mediaCount; i++) {
        auto* medium = static_cast<CFDictionaryRef>(CFArrayGetValueAtIndex(media, i));
        UInt32 state = kNotMounted;
        VERR_NEED(err, medium != nullptr, "fail get media dict at index %ld", i);
        VERR_STEP(err, CFHDictionaryGetUInt32Value(medium, CFSTR("Media Mount State"), &state),
                  "fail get media mount state");
        if (err == nullptr && state != kNotMounted && state != kNotCountedAsMounted)
            *count = static_cast<UInt16>(*count + 1);
    }
    return err;
}

// Sets *isCandidate to whether the medium should be identified. Links name `function`.
typedef VErrLink* (*MediumCriterion)(const char* function, CFDictionaryRef medium,
                                     SInt32* isCandidate);

// Starts the first medium that exists, meets the criterion and is not in progress.
static VErrLink* SpawnNextMediaId(const char* function, UInt64 changerGUID, CFArrayRef media,
                                  SInt32 buildDirCache, MediumCriterion criterion,
                                  SInt32* started) {
    VErrLink* err = nullptr;
    *started = 0;
    const CFIndex count = CFArrayGetCount(media);
    for (CFIndex i = 0; err == nullptr && !*started && i < count; i++) {
        auto* medium = static_cast<CFDictionaryRef>(CFArrayGetValueAtIndex(media, i));
        UInt16 kind = 0;
        UInt16 storageElem = 0;
        SInt32 isCandidate = 0;
        SInt32 isOnList = 0;
        VERR_NEED_IN(function, err, medium != nullptr, "fail get media dict for media index %ld",
                     i);
        VERR_STEP_IN(function, err, CFHDictionaryGetUInt16Value(medium, CFSTR("Media Kind"), &kind),
                     "fail get media kind for media index %ld", i);
        if (err == nullptr && kind != kNoMedium)
            err = criterion(function, medium, &isCandidate);
        if (!isCandidate)
            continue;
        VERR_STEP_IN(
            function, err,
            CFHDictionaryGetUInt16Value(medium, CFSTR("Media Storage Element Index"), &storageElem),
            "fail get storage element for media %ld", i);
        VERR_STEP_IN(function, err,
                     IsStorageElemOnInProgressList(changerGUID, storageElem, &isOnList),
                     "fail IsStorageElemOnInProgressList for changer GUID %016llX/storage elem %d",
                     changerGUID, storageElem);
        if (isOnList)
            continue;
        VERR_STEP_IN(function, err, StartMediaId(changerGUID, storageElem, buildDirCache),
                     "fail RunMediaIdThread for changer GUID %016llX/storage elem %d", changerGUID,
                     storageElem);
        *started = err == nullptr;
    }
    return err;
}

static VErrLink* IsIdentificationRequested(const char* /* function */, CFDictionaryRef medium,
                                           SInt32* isRequested) {
    *isRequested = CFHDictionaryIsTrue(medium, CFSTR("Media Request Identification"));
    return nullptr;
}

static VErrLink* WasNeverIdentified(const char* function, CFDictionaryRef medium,
                                    SInt32* neverIdentified) {
    VErrLink* err = nullptr;
    SInt32 identifyTime = 0;
    VERR_STEP_IN(function, err,
                 CFHDictionaryGetSInt32Value(medium, CFSTR("Media Identify Time"), &identifyTime),
                 "fail get media identify time");
    *neverIdentified = err == nullptr && identifyTime == 0;
    return err;
}

VErrLink* SpawnNextManualMediaId(UInt64 changerGUID, CFArrayRef media, SInt32 buildDirCache,
                                 SInt32* started) {
    return SpawnNextMediaId(__func__, changerGUID, media, buildDirCache, IsIdentificationRequested,
                            started);
}

VErrLink* SpawnNextAutomaticMediaId(UInt64 changerGUID, CFArrayRef media, SInt32 buildDirCache,
                                    SInt32* started) {
    return SpawnNextMediaId(__func__, changerGUID, media, buildDirCache, WasNeverIdentified,
                            started);
}
