#include "ManagedChangers.h"

#include "Journal.h"
#include "trayprobed/ChangerFSCacheThread.h"
#include "trayprobed/MediaIdManager.h"
#include "trayprobed/MediaIdThread.h"

#include <cstdlib>

ManagerFakes g_fakes;

ChangerNotificationSubscription g_subscription = {};

namespace {

const char* Lock() {
    return StateLock::IsHeld() ? "" : " (unlocked)";
}

VErrLink* Answer(const char* function) {
    VErrLink* err = nullptr;
    if (g_fakes.failing == function)
        VErrRaise(VErrThrowWithErrCode(&err, 5, "fail on purpose"), "test/Fakes", function,
                  __LINE__);
    return err;
}

} // namespace

const char k_fsCacheThreadStatusClient[] = "trayprobed";

VErrLink* StartChangerFSCache(UInt64 changerGUID) {
    SInt32 shouldAbort = 0;
    VErrLink* err = GetChangerShouldAbortOperation(changerGUID, &shouldAbort);
    VErrCatch(&err);
    Journal::Add("build %016llX%s%s", changerGUID, shouldAbort ? " to be aborted" : "", Lock());
    return Answer(__func__);
}

VErrLink* ResetStatusReporting(UInt64 changerGUID) {
    Journal::Add("reset %016llX%s", changerGUID, Lock());
    if (g_fakes.onReset)
        g_fakes.onReset();
    return Answer(__func__);
}

VErrLink* StartMediaId(UInt64 changerGUID, UInt16 storageElem, SInt32 buildDirCache) {
    Journal::Add("identify %016llX/%u%s%s", changerGUID, storageElem, buildDirCache ? " down" : "",
                 Lock());
    VErrLink* err = Answer(__func__);
    return err != nullptr ? err : AddStorageElemToMediaIdInProgressList(changerGUID, storageElem);
}

void HandleMediaIdServer(const ChangerServerProcess* server) {
    EXPECT_TRUE(StateLock::IsHeld());
    if (g_fakes.onServer)
        g_fakes.onServer(*server);
}

VErrLink* SubscribeToChangerNotifications(ChangerNotificationCallBack changerListCallBack,
                                          ChangerNotificationCallBack rootPreferencesCallBack,
                                          ChangerNotificationCallBack changerInfoCallBack,
                                          void* refCon,
                                          ChangerNotificationSubscription** subscription) {
    EXPECT_EQ(refCon, nullptr);
    g_fakes.callBacks = {changerListCallBack, rootPreferencesCallBack, changerInfoCallBack};
    *subscription = &g_subscription;
    return Answer(__func__);
}

VErrLink* UnsubscribeFromChangerNotifications(ChangerNotificationSubscription* subscription) {
    EXPECT_EQ(subscription, &g_subscription);
    g_fakes.unsubscribed.push_back(subscription);
    return Answer(__func__);
}

// The real functions never fail.
extern "C" {
VErrLink* __real__Z19SaveChangerInfoListPK9__CFArray(CFArrayRef list);
VErrLink* __real__Z22GetGlobalShouldIdMediaPi(SInt32* shouldId);
VErrLink* __real__Z22SetGlobalShouldIdMediai(SInt32 shouldId);

VErrLink* __wrap__Z19SaveChangerInfoListPK9__CFArray(CFArrayRef list) {
    VErrLink* err = Answer("SaveChangerInfoList");
    return err != nullptr ? err : __real__Z19SaveChangerInfoListPK9__CFArray(list);
}

VErrLink* __wrap__Z22GetGlobalShouldIdMediaPi(SInt32* shouldId) {
    VErrLink* err = Answer("GetGlobalShouldIdMedia");
    return err != nullptr ? err : __real__Z22GetGlobalShouldIdMediaPi(shouldId);
}

VErrLink* __wrap__Z22SetGlobalShouldIdMediai(SInt32 shouldId) {
    VErrLink* err = Answer("SetGlobalShouldIdMedia");
    return err != nullptr ? err : __real__Z22SetGlobalShouldIdMediai(shouldId);
}
}

ManagedChangers::ManagedChangers() {
    setenv("TZ", "UTC", 1);
    g_fakes = {};
    Journal::Take();
}

ManagedChangers::~ManagedChangers() {
    EXPECT_EQ(SetGlobalShouldIdMedia(1), nullptr);
    EXPECT_FALSE(StateLock::IsHeld());
}

std::vector<std::string> ManagedChangers::Notify(std::initializer_list<Value> changers) {
    Journal::Take();
    const auto list = Array(changers);
    ChangerInfoNotificationCallBack(list.Get(), &g_subscription, nullptr);
    EXPECT_FALSE(StateLock::IsHeld());
    NoteSavedList(list);
    return Journal::Take();
}

CFOwned<CFMutableDictionaryRef> Changer(UInt64 changerGUID, std::initializer_list<Entry> changes) {
    return With(Dictionary({{"GUID", changerGUID},
                            {"Changer Ready", true},
                            {"Changer Preferences", Dictionary()},
                            {"Changer Media Info", Array()},
                            {"Data Transfer Element Count", 2},
                            {"Changer Client Status", Dictionary()}}),
                changes);
}

CFOwned<CFMutableDictionaryRef> ChangerThatPrefers(const Value& preferences) {
    return Changer(kChanger, {{"Changer Preferences", preferences}});
}

CFOwned<CFMutableDictionaryRef> ChangerWithDailyBuild(std::initializer_list<Entry> changes) {
    return ChangerThatPrefers(With(Dictionary({{"BuildDirCacheOnSchedule", true}}), changes));
}

CFOwned<CFMutableDictionaryRef> Medium(int storageElem, std::initializer_list<Entry> changes) {
    return With(Dictionary({{"Media Kind", 1},
                            {"Media Storage Element Index", storageElem},
                            {"Media Identify Time", 1700000000},
                            {"Media Mount State", 0}}),
                changes);
}

CFOwned<CFMutableDictionaryRef> NewMedium(int storageElem) {
    return Medium(storageElem, {{"Media Identify Time", 0}});
}

CFOwned<CFMutableDictionaryRef> RequestedMedium(int storageElem) {
    return Medium(storageElem, {{"Media Request Identification", true}});
}

std::string Identify(int storageElem) {
    return std::string("identify ") + kChangerText + "/" + std::to_string(storageElem);
}
