/* The settings of an entry of "changer info": daily build, abort, build on request. */

#include "AllocationFaults.h"
#include "FakeTime.h"
#include "Journal.h"
#include "ManagedChangers.h"
#include "support/Matchers.h"
#include "trayprobed/MediaIdManager.h"

#include <ctime>
#include <set>
#include <string>

namespace {

constexpr const char* kSource = "trayprobed/MediaIdManager";

class ChangerSettings : public ManagedChangers {
protected:
    // The handler fails for a changer that is unknown or has no GUID.
    template<typename Handler>
    void ExpectNeedsAKnownChanger(Handler handler, const char* newest) {
        EXPECT_THAT(MessagesOf(handler, Changer(kChanger)),
                    ElementsAre("fail find changer in list", "fail GetChangerDictForGUID", newest));
        EXPECT_THAT(MessagesOf(handler, Without(Changer(kChanger), "GUID")),
                    ElementsAre("fail get value from dict", "fail get changer GUID"));
    }
    // The daily time that is scheduled, "hh:mm", or "none".
    std::string ScheduleOf(const CFOwned<CFMutableDictionaryRef>& preferences) {
        const std::size_t before = RecordedTimers::All().size();
        EXPECT_THAT(Handle(UpdateChangerSettings,
                           Changer(kChanger, {{"Changer Preferences", preferences}})),
                    IsEmpty());
        if (RecordedTimers::All().size() == before)
            return "none";
        char text[16];
        struct tm when = {};
        const time_t fireTime = RecordedTimers::All().back().FireTime();
        gmtime_r(&fireTime, &when);
        strftime(text, sizeof text, "%H:%M", &when);
        return text;
    }
};

// ---- the settings ----

TEST_F(ChangerSettings, TheDailyBuildIsScheduledAtOneByDefault) {
    const FakeTime time(Utc("2024-01-15 12:00:00"));
    AddChanger(kChanger);
    EXPECT_EQ(ScheduleOf(Dictionary({{"BuildDirCacheOnSchedule", true}})), "01:00");
    EXPECT_EQ(
        ScheduleOf(Dictionary({{"BuildDirCacheOnSchedule", true}, {"BuildDirCacheTimeHours", 23}})),
        "23:00");
    EXPECT_EQ(ScheduleOf(
                  Dictionary({{"BuildDirCacheOnSchedule", true}, {"BuildDirCacheTimeMinutes", 5}})),
              "01:05");
    EXPECT_EQ(ScheduleOf(Dictionary({{"BuildDirCacheOnSchedule", true},
                                     {"BuildDirCacheTimeHours", 14},
                                     {"BuildDirCacheTimeMinutes", 59}})),
              "14:59");
    EXPECT_EQ(
        ScheduleOf(Dictionary({{"BuildDirCacheOnSchedule", true}, {"BuildDirCacheTimeHours", 24}})),
        "00:00");
}

TEST_F(ChangerSettings, OnlyTheTrueObjectSchedulesTheDailyBuild) {
    AddChanger(kChanger);
    EXPECT_EQ(ScheduleOf(Dictionary()), "none");
    for (const Value& value : {Value(false), Value(1), Value("true")})
        EXPECT_EQ(ScheduleOf(Dictionary(
                      {{"BuildDirCacheOnSchedule", value}, {"BuildDirCacheTimeHours", 3}})),
                  "none");
}

TEST_F(ChangerSettings, WithoutAScheduleTheTimerIsOnlyCancelled) {
    AddChanger(kChanger);
    ScheduleOf(Dictionary({{"BuildDirCacheOnSchedule", true}}));
    Journal::Take();
    EXPECT_EQ(ScheduleOf(Dictionary({{"BuildDirCacheOnSchedule", false}})), "none");
    EXPECT_THAT(Journal::Take(), ElementsAre("remove from common", "invalidate"));
    EXPECT_EQ(ScheduleOf(Dictionary()), "none");
    EXPECT_THAT(Journal::Take(), IsEmpty());
}

TEST_F(ChangerSettings, TheTimerIsCancelledBeforeAnythingElseCanFail) {
    AddChanger(kChanger);
    for (const auto& changer : {Without(Changer(kChanger), "Changer Preferences"),
                                Changer(kChanger, {{"Changer Preferences", "text"}})}) {
        ScheduleOf(Dictionary({{"BuildDirCacheOnSchedule", true}}));
        Journal::Take();
        EXPECT_EQ(Handle(UpdateChangerSettings, changer),
                  (Chain{{"fail get changer preferences", "UpdateChangerSettings", kSource}}));
        EXPECT_THAT(Journal::Take(), ElementsAre("remove from common", "invalidate"));
    }
}

TEST_F(ChangerSettings, TimesThatAreNo32BitNumbersFail) {
    AddChanger(kChanger);
    const double half = 1.5;
    const CFOwned<CFNumberRef> real(CFNumberCreate(nullptr, kCFNumberFloat64Type, &half));
    for (const Value& value : {Value("1"), Value(true), Value(SInt64{1} << 40), Value(real)}) {
        const auto hours =
            Dictionary({{"BuildDirCacheOnSchedule", true}, {"BuildDirCacheTimeHours", value}});
        EXPECT_EQ(
            Handle(UpdateChangerSettings, Changer(kChanger, {{"Changer Preferences", hours}})),
            (Chain{{"fail get hours as number", "UpdateChangerSettings", kSource}}));
        const auto minutes =
            Dictionary({{"BuildDirCacheOnSchedule", true}, {"BuildDirCacheTimeMinutes", value}});
        EXPECT_EQ(
            Handle(UpdateChangerSettings, Changer(kChanger, {{"Changer Preferences", minutes}})),
            (Chain{{"fail get minutes as number", "UpdateChangerSettings", kSource}}));
    }
    EXPECT_THAT(RecordedTimers::All(), IsEmpty());
}

TEST_F(ChangerSettings, SettingsOfAnUnknownOrNamelessChangerFail) {
    ExpectNeedsAKnownChanger(UpdateChangerSettings, "fail UnscheduleChangerFSCacheTimer");
}

TEST_F(ChangerSettings, AFailedSchedulingLogsTheTime) {
    AddChanger(kChanger);
    RecordedTimers::FailNext();
    const auto preferences = Dictionary({{"BuildDirCacheOnSchedule", true},
                                         {"BuildDirCacheTimeHours", 7},
                                         {"BuildDirCacheTimeMinutes", 5}});
    EXPECT_THAT(MessagesOf(UpdateChangerSettings,
                           Changer(kChanger, {{"Changer Preferences", preferences}})),
                ElementsAre("fail CFRunLoopTimerCreate",
                            "fail ScheduleChangerFSCacheTimer for 9EDCBA9876543210 with 7:05"));
}

// ---- aborts ----

CFOwned<CFMutableDictionaryRef> WithStatus(const char* client,
                                           const CFOwned<CFMutableDictionaryRef>& status) {
    return Changer(kChanger, {{"Changer Client Status", Dictionary({{client, status}})}});
}

TEST_F(ChangerSettings, AnAbortLastsAsLongAsTheServerReportsIt) {
    Notify({WithStatus("trayprobed", Dictionary({{"Abort Requested", true}}))});
    EXPECT_TRUE(ShouldAbort(kChanger));
    Notify({WithStatus("trayprobed", Dictionary({{"Abort Requested", false}}))});
    EXPECT_FALSE(ShouldAbort(kChanger));
}

TEST_F(ChangerSettings, AbortsOfOtherClientsAreIgnored) {
    AddChanger(kChanger);
    const auto abort = Dictionary({{"Abort Requested", true}});
    for (const auto& changer :
         {WithStatus("Trayprobed", abort), WithStatus("Media Identification", Dictionary()),
          Changer(kChanger)}) {
        EXPECT_EQ(SetChangerShouldAbortOperation(kChanger, 1), nullptr);
        EXPECT_THAT(Handle(HandleChangerOperationAbort, changer), IsEmpty());
        EXPECT_FALSE(ShouldAbort(kChanger));
    }
}

TEST_F(ChangerSettings, AStatusWithoutAnAbortValueLeavesTheFlag) {
    AddChanger(kChanger);
    EXPECT_EQ(SetChangerShouldAbortOperation(kChanger, 1), nullptr);
    EXPECT_THAT(MessagesOf(HandleChangerOperationAbort, WithStatus("trayprobed", Dictionary())),
                ElementsAre("fail get value from dict", "fail CFHDictionaryGetBoolValue"));
    EXPECT_THAT(MessagesOf(HandleChangerOperationAbort,
                           WithStatus("trayprobed", Dictionary({{"Abort Requested", 1}}))),
                ElementsAre("bool neither true nor false", "fail CFHDictionaryGetBoolValue"));
    EXPECT_THAT(MessagesOf(HandleChangerOperationAbort,
                           Changer(kChanger, {{"Changer Client Status",
                                               Dictionary({{"trayprobed", Array()}})}})),
                ElementsAre("fail get value from dict", "fail CFHDictionaryGetBoolValue"));
    EXPECT_TRUE(ShouldAbort(kChanger));
}

TEST_F(ChangerSettings, AbortsNeedAStatusListAndAKnownChanger) {
    for (const auto& changer : {Without(Changer(kChanger), "Changer Client Status"),
                                Changer(kChanger, {{"Changer Client Status", Array()}})})
        EXPECT_EQ(
            Handle(HandleChangerOperationAbort, changer),
            (Chain{{"fail get client status list dict", "HandleChangerOperationAbort", kSource}}));
    ExpectNeedsAKnownChanger(HandleChangerOperationAbort, "fail SetChangerShouldAbortOperation");
}

TEST_F(ChangerSettings, WithoutMemoryTheAbortFlagIsUnchanged) {
    AddChanger(kChanger);
    const auto changer = WithStatus("trayprobed", Dictionary({{"Abort Requested", true}}));
    std::set<std::string> newest;
    VErrLink* err = nullptr;
    SweepAllocationFaults([&](std::size_t) { err = HandleChangerOperationAbort(changer); },
                          [&](std::size_t, bool happened) {
                              EXPECT_EQ(err != nullptr, happened);
                              EXPECT_EQ(ShouldAbort(kChanger), !happened);
                              const Chain chain = TakeChain(err);
                              if (!chain.empty())
                                  newest.insert(chain.back().message);
                          });
    EXPECT_THAT(newest, testing::IsSupersetOf(
                            {"fail alloc client name str", "fail SetChangerShouldAbortOperation"}));
}

// ---- builds on request ----

TEST_F(ChangerSettings, OnlyTheTrueObjectRequestsABuild) {
    for (const Value& value : {Value(false), Value(1), Value("true")})
        EXPECT_THAT(Handle(HandleManualChangerFSBuildStart,
                           Changer(kChanger, {{"Changer Request Identification", value}})),
                    IsEmpty());
    EXPECT_THAT(Handle(HandleManualChangerFSBuildStart, Changer(kChanger)), IsEmpty());
    EXPECT_THAT(Journal::Take(), IsEmpty());
    EXPECT_THAT(Handle(HandleManualChangerFSBuildStart,
                       Changer(kChanger, {{"Changer Request Identification", true}})),
                IsEmpty());
    EXPECT_THAT(Journal::Take(), ElementsAre("build 9EDCBA9876543210"));
    EXPECT_THAT(MessagesOf(HandleManualChangerFSBuildStart, Without(Changer(kChanger), "GUID")),
                ElementsAre("fail get value from dict", "fail get changer GUID"));
}

TEST_F(ChangerSettings, ARequestOfAChangerWithoutAGuidStartsNoBuild) {
    const auto info =
        Without(Changer(kChanger, {{"Changer Request Identification", true}}), "GUID");
    EXPECT_THAT(MessagesOf(HandleManualChangerFSBuildStart, info),
                ElementsAre("fail get value from dict", "fail get changer GUID"));
    EXPECT_THAT(Journal::Take(), IsEmpty());
}

} // namespace
