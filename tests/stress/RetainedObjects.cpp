#include "RetainedObjects.h"

#include "trayprobed/ShownReport.h"

#include <cstdlib>
#include <utility>

namespace {

// A build sets and clears its status on its own thread. Other threads only clear.
thread_local FSCacheStatusReport* t_shownReport = nullptr;

} // namespace

// The mangled names of ChangerServerSetClientStatus and ChangerServerClearClientStatus.
extern "C" {
VErrLink* __real__Z28ChangerServerSetClientStatusyPKcS0_tth(UInt64 changerGUID, const char* client,
                                                            const char* message, UInt16 step,
                                                            UInt16 maximum, Boolean abort);
VErrLink* __real__Z30ChangerServerClearClientStatusyPKc(UInt64 changerGUID, const char* client);

VErrLink* __wrap__Z28ChangerServerSetClientStatusyPKcS0_tth(UInt64 changerGUID, const char* client,
                                                            const char* message, UInt16 step,
                                                            UInt16 maximum, Boolean abort) {
    t_shownReport = ReportOf(message);
    return __real__Z28ChangerServerSetClientStatusyPKcS0_tth(changerGUID, client, message, step,
                                                             maximum, abort);
}

VErrLink* __wrap__Z30ChangerServerClearClientStatusyPKc(UInt64 changerGUID, const char* client) {
    VErrLink* err = __real__Z30ChangerServerClearClientStatusyPKc(changerGUID, client);
    FSCacheStatusReport* shown = std::exchange(t_shownReport, nullptr);
    if (err != nullptr)
        free(shown);
    return err;
}
}

void retained_objects::TryToConnect(CFRunLoopTimerRef timer,
                                    ChangerNotificationSubscription* subscription) {
    CFRunLoopSourceRef earlier = subscription->source;
    TryNotificationConnect(timer, subscription);
    if (earlier != nullptr && subscription->source != earlier)
        CFRelease(earlier);
}
