#include "Invariants.h"

#include "Activity.h"
#include "Changers.h"
#include "EventCounts.h"
#include "RandomValues.h"
#include "ShortDelays.h"
#include "Volumes.h"
#include "trayprobed/ChangerFSCacheState.h"
#include "trayprobed/MediaIdState.h"

#include <array>
#include <string>

namespace {

void Check(bool holds, const char* what, UInt64 changerGUID) {
    if (!holds)
        event_counts::ReportProblem(std::string(what) + ", changer " +
                                    std::to_string(changerGUID - GuidOf(0)));
}

// For operations that cannot fail here.
void RequireSuccess(VErrLink* err) {
    if (err == nullptr)
        return;
    event_counts::ReportProblem(err->message);
    ReleaseVErrLink(err);
}

class StateLock {
public:
    StateLock() {
        RequireSuccess(LockMediaIdState());
    }
    StateLock(const StateLock&) = delete;
    StateLock& operator=(const StateLock&) = delete;
    ~StateLock() {
        UnlockMediaIdState();
    }
};

bool IsKnown(UInt64 changerGUID) {
    SInt32 isKnown = 0;
    RequireSuccess(IsChangerInList(changerGUID, &isKnown));
    return isKnown != 0;
}

bool IsInProgress(UInt64 changerGUID, UInt16 slot) {
    SInt32 isInProgress = 0;
    RequireSuccess(IsStorageElemOnInProgressList(changerGUID, slot, &isInProgress));
    return isInProgress != 0;
}

bool IsMarkedAsBuilding(UInt64 changerGUID) {
    SInt32 isBuilding = 0;
    RequireSuccess(GetChangerFSCacheBuildInProgress(changerGUID, &isBuilding));
    return isBuilding != 0;
}

bool ShouldAbort(UInt64 changerGUID) {
    SInt32 shouldAbort = 0;
    RequireSuccess(GetChangerShouldAbortOperation(changerGUID, &shouldAbort));
    return shouldAbort != 0;
}

bool IsMounted(UInt64 changerGUID) {
    bool isMounted = false;
    RequireSuccess(IsChangerFSGUIDInList(changerGUID, &isMounted));
    return isMounted;
}

// IsChangerFSGUIDInList() and GetChangerFSMountPath() agree while the state lock is held.
void CheckVolume(UInt64 changerGUID) {
    if (!IsMounted(changerGUID))
        return;
    std::array<char, 1024> path = {};
    RequireSuccess(GetChangerFSMountPath(changerGUID, path.data(), path.size()));
    Check(path.data() == Volumes::PathOf(changerGUID), "mounted elsewhere", changerGUID);
}

void CheckKnownChanger(UInt64 changerGUID) {
    UInt32 count = 0;
    RequireSuccess(GetMediaIdInProgressCount(changerGUID, &count));
    Check(count <= kDrives, "more in progress than drives", changerGUID);
    for (UInt16 slot = 0; slot < kSlots; ++slot)
        Check(!IsInProgress(changerGUID, slot) || activity::IsBeingIdentified(changerGUID, slot) ||
                  activity::IsStuck(changerGUID, slot),
              "in progress without a worker", changerGUID);
    Check(!IsMarkedAsBuilding(changerGUID) || activity::CountBuilds(changerGUID) > 0,
          "marked as building without a build", changerGUID);
}

} // namespace

void StateObserver::CheckRepeatedly() {
    while (!isStopped_) {
        for (int changer = 0; changer < kChangers; ++changer) {
            const StateLock lock;
            CheckVolume(GuidOf(changer));
            if (IsKnown(GuidOf(changer)))
                CheckKnownChanger(GuidOf(changer));
            event_counts::Count(EventKind::kBusyStateChecked);
        }
        random_values::Sleep(2000);
    }
}

bool IsIdle() {
    const StateLock lock;
    bool isComplete = true;
    for (int changer = 0; changer < kChangers; ++changer)
        isComplete = isComplete && IsKnown(GuidOf(changer)) && IsMounted(GuidOf(changer));
    return isComplete && !activity::HasThreads() && !short_delays::HasPendingDailyTimer();
}

void CheckIdleState(bool changersReadded) {
    const StateLock lock;
    for (int changer = 0; changer < kChangers; ++changer) {
        const UInt64 guid = GuidOf(changer);
        CheckVolume(guid);
        Check(!IsMarkedAsBuilding(guid), "left marked as building", guid);
        Check(!ShouldAbort(guid), "left marked to abort", guid);
        Check(activity::CountBuilds(guid) == 0, "a build never ended", guid);
        for (UInt16 slot = 0; slot < kSlots; ++slot) {
            if (!changersReadded && activity::IsStuckOfFormerServer(guid, slot))
                continue;
            const bool isStuck = !changersReadded && activity::IsStuck(guid, slot);
            const bool isInProgress = IsInProgress(guid, slot);
            Check(isStuck || !isInProgress, "left in progress", guid);
            Check(!isStuck || isInProgress || !IsPermanent(guid),
                  "no longer in progress without a withdrawal", guid);
        }
    }
    event_counts::Count(EventKind::kIdleStateChecked);
}
