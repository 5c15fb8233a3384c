#include "Invariants.h"

#include "Activity.h"
#include "Changers.h"
#include "EventCounts.h"
#include "RandomValues.h"
#include "ShortDelays.h"
#include "Volumes.h"
#include "support/NotCopyable.h"
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

class StateLock : NotCopyable {
public:
    StateLock() {
        RequireSuccess(LockMediaIdState());
    }
    ~StateLock() {
        UnlockMediaIdState();
    }
};

// Returns what `function` stores in its last parameter.
template<typename Result, typename Function, typename... Inputs>
Result ResultOf(Function function, Inputs... inputs) {
    Result result = {};
    RequireSuccess(function(inputs..., &result));
    return result;
}

bool IsKnown(UInt64 changerGUID) {
    return ResultOf<SInt32>(IsChangerInList, changerGUID) != 0;
}

bool IsMounted(UInt64 changerGUID) {
    return ResultOf<bool>(IsChangerFSGUIDInList, changerGUID);
}

bool IsMarkedAsBuilding(UInt64 changerGUID) {
    return ResultOf<SInt32>(GetChangerFSCacheBuildInProgress, changerGUID) != 0;
}

bool IsInProgress(UInt64 changerGUID, UInt16 slot) {
    return ResultOf<SInt32>(IsStorageElemOnInProgressList, changerGUID, slot) != 0;
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
    Check(ResultOf<UInt32>(GetMediaIdInProgressCount, changerGUID) <= kDrives,
          "more in progress than drives", changerGUID);
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
            event_counts::Count("states checked while busy");
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
        Check(!ResultOf<SInt32>(GetChangerShouldAbortOperation, guid), "left marked to abort",
              guid);
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
    event_counts::Count("states checked when idle");
}
