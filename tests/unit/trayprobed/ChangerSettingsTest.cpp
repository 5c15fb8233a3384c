/* The settings of an entry of "changer info": daily build, abort, build on request. */

#include "FakeTime.h"
#include "Journal.h"
#include "ManagedChangers.h"
#include "support/Matchers.h"
#include "support/WithoutMemory.h"
#include "trayprobed/MediaIdManager.h"

#include <ctime>
#include <string>
#include <utility>

namespace {

constexpr const char* kSource = "trayprobed/MediaIdManager";

class ChangerSettings : public ManagedChangers {
protected:
    // The daily time that the changer's entry schedules, "hh:mm", or "none".
    std::string ScheduleOf(const CFOwned<CFMutableDictionaryRef>& changer) {
        const std::size_t before = RecordedTimers::All().size();
        EXPECT_THAT(Handle(UpdateChangerSettings, changer), IsEmpty());
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

TEST_F(ChangerSettings, DailyBuildIsScheduledAtThePreferredTimeOrAtOne) {
    const FakeTime time(Utc("2024-01-15 12:00:00"));
    AddChanger(kChanger);
    EXPECT_EQ(ScheduleOf(ChangerWithDailyBuild()), "01:00");
    EXPECT_EQ(ScheduleOf(ChangerWithDailyBuild({{"BuildDirCacheTimeHours", 23}})), "23:00");
    EXPECT_EQ(ScheduleOf(ChangerWithDailyBuild({{"BuildDirCacheTimeMinutes", 5}})), "01:05");
    EXPECT_EQ(ScheduleOf(ChangerWithDailyBuild(
                  {{"BuildDirCacheTimeHours", 14}, {"BuildDirCacheTimeMinutes", 59}})),
              "14:59");
    EXPECT_EQ(ScheduleOf(ChangerWithDailyBuild({{"BuildDirCacheTimeHours", 24}})), "00:00");
}

TEST_F(ChangerSettings, OnlyTheTrueObjectSchedulesTheDailyBuild) {
    AddChanger(kChanger);
    EXPECT_EQ(ScheduleOf(Changer(kChanger)), "none");
    for (const Value& value : {Value(false), Value(1), Value("true")})
        EXPECT_EQ(ScheduleOf(ChangerWithDailyBuild(
                      {{"BuildDirCacheOnSchedule", value}, {"BuildDirCacheTimeHours", 3}})),
                  "none");
}

TEST_F(ChangerSettings, ChangerWithoutScheduleHasItsTimerCancelled) {
    AddChanger(kChanger);
    ScheduleOf(ChangerWithDailyBuild());
    Journal::Take();
    EXPECT_EQ(ScheduleOf(ChangerWithDailyBuild({{"BuildDirCacheOnSchedule", false}})), "none");
    EXPECT_THAT(Journal::Take(), ElementsAre("remove from common", "invalidate"));
    EXPECT_EQ(ScheduleOf(Changer(kChanger)), "none");
    EXPECT_THAT(Journal::Take(), IsEmpty());
}

TEST_F(ChangerSettings, TimerIsCancelledEvenIfThePreferencesAreMissing) {
    AddChanger(kChanger);
    for (const auto& changer :
         {Without(Changer(kChanger), "Changer Preferences"), ChangerThatPrefers("text")}) {
        ScheduleOf(ChangerWithDailyBuild());
        Journal::Take();
        EXPECT_EQ(Handle(UpdateChangerSettings, changer),
                  (Chain{{"fail get changer preferences", "UpdateChangerSettings", kSource}}));
        EXPECT_THAT(Journal::Take(), ElementsAre("remove from common", "invalidate"));
    }
}

TEST_F(ChangerSettings, TimesThatAreNo32BitNumbersFail) {
    AddChanger(kChanger);
    for (const Value& value : {Value("1"), Value(true), Value(SInt64{1} << 40), Value(Real(1.5))}) {
        EXPECT_EQ(Handle(UpdateChangerSettings,
                         ChangerWithDailyBuild({{"BuildDirCacheTimeHours", value}})),
                  (Chain{{"fail get hours as number", "UpdateChangerSettings", kSource}}));
        EXPECT_EQ(Handle(UpdateChangerSettings,
                         ChangerWithDailyBuild({{"BuildDirCacheTimeMinutes", value}})),
                  (Chain{{"fail get minutes as number", "UpdateChangerSettings", kSource}}));
    }
    EXPECT_THAT(RecordedTimers::All(), IsEmpty());
}

TEST_F(ChangerSettings, SettingsOfAnUnknownChangerFail) {
    EXPECT_THAT(MessagesOf(UpdateChangerSettings, Changer(kChanger)),
                ElementsAre("fail find changer in list", "fail GetChangerDictForGUID",
                            "fail UnscheduleChangerFSCacheTimer"));
}

TEST_F(ChangerSettings, FailedSchedulingLogsTheTime) {
    AddChanger(kChanger);
    RecordedTimers::FailNext();
    EXPECT_THAT(
        MessagesOf(UpdateChangerSettings, ChangerWithDailyBuild({{"BuildDirCacheTimeHours", 7},
                                                                 {"BuildDirCacheTimeMinutes", 5}})),
        ElementsAre("fail CFRunLoopTimerCreate",
                    "fail ScheduleChangerFSCacheTimer for 9EDCBA9876543210 with 7:05"));
}

// ---- aborts ----

CFOwned<CFMutableDictionaryRef> WithStatus(const char* client, const Value& status) {
    return Changer(kChanger, {{"Changer Client Status", Dictionary({{client, status}})}});
}

TEST_F(ChangerSettings, AbortFlagFollowsTheStatusOfTheServer) {
    Notify({WithStatus("trayprobed", Dictionary({{"Abort Requested", true}}))});
    EXPECT_TRUE(ShouldAbort(kChanger));
    Notify({WithStatus("trayprobed", Dictionary({{"Abort Requested", false}}))});
    EXPECT_FALSE(ShouldAbort(kChanger));
}

TEST_F(ChangerSettings, AbortsOfOtherClientsClearTheFlag) {
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

TEST_F(ChangerSettings, StatusWithoutAnAbortValueLeavesTheFlag) {
    AddChanger(kChanger);
    EXPECT_EQ(SetChangerShouldAbortOperation(kChanger, 1), nullptr);
    const std::pair<Value, const char*> cases[] = {
        {Dictionary(), "fail get value from dict"},
        {Array(), "fail get value from dict"},
        {Dictionary({{"Abort Requested", 1}}), "bool neither true nor false"}};
    for (const auto& [status, message] : cases)
        EXPECT_THAT(MessagesOf(HandleChangerOperationAbort, WithStatus("trayprobed", status)),
                    ElementsAre(message, "fail CFHDictionaryGetBoolValue"));
    EXPECT_TRUE(ShouldAbort(kChanger));
}

TEST_F(ChangerSettings, AbortWithoutAStatusListOrAKnownChangerFails) {
    for (const auto& changer : {Without(Changer(kChanger), "Changer Client Status"),
                                Changer(kChanger, {{"Changer Client Status", Array()}})})
        EXPECT_EQ(
            Handle(HandleChangerOperationAbort, changer),
            (Chain{{"fail get client status list dict", "HandleChangerOperationAbort", kSource}}));
    EXPECT_THAT(MessagesOf(HandleChangerOperationAbort, Changer(kChanger)),
                ElementsAre("fail find changer in list", "fail GetChangerDictForGUID",
                            "fail SetChangerShouldAbortOperation"));
}

TEST_F(ChangerSettings, WithoutMemoryTheAbortFlagIsUnchanged) {
    AddChanger(kChanger);
    const auto changer = WithStatus("trayprobed", Dictionary({{"Abort Requested", true}}));
    const auto check = [&](const Chain&, bool failed) {
        EXPECT_EQ(ShouldAbort(kChanger), !failed);
    };
    EXPECT_THAT(SweepErrors([&] { return HandleChangerOperationAbort(changer); }, check),
                testing::IsSupersetOf(
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
}

TEST_F(ChangerSettings, BuildRequestOfAChangerWithoutAGuidFails) {
    const auto info =
        Without(Changer(kChanger, {{"Changer Request Identification", true}}), "GUID");
    EXPECT_THAT(MessagesOf(HandleManualChangerFSBuildStart, info),
                ElementsAre("fail get value from dict", "fail get changer GUID"));
    EXPECT_THAT(Journal::Take(), IsEmpty());
}

} // namespace
