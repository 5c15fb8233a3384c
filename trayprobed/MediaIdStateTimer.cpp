#include "common/CFHelpers.h"
#include "trayprobed/ChangerFSCacheThread.h"
#include "trayprobed/MediaIdState.h"

#include <time.h>

static const char kSourcePath[] = "trayprobed/MediaIdState"; // links name the store

constexpr CFTimeInterval kDailyInterval = 86400.0; // seconds, whatever the length of the day

// The GUID numbers of all changers that were ever scheduled; key and value are the same object.
// They are never released: timers use them without retaining them. Guarded by the store's own lock.
static CFMutableDictionaryRef g_timerGUIDNumbers = nullptr;

static const CFStringRef kTimer = CFSTR("FS Cache Timer");

// Returns the number for the timers of a changer, borrowed. Null without memory.
static CFNumberRef InternTimerGUIDNumber(UInt64 changerGUID) {
    CFNumberRef number = CFHCreateUInt64Number(changerGUID);
    if (number == nullptr)
        return nullptr;
    BeginStoreAccess();
    if (g_timerGUIDNumbers == nullptr)
        g_timerGUIDNumbers = CFHCreateMutableDictionary();
    if (g_timerGUIDNumbers != nullptr && !CFDictionaryContainsKey(g_timerGUIDNumbers, number))
        CFDictionarySetValue(g_timerGUIDNumbers, number, number);
    auto* kept = g_timerGUIDNumbers != nullptr
                     ? static_cast<CFNumberRef>(CFDictionaryGetValue(g_timerGUIDNumbers, number))
                     : nullptr;
    EndStoreAccess();
    CFRelease(number);
    return kept;
}

// tm_isdst = -1: mktime() finds out whether daylight saving applies on that day. Returns -1 if the
// time cannot be represented.
static time_t TimeOnDay(const struct tm& today, int daysLater, SInt32 hour, SInt32 minute) {
    struct tm when = today;
    when.tm_mday += daysLater;
    when.tm_hour = hour;
    when.tm_min = minute;
    when.tm_sec = 0;
    when.tm_isdst = -1;
    return mktime(&when);
}

static CFRunLoopTimerRef CreateDailyTimer(time_t firstTime, CFNumberRef changerGUIDNum) {
    CFRunLoopTimerContext context = {0, const_cast<__CFNumber*>(changerGUIDNum), nullptr, nullptr,
                                     nullptr};
    const CFAbsoluteTime fireDate =
        static_cast<CFAbsoluteTime>(firstTime) - kCFAbsoluteTimeIntervalSince1970;
    return CFRunLoopTimerCreate(kCFAllocatorDefault, fireDate, kDailyInterval, 0, 0, ChangerFSCache,
                                &context);
}

VErrLink* ScheduleChangerFSCacheTimer(UInt64 changerGUID, SInt32 hour, SInt32 minute) {
    VErrLink* err = nullptr;
    CFNumberRef number = nullptr;
    CFRunLoopTimerRef timer = nullptr;
    CFMutableDictionaryRef dict = nullptr;
    const time_t now = time(nullptr);
    struct tm today = {};
    tzset();
    localtime_r(&now, &today);

    time_t buildTime = TimeOnDay(today, 0, hour, minute);
    VERR_NEED(err, buildTime != -1, "fail construct buildTime for today");
    if (err == nullptr && buildTime <= now) {
        buildTime = TimeOnDay(today, 1, hour, minute);
        VERR_NEED(err, buildTime != -1, "fail construct buildTime for tomorrow");
    }
    VERR_GET(err, number, InternTimerGUIDNumber(changerGUID), "fail create changerGUIDNum");
    VERR_GET(err, timer, CreateDailyTimer(buildTime, number), "fail CFRunLoopTimerCreate");
    if (err == nullptr)
        CFRunLoopAddTimer(CFRunLoopGetCurrent(), timer, kCFRunLoopDefaultMode);

    BeginStoreAccess();
    VERR_STEP(err, GetChangerDictForGUID(changerGUID, &dict), "fail GetChangerDictForGUID");
    VERR_NEED(err, CFHDictionaryStore(dict, kTimer, timer), "fail SetChangerDictForGUID");
    VERR_STEP(err, SetChangerDictForGUID(changerGUID, dict), "fail SetChangerDictForGUID");
    EndStoreAccess();
    CFHReleaseIfSet(dict);
    CFHReleaseIfSet(timer);
    return err;
}

VErrLink* UnscheduleChangerFSCacheTimer(UInt64 changerGUID) {
    VErrLink* err = nullptr;
    CFMutableDictionaryRef dict = nullptr;
    BeginStoreAccess();
    VERR_STEP(err, GetChangerDictForGUID(changerGUID, &dict), "fail GetChangerDictForGUID");
    auto* timer = static_cast<CFRunLoopTimerRef>(
        const_cast<void*>(err == nullptr ? CFDictionaryGetValue(dict, kTimer) : nullptr));
    if (timer != nullptr) {
        // Invalidating removes the timer from its run loop; the mode of the call before is not the
        // one that the timer was added to.
        CFRunLoopRemoveTimer(CFRunLoopGetCurrent(), timer, kCFRunLoopCommonModes);
        CFRunLoopTimerInvalidate(timer);
        CFDictionaryRemoveValue(dict, kTimer);
        VERR_STEP(err, SetChangerDictForGUID(changerGUID, dict), "fail SetChangerDictForGUID");
    }
    EndStoreAccess();
    CFHReleaseIfSet(dict);
    return err;
}

void ChangerFSCache(CFRunLoopTimerRef /* timer */, void* info) {
    VErrLink* err = nullptr;
    UInt64 changerGUID = 0;
    VERR_NEED(err,
              CFNumberGetValue(static_cast<CFNumberRef>(info), kCFNumberSInt64Type, &changerGUID),
              "fail get info as changer GUID");
    VERR_STEP(err, StartChangerFSCache(changerGUID), "fail StartChangerFSCache on %016llX",
              changerGUID);
    VErrLogAndCatch(&err);
}
