#include "trayprobed/ChangerFSCacheState.h"

#include "common/CFHelpers.h"

#include <pthread.h>
#include <stdlib.h>
#include <string.h>

static const char kSourcePath[] = "trayprobed/ChangerFSCacheState";

static const CFStringRef kChangerFSListValueBSDName = CFSTR("BSD Name");
static const CFStringRef kChangerFSListValueMountPath = CFSTR("Mount Path");

constexpr CFIndex kBsdNameSize = 128;

// Changer GUID to a dictionary of the two values; null before Init and after Term. Guarded by
// g_changerFSListMutex, which is never destroyed: detached threads may still run after Term.
static CFMutableDictionaryRef g_changerFSListDict = nullptr;
static pthread_mutex_t g_changerFSListMutex = PTHREAD_MUTEX_INITIALIZER;

VErrLink* InitChangerFSCacheState(void) {
    VErrLink* err = nullptr;
    CFMutableDictionaryRef list = CFHCreateMutableDictionary();
    VERR_NEED(err, list != nullptr, "fail allocate changer FS list dictionary");
    pthread_mutex_lock(&g_changerFSListMutex);
    g_changerFSListDict = list;
    pthread_mutex_unlock(&g_changerFSListMutex);
    return err;
}

void TermChangerFSCacheState(void) {
    pthread_mutex_lock(&g_changerFSListMutex);
    CFHReleaseIfSet(g_changerFSListDict);
    g_changerFSListDict = nullptr;
    pthread_mutex_unlock(&g_changerFSListMutex);
}

// Returns the changer's entry, or null. The caller owns it: the main thread may replace it
// meanwhile.
static CFDictionaryRef CopyEntry(CFNumberRef changerGUIDNum) {
    pthread_mutex_lock(&g_changerFSListMutex);
    CFTypeRef entry = g_changerFSListDict != nullptr
                          ? CFDictionaryGetValue(g_changerFSListDict, changerGUIDNum)
                          : nullptr;
    if (entry != nullptr)
        CFRetain(entry);
    pthread_mutex_unlock(&g_changerFSListMutex);
    return static_cast<CFDictionaryRef>(entry);
}

VErrLink* IsChangerFSGUIDInList(UInt64 changerGUID, bool* isInList) {
    VErrLink* err = nullptr;
    CFNumberRef number = CFHCreateUInt64Number(changerGUID);
    if (number == nullptr)
        return VERR_RAISE(VErrThrow(&err, "fail CFNumberCreate"));
    CFDictionaryRef entry = CopyEntry(number);
    *isInList = entry != nullptr;
    CFHReleaseIfSet(entry);
    CFRelease(number);
    return nullptr;
}

VErrLink* GetChangerFSMountPath(UInt64 changerGUID, char* mountPath, CFIndex size) {
    VErrLink* err = nullptr;
    CFNumberRef number = CFHCreateUInt64Number(changerGUID);
    if (number == nullptr)
        return VERR_RAISE(VErrThrow(&err, "fail CFNumberCreate"));
    CFDictionaryRef entry = CopyEntry(number);
    VERR_NEED(err, entry != nullptr, "fail get changer dict for GUID %016llX", changerGUID);
    VERR_STEP(err,
              CFHDictionaryGetStringValue(entry, kChangerFSListValueMountPath, size,
                                          kCFStringEncodingUTF8, mountPath),
              "fail get changer mount path for GUID %016llX", changerGUID);
    CFHReleaseIfSet(entry);
    CFRelease(number);
    return err;
}

VErrLink* AddChangerFSToList(UInt64 changerGUID, const char* bsdName, const char* mountPath) {
    VErrLink* err = nullptr;
    CFNumberRef number = nullptr;
    CFMutableDictionaryRef entry = nullptr;
    VERR_GET(err, number, CFHCreateUInt64Number(changerGUID), "fail CFNumberCreate");
    VERR_GET(err, entry, CFHCreateMutableDictionary(), "fail create fs info dict");
    VERR_STEP(err,
              CFHDictionarySetStringValue(entry, kChangerFSListValueBSDName, bsdName,
                                          kCFStringEncodingUTF8),
              "fail set changer BSD name");
    VERR_STEP(err,
              CFHDictionarySetStringValue(entry, kChangerFSListValueMountPath, mountPath,
                                          kCFStringEncodingUTF8),
              "fail set changer mount path value");
    pthread_mutex_lock(&g_changerFSListMutex);
    VERR_NEED(err, CFHDictionaryStore(g_changerFSListDict, number, entry),
              "fail create fs info dict");
    pthread_mutex_unlock(&g_changerFSListMutex);
    CFHReleaseIfSet(entry);
    CFHReleaseIfSet(number);
    return err;
}

VErrLink* RemoveChangerFSFromList(const char* bsdName) {
    VErrLink* err = nullptr;
    const void** values = nullptr;
    pthread_mutex_lock(&g_changerFSListMutex);
    const CFIndex count =
        g_changerFSListDict != nullptr ? CFDictionaryGetCount(g_changerFSListDict) : 0;
    // One slot more than needed: malloc(0) may return null.
    const size_t slots = static_cast<size_t>(count) + 1;
    auto* keys = static_cast<const void**>(malloc(slots * sizeof(const void*)));
    VERR_NEED(err, keys != nullptr, "fail alloc keys storage");
    VERR_GET(err, values, static_cast<const void**>(malloc(slots * sizeof(const void*))),
             "fail alloc values storage");
    if (err == nullptr && count != 0)
        CFDictionaryGetKeysAndValues(g_changerFSListDict, keys, values);

    bool removed = false;
    for (CFIndex i = 0; err == nullptr && !removed && i < count; i++) {
        char entryName[kBsdNameSize];
        VERR_STEP(err,
                  CFHDictionaryGetStringValue(static_cast<CFDictionaryRef>(values[i]),
                                              kChangerFSListValueBSDName, kBsdNameSize,
                                              kCFStringEncodingUTF8, entryName),
                  "fail CFHDictionaryGetStringValue");
        removed = err == nullptr && strcmp(entryName, bsdName) == 0;
        if (removed)
            CFDictionaryRemoveValue(g_changerFSListDict, keys[i]);
    }
    free(values);
    free(keys);
    pthread_mutex_unlock(&g_changerFSListMutex);
    return err;
}
