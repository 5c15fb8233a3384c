/* Fault sweep of one notification and of all that the daemon does because of it. */

#include "ChangerServerConnectionLib/ChangerServerNotifications.h"
#include "WholeDaemon.h"
#include "connection/Frames.h"
#include "trayprobed/KnownChangerLists.h"
#include "trayprobed/MediaIdManager.h"

#include <set>
#include <string>
#include <utility>

using testing::IsEmpty;

namespace {

constexpr UInt64 kNewChanger = 0x5000C500ABCD2000;
constexpr UInt64 kRemovedChanger = 0x5000C500ABCD3000;
constexpr UInt16 kSlots = 3;

CFTypeRef g_savedList = nullptr; // the list of the last notification

void SaveAndHandle(CFTypeRef list, ChangerNotificationSubscription* subscription, void* refCon) {
    g_savedList = list;
    ChangerInfoNotificationCallBack(list, subscription, refCon);
}

// The server's changers are kSweptChanger, for which a user requests identification and caching of
// everything, and kNewChanger. A request that the daemon has made is not part of later
// notifications.
class NotificationSweep : KnownChangerLists, public WholeDaemon {
protected:
    NotificationSweep() {
        MakeFileSystem();
        RegisterFileSystem();
        subscription_.changerListCallBack = ChangerListNotificationCallBack;
        subscription_.rootPreferencesCallBack = RootPrefsNotificationCallBack;
        subscription_.changerInfoCallBack = SaveAndHandle;
        Reset();
    }
    ~NotificationSweep() override {
        ForgetChangers();
    }

    void Reset() {
        ForgetChangers();
        AddChanger(kRemovedChanger);
        EXPECT_EQ(SetGlobalShouldIdMedia(0), nullptr);
        open_ = {"5000C500ABCD1000: request identification"};
        for (UInt16 slot = 0; slot < kSlots; ++slot) {
            open_.insert("5000C500ABCD1000: mount disc " + std::to_string(slot));
            open_.insert("5000C500ABCD2000: mount disc " + std::to_string(slot));
        }
        WriteFrame();
    }
    void Deliver() {
        ServerNotificationSocketCallBack(nullptr, kCFSocketDataCallBack, nullptr, frame_.Get(),
                                         &subscription_);
    }
    // Runs the daemon's threads, and removes the requests that they made from the next
    // notification.
    void RunThreads() {
        while (DeferredThreads::Count() > 0)
            DeferredThreads::RunNext();
        for (const std::string& request : server_.TakeRequests())
            open_.erase(request);
        WriteFrame();
    }
    // By design the store never releases a saved list.
    void NoteSavedList() {
        if (g_savedList != nullptr)
            Store::NoteSavedList(static_cast<CFArrayRef>(std::exchange(g_savedList, nullptr)));
    }
    bool AllRequestsAreMade() const {
        return open_.empty();
    }

    // The daemon's state and its pending threads, for comparison.
    std::string State() const {
        std::string state = std::to_string(DeferredThreads::Count()) + " threads\n";
        for (const UInt64 changer : {kSweptChanger, kNewChanger, kRemovedChanger}) {
            CFOwned<CFMutableDictionaryRef> dict;
            VErrLink* err = GetChangerDictForGUID(changer, dict.Out());
            VErrCatch(&err);
            if (dict == nullptr)
                continue;
            state += CFDictionaryContainsKey(dict, CFSTR("FS Cache Timer")) ? "timer " : "";
            CFDictionaryRemoveValue(dict, CFSTR("FS Cache Timer"));
            state += XmlOf(dict);
        }
        SInt32 shouldId = 0;
        EXPECT_EQ(GetGlobalShouldIdMedia(&shouldId), nullptr);
        return state + (shouldId != 0 ? "identifies on insert" : "");
    }

private:
    static void ForgetChangers() {
        for (const UInt64 changer : {kSweptChanger, kNewChanger, kRemovedChanger}) {
            VErrLink* err = UnscheduleChangerFSCacheTimer(changer);
            VErrCatch(&err);
            EXPECT_EQ(RemoveChangerFromList(changer), nullptr);
        }
    }

    bool IsOpen(const std::string& request) const {
        return open_.contains(request);
    }
    CFOwned<CFMutableArrayRef> Media(const std::string& changer, bool requested) const {
        auto media = Array();
        for (UInt16 slot = 0; slot < kSlots; ++slot) {
            const bool isOpen = IsOpen(changer + ": mount disc " + std::to_string(slot));
            CFArrayAppendValue(media,
                               Dictionary({{"Media Kind", 1},
                                           {"Media Mount State", 0},
                                           {"Media Storage Element Index", slot},
                                           {"Media Identify Time", isOpen ? 0 : 1},
                                           {"Media Request Identification", isOpen && requested},
                                           {"Media Partition Info", Array()}}));
        }
        return media;
    }
    CFOwned<CFMutableDictionaryRef> Info(UInt64 changer, const char* name, bool requested) const {
        return Dictionary(
            {{"GUID", static_cast<SInt64>(changer)},
             {"Changer Ready", true},
             {"Changer Request Identification",
              requested && IsOpen("5000C500ABCD1000: request identification")},
             {"Data Transfer Element Count", 2},
             {"Changer Preferences", Dictionary({{"BuildDirCacheOnSchedule", requested},
                                                 {"BuildDirCacheTimeHours", 3},
                                                 {"BuildDirCacheOnIdentify", true}})},
             {"Changer Client Status",
              Dictionary({{"trayprobed", Dictionary({{"Abort Requested", false}})}})},
             {"Changer Media Info", Media(name, requested)}});
    }
    void WriteFrame() {
        frame_ = Bytes(FrameOfList(Dictionary(
            {{"changer list",
              Array({static_cast<SInt64>(kSweptChanger), static_cast<SInt64>(kNewChanger)})},
             {"root preferences", Dictionary({{"IdentifyMediaOnInsert", true}})},
             {"changer info", Array({Info(kSweptChanger, "5000C500ABCD1000", true),
                                     Info(kNewChanger, "5000C500ABCD2000", false)})}})));
    }

    std::set<std::string> open_; // the requests that the daemon has yet to make
    CFOwned<CFDataRef> frame_;
    ChangerNotificationSubscription subscription_ = {};
};

TEST_F(NotificationSweep, NotificationTakesEffectOrLogsAnErrorAndLaterOnesCompleteIt) {
    Deliver();
    NoteSavedList();
    const std::string allBegun = State();
    EXPECT_EQ(DeferredThreads::Count(), 3U); // a build, a disc of each changer
    RunThreads();
    Reset();

    Report(SweepFaults([&] { Deliver(); },
                       [&](const Fault& fault) {
                           NoteSavedList();
                           ExpectSound(fault, State() == allBegun);
                           for (int more = 0; more < 2 * kSlots && !AllRequestsAreMade(); ++more) {
                               RunThreads();
                               Deliver();
                               NoteSavedList();
                           }
                           RunThreads();
                           EXPECT_TRUE(AllRequestsAreMade()) << fault.what;
                           EXPECT_THAT(log_.Take(), IsEmpty()) << fault.what;
                           for (const UInt64 changer : {kSweptChanger, kNewChanger}) {
                               EXPECT_EQ(InProgressCount(changer), 0U) << fault.what;
                               EXPECT_FALSE(IsBuilding(changer)) << fault.what;
                           }
                           EXPECT_FALSE(IsKnown(kRemovedChanger)) << fault.what;
                           Reset();
                       }));
}

} // namespace
