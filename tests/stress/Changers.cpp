#include "Changers.h"

#include "EventCounts.h"
#include "RandomValues.h"
#include "connection/Frames.h"

#include <cstdint>
#include <vector>

using random_values::Below;
using random_values::OneIn;

namespace {

using Mutable = CFOwned<CFMutableDictionaryRef>;

void Set(const Mutable& dictionary, const char* key, const Value& value) {
    CFDictionarySetValue(dictionary, Text(key), value.Get());
}

bool CountIf(bool happens, EventKind kind) {
    if (happens)
        event_counts::Count(kind);
    return happens;
}

Value Medium(UInt16 slot, bool isIdle) {
    constexpr int kMountStates[] = {0, 0, 0, 0x40, 2};
    const bool requested = !isIdle && CountIf(OneIn(6), "identification requests");
    const int identifyTime = isIdle || !OneIn(4) ? 1 : 0;
    event_counts::Count("media infos");
    return Dictionary(
        {{"Media Kind", OneIn(5) ? 0 : 1},
         {"Media Request Identification", requested},
         {"Media Storage Element Index", slot},
         {"Media Identify Time", identifyTime},
         {"Media Mount State", kMountStates[Below(5)]},
         {"Media Partition Info", Array({Dictionary({{"Partition Has File System", OneIn(2)}})})}});
}

// An identified disc without a request.
Value IdentifiedMedium(UInt16 slot, int identifyTime) {
    return Dictionary(
        {{"Media Kind", 1},
         {"Media Request Identification", false},
         {"Media Storage Element Index", slot},
         {"Media Identify Time", identifyTime},
         {"Media Mount State", 0},
         {"Media Partition Info", Array({Dictionary({{"Partition Has File System", true}})})}});
}

// Appends discs in the slots behind kSlots. One of them differs in each list.
void AddFurtherMedia(const CFOwned<CFMutableArrayRef>& media) {
    static const std::vector<Value> unchanging = [] {
        std::vector<Value> made;
        for (UInt16 slot = kSlots; slot < kSlotsOfLongList; ++slot)
            made.push_back(IdentifiedMedium(slot, 1));
        return made;
    }();
    event_counts::Count("media lists of 5,000 slots");
    for (const Value& medium : unchanging)
        CFArrayAppendValue(media, medium.Get());
    const int changing = kSlots + Below(kSlotsOfLongList - kSlots);
    CFArraySetValueAtIndex(media, changing,
                           IdentifiedMedium(static_cast<UInt16>(changing), 1 + Below(1000)).Get());
}

Value Preferences(bool isIdle) {
    const Mutable preferences = Dictionary({{"BuildDirCacheOnIdentify", OneIn(2)}});
    if (OneIn(2))
        Set(preferences, "IdentifyMediaOnInsert", OneIn(2));
    if (!isIdle && CountIf(OneIn(2), "daily builds set")) {
        Set(preferences, "BuildDirCacheOnSchedule", true);
        Set(preferences, "BuildDirCacheTimeHours", Below(24));
        Set(preferences, "BuildDirCacheTimeMinutes", Below(60));
    }
    return preferences;
}

Value ClientStatus(bool isIdle) {
    const Mutable statuses = Dictionary();
    if (!isIdle && OneIn(2)) {
        const bool abort = CountIf(OneIn(3), "abort requests");
        Set(statuses, "trayprobed", Dictionary({{"Abort Requested", abort}}));
    }
    return statuses;
}

Value ChangerInfo(int changer, bool isIdle) {
    const CFOwned media = Array();
    for (UInt16 slot = 0; slot < kSlots; ++slot)
        CFArrayAppendValue(media, Medium(slot, isIdle).Get());
    if (changer == 0 && OneIn(50))
        AddFurtherMedia(media);
    const bool build = !isIdle && CountIf(OneIn(8), "build requests");
    return Dictionary({{"GUID", GuidOf(changer)},
                       {"Changer Ready", isIdle || !OneIn(10)},
                       {"Changer Preferences", Preferences(isIdle)},
                       {"Changer Media Info", media},
                       {"Data Transfer Element Count", kDrives},
                       {"Changer Request Identification", build},
                       {"Changer Client Status", ClientStatus(isIdle)}});
}

} // namespace

void Changers::AddAndRemoveChangers(Phase phase) {
    for (int changer = 0; changer < kChangers; ++changer) {
        bool& isPresent = isPresent_[changer];
        if (phase != Phase::kChurn) {
            isPresent = phase != Phase::kNoChangers;
        } else if (!IsPermanent(GuidOf(changer)) && OneIn(8)) {
            isPresent = !isPresent;
            event_counts::Count(isPresent ? EventKind("changers added again")
                                          : EventKind("changers removed"));
        }
    }
}

Changers::Notification Changers::Compose() {
    const Phase phase = phase_;
    const bool isChurn = phase == Phase::kChurn || phase == Phase::kFaultFreeChurn;
    AddAndRemoveChangers(phase);
    const CFOwned list = Array();
    const CFOwned infos = Array();
    for (int changer = 0; changer < kChangers; ++changer) {
        if (!isPresent_[changer])
            continue;
        CFArrayAppendValue(list, Integer(static_cast<std::int64_t>(GuidOf(changer))));
        CFArrayAppendValue(infos, ChangerInfo(changer, !isChurn).Get());
    }
    const Mutable notification = Dictionary();
    if (CountIf(!isChurn || OneIn(3), "changer lists"))
        Set(notification, "changer list", list);
    if (CountIf(isChurn && OneIn(3), "root preferences"))
        Set(notification, "root preferences", Dictionary({{"IdentifyMediaOnInsert", OneIn(2)}}));
    const bool hasInfo = !isChurn || !OneIn(4);
    if (hasInfo)
        Set(notification, "changer info", infos);
    return {FrameOfList(notification), hasInfo};
}
