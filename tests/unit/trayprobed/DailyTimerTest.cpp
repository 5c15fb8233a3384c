/* The daily build: its timer's first fire date, run loop and context. */

#include "FakeTime.h"
#include "Journal.h"
#include "RecordedTimers.h"
#include "RefusedKey.h"
#include "Store.h"
#include "support/Matchers.h"
#include "support/WithoutMemory.h"
#include "trayprobed/ChangerFSCacheThread.h"

#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <set>
#include <string>

namespace {

bool g_startFails = false;
time_t (*g_onMakeTime)(time_t made) = nullptr;

} // namespace

VErrLink* StartChangerFSCache(UInt64 changerGUID) {
    Journal::Add("build %016llX%s", changerGUID, StateLock::IsHeld() ? " (locked)" : "");
    CFRunLoopStop(CFRunLoopGetCurrent());
    VErrLink* err = nullptr;
    if (g_startFails)
        VErrRaise(VErrThrowWithErrCode(&err, 11, "fail pthread_create"), "test", __func__,
                  __LINE__);
    return err;
}

extern "C" {
time_t __real_mktime(struct tm* when);

time_t __wrap_mktime(struct tm* when) {
    const time_t made = __real_mktime(when);
    return g_onMakeTime != nullptr ? g_onMakeTime(made) : made;
}
}

namespace {

constexpr const char* kSource = "trayprobed/MediaIdState";

void SetZone(const char* zone) {
    setenv("TZ", zone, 1);
}

class DailyTimer : public Store {
protected:
    DailyTimer() : time_(Utc("2024-01-15 12:00:00")) {
        SetZone("UTC");
        AddChanger(kChanger);
        g_onMakeTime = nullptr;
        g_startFails = false;
        Journal::Take();
    }

    static Chain Schedule(SInt32 hour = 10) {
        return TakeChain(ScheduleChangerFSCacheTimer(kChanger, hour, 0));
    }
    static Chain Unschedule() {
        return TakeChain(UnscheduleChangerFSCacheTimer(kChanger));
    }
    // The first fire date of a timer scheduled at that time.
    static time_t FirstFire(time_t now, SInt32 hour, SInt32 minute) {
        FakeTime::Set(now);
        EXPECT_EQ(TakeChain(ScheduleChangerFSCacheTimer(kChanger, hour, minute)), Chain());
        EXPECT_FALSE(RecordedTimers::All().empty());
        const time_t fireTime = RecordedTimers::All().back().FireTime();
        EXPECT_EQ(UnscheduleChangerFSCacheTimer(kChanger), nullptr);
        return fireTime;
    }
    static bool HoldsTimer() {
        return TimerOf(kChanger) != nullptr;
    }
    // Schedules with each allocation failing in turn, which may not leave a timer in the state.
    template<typename Check>
    static std::set<std::string> SweepScheduling(Check check) {
        return SweepErrors([] { return ScheduleChangerFSCacheTimer(kChanger, 10, 0); },
                           [&](const Chain& chain, bool failed) {
                               EXPECT_EQ(HoldsTimer(), !failed);
                               check(chain);
                           });
    }

    RecordedTimers timers_;
    FakeTime time_;
};

// ---- the first fire date ----

struct FirstFireCase {
    const char* zone;
    const char* now; // universal time, as `first`
    SInt32 hour;
    SInt32 minute;
    const char* first;
};

// `now` and `first` are universal; hour and minute are local in the zone at that date.
constexpr FirstFireCase kFirstFires[] = {
    // one second before, exactly then, one second after (Berlin is an hour ahead in winter)
    {"Europe/Berlin", "2024-01-15 08:59:59", 10, 0, "2024-01-15 09:00:00"},
    {"Europe/Berlin", "2024-01-15 09:00:00", 10, 0, "2024-01-16 09:00:00"},
    {"Europe/Berlin", "2024-01-15 09:00:01", 10, 0, "2024-01-16 09:00:00"},
    {"Europe/Berlin", "2024-01-15 09:59:59", 10, 59, "2024-01-16 09:59:00"},
    // ends of months and years, and the leap day
    {"Europe/Berlin", "2024-01-31 20:00:00", 10, 0, "2024-02-01 09:00:00"},
    {"Europe/Berlin", "2024-04-30 20:00:00", 10, 0, "2024-05-01 08:00:00"},
    {"Europe/Berlin", "2023-12-31 20:00:00", 1, 0, "2024-01-01 00:00:00"},
    {"Europe/Berlin", "2023-12-31 23:30:00", 1, 0, "2024-01-01 00:00:00"},
    {"Europe/Berlin", "2024-02-28 20:00:00", 10, 0, "2024-02-29 09:00:00"},
    {"Europe/Berlin", "2024-02-29 20:00:00", 10, 0, "2024-03-01 09:00:00"},
    {"Europe/Berlin", "2023-02-28 20:00:00", 10, 0, "2023-03-01 09:00:00"},
    // the offset of the next day counts: summer time begins on 31 March, ends on 27 October
    {"Europe/Berlin", "2024-03-30 11:00:00", 10, 0, "2024-03-31 08:00:00"},
    {"Europe/Berlin", "2024-03-30 23:30:00", 10, 0, "2024-03-31 08:00:00"},
    {"Europe/Berlin", "2024-10-26 10:00:00", 10, 0, "2024-10-27 09:00:00"},
    {"Europe/Berlin", "2024-10-26 23:30:00", 10, 0, "2024-10-27 09:00:00"},
    // 02:30 does not exist today; the next day has it again
    {"Europe/Berlin", "2024-03-31 06:00:00", 2, 30, "2024-04-01 00:30:00"},
    {"America/New_York", "2024-03-09 17:00:00", 11, 0, "2024-03-10 15:00:00"},
    {"America/New_York", "2024-11-02 16:00:00", 11, 0, "2024-11-03 16:00:00"},
    {"America/New_York", "2024-12-31 23:00:00", 19, 30, "2025-01-01 00:30:00"},
    // half an hour of summer time, from 6 October to 7 April
    {"Australia/Lord_Howe", "2024-10-05 01:30:00", 11, 0, "2024-10-06 00:00:00"},
    {"Australia/Lord_Howe", "2024-04-06 01:00:00", 11, 0, "2024-04-07 00:30:00"},
    {"Asia/Kathmandu", "2024-05-31 20:00:00", 1, 45, "2024-06-01 20:00:00"},
    {"Asia/Kathmandu", "2024-05-31 20:00:00", 1, 46, "2024-05-31 20:01:00"},
    {"UTC", "2024-02-28 12:00:00", 0, 0, "2024-02-29 00:00:00"},
    {"UTC", "2024-02-28 00:00:00", 23, 59, "2024-02-28 23:59:00"},
    // out of range: normalised, and only then compared with now
    {"UTC", "2024-01-15 12:00:00", 25, 0, "2024-01-16 01:00:00"},
    {"UTC", "2024-01-15 12:00:00", 11, 90, "2024-01-15 12:30:00"},
    {"UTC", "2024-01-15 12:00:00", 13, -90, "2024-01-16 11:30:00"},
    {"UTC", "2024-01-15 12:00:00", -1, 0, "2024-01-15 23:00:00"},
    {"UTC", "2024-01-15 12:00:00", -100, 0,
     "2024-01-11 20:00:00"}, // still in the past: due at once
};

TEST_F(DailyTimer, FirstFireDateIsTheNextSuchTime) {
    for (const FirstFireCase& each : kFirstFires) {
        SetZone(each.zone);
        EXPECT_EQ(FirstFire(Utc(each.now), each.hour, each.minute), Utc(each.first))
            << each.zone << ", at " << each.now << ", for " << each.hour << ":" << each.minute;
    }
}

// mktime() may choose either offset; both are in that night.
TEST_F(DailyTimer, TimeSkippedOrRepeatedByTheZoneFiresThatNight) {
    SetZone("Europe/Berlin");
    EXPECT_THAT(FirstFire(Utc("2024-03-30 23:30:00"), 2, 30),
                testing::AnyOf(Utc("2024-03-31 00:30:00"), Utc("2024-03-31 01:30:00")));
    EXPECT_THAT(FirstFire(Utc("2024-10-26 20:00:00"), 2, 30),
                testing::AnyOf(Utc("2024-10-27 00:30:00"), Utc("2024-10-27 01:30:00")));
}

TEST_F(DailyTimer, ExtremeHoursAndMinutesGiveDistantTimes) {
    const time_t now = Utc("2024-01-15 12:00:00");
    EXPECT_LT(FirstFire(now, -2000000000, 0), now);
    EXPECT_LT(FirstFire(now, INT32_MIN, INT32_MIN), now);
    EXPECT_GT(FirstFire(now, INT32_MAX, INT32_MAX), now);
}

TEST_F(DailyTimer, ChangedZoneTakesEffectAtTheNextScheduling) {
    const time_t now = Utc("2024-01-15 12:00:00");
    SetZone("Asia/Kathmandu");
    EXPECT_EQ(FirstFire(now, 18, 45), Utc("2024-01-15 13:00:00"));
    SetZone("America/New_York");
    EXPECT_EQ(FirstFire(now, 18, 45), Utc("2024-01-15 23:45:00"));
}

TEST_F(DailyTimer, TimeThatCannotBeConvertedIsAnError) {
    g_onMakeTime = [](time_t) { return time_t{-1}; };
    EXPECT_EQ(Schedule(), (Chain{{"fail construct buildTime for today",
                                  "ScheduleChangerFSCacheTimer", kSource}}));
    g_onMakeTime = [](time_t made) { return made > Utc("2024-01-16 00:00:00") ? -1 : made; };
    EXPECT_EQ(Schedule(), (Chain{{"fail construct buildTime for tomorrow",
                                  "ScheduleChangerFSCacheTimer", kSource}}));
    EXPECT_THAT(RecordedTimers::All(), IsEmpty());
    EXPECT_FALSE(HoldsTimer());
}

// ---- the timer ----

TEST_F(DailyTimer, TimerRepeatsDailyAndCarriesTheGuid) {
    EXPECT_EQ(Schedule(), Chain());
    ASSERT_EQ(RecordedTimers::All().size(), 1U);
    const RecordedTimer& timer = RecordedTimers::All().front();
    EXPECT_EQ(timer.interval, 86400.0);
    EXPECT_EQ(timer.flags, 0U);
    EXPECT_EQ(timer.order, 0);
    EXPECT_EQ(timer.callout, ChangerFSCache);
    EXPECT_EQ(timer.context.version, 0);
    EXPECT_EQ(timer.context.retain, nullptr);
    EXPECT_EQ(timer.context.release, nullptr);
    EXPECT_EQ(timer.context.copyDescription, nullptr);
    SInt64 guid = 0;
    EXPECT_TRUE(
        CFNumberGetValue(static_cast<CFNumberRef>(timer.context.info), kCFNumberSInt64Type, &guid));
    EXPECT_EQ(static_cast<UInt64>(guid), kChanger);
}

TEST_F(DailyTimer, TimerIsAddedToTheDefaultModeAndToTheState) {
    EXPECT_EQ(Schedule(), Chain());
    EXPECT_THAT(Journal::Take(), ElementsAre("add to default"));
    EXPECT_EQ(TimerOf(kChanger), RecordedTimers::All().front().timer);
}

// Only the loop and the state own the timer.
TEST_F(DailyTimer, UnschedulingReleasesEveryReference) {
    EXPECT_EQ(Schedule(), Chain());
    const auto* timer = reinterpret_cast<const cf::Object*>(RecordedTimers::All().front().timer);
    EXPECT_EQ(timer->references, 3); // including RecordedTimers
    EXPECT_EQ(Unschedule(), Chain());
    EXPECT_EQ(timer->references, 1);
}

TEST_F(DailyTimer, TimerIsRemovedFromTheCommonModesAndInvalidated) {
    EXPECT_EQ(Schedule(), Chain());
    Journal::Take();
    EXPECT_EQ(Unschedule(), Chain());
    EXPECT_THAT(Journal::Take(), ElementsAre("remove from common", "invalidate"));
    EXPECT_FALSE(HoldsTimer());
    CFRunLoopRun(); // returns because no timer is left
}

TEST_F(DailyTimer, UnschedulingWithoutATimerChangesNothing) {
    EXPECT_EQ(Unschedule(), Chain());
    EXPECT_THAT(Journal::Take(), IsEmpty());
    EXPECT_TRUE(IsKnown(kChanger));
}

TEST_F(DailyTimer, UnschedulingAnUnknownChangerFails) {
    EXPECT_EQ(TakeChain(UnscheduleChangerFSCacheTimer(kOtherChanger)),
              NotFoundThen("UnscheduleChangerFSCacheTimer"));
}

// The timer of an unknown changer stays in the loop.
TEST_F(DailyTimer, SchedulingAnUnknownChangerFailsAfterAddingTheTimer) {
    EXPECT_EQ(TakeChain(ScheduleChangerFSCacheTimer(kOtherChanger, 10, 0)),
              NotFoundThen("ScheduleChangerFSCacheTimer"));
    EXPECT_THAT(Journal::Take(), ElementsAre("add to default"));
}

TEST_F(DailyTimer, TimerThatCannotBeCreatedIsAnError) {
    RecordedTimers::FailNext();
    EXPECT_EQ(Schedule(),
              (Chain{{"fail CFRunLoopTimerCreate", "ScheduleChangerFSCacheTimer", kSource}}));
    EXPECT_THAT(Journal::Take(), IsEmpty());
    EXPECT_FALSE(HoldsTimer());
}

// Not the first scheduling of the process: the run loop and the table of numbers exist already.
TEST_F(DailyTimer, WithoutMemorySchedulingFails) {
    ASSERT_EQ(Schedule(), Chain());
    ASSERT_EQ(Unschedule(), Chain());
    EXPECT_THAT(
        SweepScheduling([](const Chain&) {}),
        testing::IsSupersetOf({"fail create changerGUIDNum", "fail CFRunLoopTimerCreate",
                               "fail GetChangerDictForGUID", "fail SetChangerDictForGUID"}));
}

class FirstScheduling : public DailyTimer {
public:
    void TestBody() override {
        CFRunLoopGetCurrent();
        int failures = 0;
        SweepScheduling([&](const Chain& chain) {
            failures += !chain.empty() && chain.back().message == "fail create changerGUIDNum";
        });
        EXPECT_GE(failures, 3);
    }
};

// In a new process, because the table of timers' numbers is created once per process. The number,
// the table and its entry allocate.
TEST(DailyTimerDeathTest, WithoutMemoryTheFirstSchedulingFails) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto schedule = [] {
        FirstScheduling().TestBody();
        std::exit(testing::Test::HasFailure() ? 1 : 0);
    };
    EXPECT_EXIT(schedule(), testing::ExitedWithCode(0), "");
}

// The timer is in the loop by then, and without an entry in the state it stays there.
TEST_F(DailyTimer, WithoutMemoryInTheStateSchedulingFailsAfterAddingTheTimer) {
    const RefusedKey refused("FS Cache Timer");
    EXPECT_EQ(Schedule(),
              (Chain{{"fail SetChangerDictForGUID", "ScheduleChangerFSCacheTimer", kSource}}));
    EXPECT_THAT(Journal::Take(), ElementsAre("add to default"));
    EXPECT_FALSE(HoldsTimer());
}

TEST_F(DailyTimer, WithoutMemoryUnschedulingFails) {
    ASSERT_EQ(Schedule(), Chain());
    const auto check = [](const Chain&, bool failed) { EXPECT_EQ(HoldsTimer(), failed); };
    EXPECT_THAT(SweepErrors([] { return UnscheduleChangerFSCacheTimer(kChanger); }, check),
                ElementsAre("fail GetChangerDictForGUID", "fail SetChangerDictForGUID"));
}

// ---- firing ----

// Hour -100 is days ago, so the timer is due at once.
constexpr SInt32 kDueHour = -100;

TEST_F(DailyTimer, DueTimerStartsABuildWithoutTheStateLock) {
    EXPECT_EQ(Schedule(kDueHour), Chain());
    Journal::Take();
    CFRunLoopRun();
    EXPECT_THAT(Journal::Take(), ElementsAre("build 9EDCBA9876543210"));
    EXPECT_TRUE(HoldsTimer());
}

TEST_F(DailyTimer, SchedulingTwiceLeavesBothTimersFiring) {
    EXPECT_EQ(Schedule(kDueHour), Chain());
    EXPECT_EQ(Schedule(kDueHour), Chain());
    EXPECT_THAT(Journal::Take(), ElementsAre("add to default", "add to default"));
    EXPECT_EQ(TimerOf(kChanger), RecordedTimers::All().back().timer);
    CFRunLoopRun();
    CFRunLoopRun();
    EXPECT_THAT(Journal::Take(), ElementsAre("build 9EDCBA9876543210", "build 9EDCBA9876543210"));
}

// Only the run loop still owns the timer.
TEST_F(DailyTimer, TimerFiresAfterTheEndOfTheStore) {
    EXPECT_EQ(Schedule(kDueHour), Chain());
    EXPECT_EQ(RemoveChangerFromList(kChanger), nullptr);
    TermMediaIdState();
    Journal::Take();
    CFRunLoopRun();
    EXPECT_THAT(Journal::Take(), ElementsAre("build 9EDCBA9876543210"));
}

// Removing a changer does not cancel its timer; added again, the changer gets a second timer.
TEST_F(DailyTimer, TimerOfARemovedChangerStillFires) {
    EXPECT_EQ(Schedule(kDueHour), Chain());
    EXPECT_EQ(RemoveChangerFromList(kChanger), nullptr);
    AddChanger(kChanger);
    EXPECT_FALSE(HoldsTimer());
    EXPECT_EQ(Unschedule(), Chain());
    EXPECT_EQ(Schedule(kDueHour), Chain());
    Journal::Take();
    CFRunLoopRun();
    CFRunLoopRun();
    EXPECT_THAT(Journal::Take(), ElementsAre("build 9EDCBA9876543210", "build 9EDCBA9876543210"));
}

TEST_F(DailyTimer, TimersOfAChangerShareOneNumber) {
    for (int round = 0; round < 3; ++round) {
        EXPECT_EQ(Schedule(), Chain());
        EXPECT_EQ(Unschedule(), Chain());
        EXPECT_EQ(RecordedTimers::All().back().context.info,
                  RecordedTimers::All().front().context.info);
    }
}

// The daemon's table owns two references for ever, as key and as value; timers own none.
TEST_F(DailyTimer, TableKeepsTwoReferencesToTheNumberOfATimer) {
    EXPECT_EQ(Schedule(), Chain());
    const CFTypeRef number = RecordedTimers::All().front().context.info;
    const std::int32_t references = NumberReferences::CountReferences(number);
    EXPECT_GE(references, 2);
    for (int round = 0; round < 5; ++round) {
        EXPECT_EQ(Unschedule(), Chain());
        EXPECT_EQ(NumberReferences::CountReferences(number), references);
        EXPECT_EQ(Schedule(), Chain());
        EXPECT_EQ(NumberReferences::CountReferences(number), references);
    }
}

TEST_F(DailyTimer, FailedStartIsLogged) {
    g_startFails = true;
    ChangerFSCache(nullptr, const_cast<__CFNumber*>(Integer(7).Get()));
    EXPECT_THAT(log_.TakeWithoutLineNumbers(),
                ElementsAre("test:123, StartChangerFSCache: fail pthread_create (err = 11)",
                            "MediaIdState:123, ChangerFSCache: fail StartChangerFSCache on "
                            "0000000000000007 (err = 11)"));
}

TEST_F(DailyTimer, InfoThatIsNoNumberIsLogged) {
    ChangerFSCache(nullptr, const_cast<__CFString*>(Text("7").Get()));
    EXPECT_THAT(log_.TakeWithoutLineNumbers(),
                ElementsAre("MediaIdState:123, ChangerFSCache: fail get info as changer GUID"));
    EXPECT_THAT(Journal::Take(), IsEmpty());
}

} // namespace
