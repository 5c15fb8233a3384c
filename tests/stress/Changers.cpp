#include "Changers.h"

#include "Chance.h"
#include "Tally.h"

#include "connection/Frames.h"

#include <cstdint>
#include <vector>

using chance::Below;
using chance::OneIn;

namespace {

using Mutable = Held<CFMutableDictionaryRef>;

void Set(const Mutable& dictionary, const char* key, const Value& value) {
    CFDictionarySetValue(dictionary, Text(key), value.Get());
}

bool Happens(bool does, Kind kind) {
    if (does)
        tally::Count(kind);
    return does;
}

Value Medium(UInt16 slot, bool isCalm) {
    constexpr int kMountStates[] = {0, 0, 0, 0x40, 2};
    const bool requested = !isCalm && Happens(OneIn(6), Kind::kIdentificationRequest);
    const int identifyTime = isCalm || !OneIn(4) ? 1 : 0;
    tally::Count(Kind::kMediaInfo);
    return Dictionary(
        {{"Media Kind", OneIn(5) ? 0 : 1},
         {"Media Request Identification", requested},
         {"Media Storage Element Index", slot},
         {"Media Identify Time", identifyTime},
         {"Media Mount State", kMountStates[Below(5)]},
         {"Media Partition Info", Array({Dictionary({{"Partition Has File System", OneIn(2)}})})}});
}

// An identified disc, of which nothing is wanted.
Value IdentifiedMedium(UInt16 slot, int identifyTime) {
    return Dictionary(
        {{"Media Kind", 1},
         {"Media Request Identification", false},
         {"Media Storage Element Index", slot},
         {"Media Identify Time", identifyTime},
         {"Media Mount State", 0},
         {"Media Partition Info", Array({Dictionary({{"Partition Has File System", true}})})}});
}

// Those beyond the slots that the daemon works on, of which one changes with each list.
void AddFurtherMedia(const Held<CFMutableArrayRef>& media) {
    static const std::vector<Value> unchanging = [] {
        std::vector<Value> made;
        for (UInt16 slot = kSlots; slot < kSlotsOfLongList; ++slot)
            made.push_back(IdentifiedMedium(slot, 1));
        return made;
    }();
    tally::Count(Kind::kLongList);
    for (const Value& medium : unchanging)
        CFArrayAppendValue(media, medium.Get());
    const int changing = kSlots + Below(kSlotsOfLongList - kSlots);
    CFArraySetValueAtIndex(media, changing,
                           IdentifiedMedium(static_cast<UInt16>(changing), 1 + Below(1000)).Get());
}

Value Preferences(bool isCalm) {
    const Mutable preferences = Dictionary({{"BuildDirCacheOnIdentify", OneIn(2)}});
    if (OneIn(2))
        Set(preferences, "IdentifyMediaOnInsert", OneIn(2));
    if (!isCalm && Happens(OneIn(2), Kind::kDailyBuildSet)) {
        Set(preferences, "BuildDirCacheOnSchedule", true);
        Set(preferences, "BuildDirCacheTimeHours", Below(24));
        Set(preferences, "BuildDirCacheTimeMinutes", Below(60));
    }
    return preferences;
}

Value ClientStatus(bool isCalm) {
    const Mutable statuses = Dictionary();
    if (!isCalm && OneIn(2)) {
        const bool abort = Happens(OneIn(3), Kind::kAbortRequest);
        Set(statuses, "trayprobed", Dictionary({{"Abort Requested", abort}}));
    }
    return statuses;
}

Value ChangerInfo(int changer, bool isCalm) {
    const Held media = Array();
    for (UInt16 slot = 0; slot < kSlots; ++slot)
        CFArrayAppendValue(media, Medium(slot, isCalm).Get());
    if (changer == 0 && OneIn(50))
        AddFurtherMedia(media);
    const bool build = !isCalm && Happens(OneIn(8), Kind::kBuildRequest);
    return Dictionary({{"GUID", GuidOf(changer)},
                       {"Changer Ready", isCalm || !OneIn(10)},
                       {"Changer Preferences", Preferences(isCalm)},
                       {"Changer Media Info", media},
                       {"Data Transfer Element Count", kDrives},
                       {"Changer Request Identification", build},
                       {"Changer Client Status", ClientStatus(isCalm)}});
}

} // namespace

void Changers::ComeAndGo(Mood mood) {
    for (int changer = 0; changer < kChangers; ++changer) {
        bool& isThere = isThere_[changer];
        if (mood != Mood::kStorm) {
            isThere = mood != Mood::kNoChangers;
        } else if (!StaysKnown(GuidOf(changer)) && OneIn(8)) {
            isThere = !isThere;
            tally::Count(isThere ? Kind::kChangerAddedAnew : Kind::kChangerRemoved);
        }
    }
}

Changers::Notification Changers::Compose() {
    const Mood mood = mood_;
    const bool isStorm = mood == Mood::kStorm || mood == Mood::kQuietStorm;
    ComeAndGo(mood);
    const Held list = Array();
    const Held infos = Array();
    for (int changer = 0; changer < kChangers; ++changer) {
        if (!isThere_[changer])
            continue;
        CFArrayAppendValue(list, Integer(static_cast<std::int64_t>(GuidOf(changer))));
        CFArrayAppendValue(infos, ChangerInfo(changer, !isStorm).Get());
    }
    const Mutable notification = Dictionary();
    if (Happens(!isStorm || OneIn(3), Kind::kChangerList))
        Set(notification, "changer list", list);
    if (Happens(isStorm && OneIn(3), Kind::kRootPreferences))
        Set(notification, "root preferences", Dictionary({{"IdentifyMediaOnInsert", OneIn(2)}}));
    const bool hasInfo = !isStorm || !OneIn(4);
    if (hasInfo)
        Set(notification, "changer info", infos);
    return {FrameOfList(notification), hasInfo};
}
