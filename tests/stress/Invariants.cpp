#include "Invariants.h"

#include "Chance.h"
#include "Changers.h"
#include "Ledger.h"
#include "ShortTimes.h"
#include "Tally.h"
#include "Volumes.h"

#include "trayprobed/ChangerFSCacheState.h"
#include "trayprobed/MediaIdState.h"

#include <array>
#include <string>

namespace {

void Check(bool holds, const char* what, UInt64 changerGUID) {
    if (!holds)
        tally::Complain(std::string(what) + ", changer " + std::to_string(changerGUID - GuidOf(0)));
}

// Operations that cannot fail here.
void Need(VErrLink* err) {
    if (err == nullptr)
        return;
    tally::Complain(err->message);
    ReleaseVErrLink(err);
}

class StateLock {
public:
    StateLock() {
        Need(LockMediaIdState());
    }
    StateLock(const StateLock&) = delete;
    StateLock& operator=(const StateLock&) = delete;
    ~StateLock() {
        UnlockMediaIdState();
    }
};

bool IsKnown(UInt64 changerGUID) {
    SInt32 isKnown = 0;
    Need(IsChangerInList(changerGUID, &isKnown));
    return isKnown != 0;
}

bool IsOnList(UInt64 changerGUID, UInt16 slot) {
    SInt32 isOnList = 0;
    Need(IsStorageElemOnInProgressList(changerGUID, slot, &isOnList));
    return isOnList != 0;
}

bool IsMarkedAsBuilding(UInt64 changerGUID) {
    SInt32 isBuilding = 0;
    Need(GetChangerFSCacheBuildInProgress(changerGUID, &isBuilding));
    return isBuilding != 0;
}

bool IsToAbort(UInt64 changerGUID) {
    SInt32 isToAbort = 0;
    Need(GetChangerShouldAbortOperation(changerGUID, &isToAbort));
    return isToAbort != 0;
}

bool IsMounted(UInt64 changerGUID) {
    bool isMounted = false;
    Need(IsChangerFSGUIDInList(changerGUID, &isMounted));
    return isMounted;
}

// The registry's two answers belong together, as long as the state lock is held.
void CheckVolume(UInt64 changerGUID) {
    if (!IsMounted(changerGUID))
        return;
    std::array<char, 1024> path = {};
    Need(GetChangerFSMountPath(changerGUID, path.data(), path.size()));
    Check(path.data() == Volumes::PathOf(changerGUID), "mounted elsewhere", changerGUID);
}

void CheckKnownChanger(UInt64 changerGUID) {
    UInt32 count = 0;
    Need(GetMediaIdInProgressCount(changerGUID, &count));
    Check(count <= kDrives, "more in progress than drives", changerGUID);
    for (UInt16 slot = 0; slot < kSlots; ++slot)
        Check(!IsOnList(changerGUID, slot) || ledger::IsBeingIdentified(changerGUID, slot) ||
                  ledger::IsOutOfReach(changerGUID, slot),
              "in progress without a worker", changerGUID);
    Check(!IsMarkedAsBuilding(changerGUID) || ledger::CountBuilds(changerGUID) > 0,
          "marked as building without a build", changerGUID);
}

} // namespace

void Observer::Observe() {
    while (!isOver_) {
        for (int changer = 0; changer < kChangers; ++changer) {
            const StateLock lock;
            CheckVolume(GuidOf(changer));
            if (IsKnown(GuidOf(changer)))
                CheckKnownChanger(GuidOf(changer));
            tally::Count(Kind::kStateChecked);
        }
        chance::Pause(2000);
    }
}

bool IsAtRest() {
    const StateLock lock;
    bool isComplete = true;
    for (int changer = 0; changer < kChangers; ++changer)
        isComplete = isComplete && IsKnown(GuidOf(changer)) && IsMounted(GuidOf(changer));
    return isComplete && !ledger::IsAnybodyAtWork() && !short_times::HasPendingDailyTimer();
}

void CheckRest(bool anew) {
    const StateLock lock;
    for (int changer = 0; changer < kChangers; ++changer) {
        const UInt64 guid = GuidOf(changer);
        CheckVolume(guid);
        Check(!IsMarkedAsBuilding(guid), "left marked as building", guid);
        Check(!IsToAbort(guid), "left marked to abort", guid);
        Check(ledger::CountBuilds(guid) == 0, "a build never ended", guid);
        for (UInt16 slot = 0; slot < kSlots; ++slot) {
            if (!anew && ledger::WasLeftByFormerServer(guid, slot))
                continue;
            const bool isOutOfReach = !anew && ledger::IsOutOfReach(guid, slot);
            const bool isOnList = IsOnList(guid, slot);
            Check(isOutOfReach || !isOnList, "left in progress", guid);
            Check(!isOutOfReach || isOnList || !StaysKnown(guid), "within reach again", guid);
        }
    }
    tally::Count(Kind::kRest);
}
