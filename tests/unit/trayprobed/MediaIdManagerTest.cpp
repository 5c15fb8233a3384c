#include "trayprobed/MediaIdManager.h"

#include "Journal.h"
#include "ManagedChangers.h"
#include "NullElement.h"
#include "support/Matchers.h"
#include "support/WithoutMemory.h"

#include <cerrno>
#include <cstddef>
#include <initializer_list>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace {

constexpr const char* kSource = "trayprobed/MediaIdManager";
constexpr const char* kReset = "reset 9EDCBA9876543210";
constexpr const char* kBuild = "build 9EDCBA9876543210";
constexpr const char* kFakeLine = ": fail on purpose (err = 5)";

class MediaIdManager : public ManagedChangers {
protected:
    static void NotifyList(std::initializer_list<Value> changers) {
        ChangerListNotificationCallBack(Array(changers).Get(), nullptr, nullptr);
    }
    static void NotifyPreferences(const CFOwned<CFMutableDictionaryRef>& preferences) {
        RootPrefsNotificationCallBack(preferences.Get(), nullptr, nullptr);
    }
    static bool IdentifiesOnInsert() {
        return ReadFlag(GetGlobalShouldIdMedia);
    }
    // The function and message of the last line.
    std::string LastLogged() {
        return WithoutFile(log_.TakeWithoutLineNumbers());
    }
    // The same if no other line was logged.
    std::string OnlyLogged() {
        const std::vector<std::string> lines = log_.TakeWithoutLineNumbers();
        EXPECT_THAT(lines, SizeIs(1));
        return WithoutFile(lines);
    }
    static std::string WithoutFile(const std::vector<std::string>& lines) {
        const std::string file = "MediaIdManager:123, ";
        EXPECT_TRUE(!lines.empty() && lines.back().starts_with(file));
        return lines.empty() ? "" : lines.back().substr(file.size());
    }
    void ExpectLockFailureIn(const std::string& callBack) {
        EXPECT_THAT(
            log_.TakeWithoutLineNumbers(),
            ElementsAre("MediaIdState:123, LockMediaIdState: fail pthread_mutex_lock (err = 22)",
                        "MediaIdManager:123, " + callBack + ": fail LockMediaIdState (err = 22)"));
    }
};

// ---- the subscription ----

TEST_F(MediaIdManager, InitSubscribesAndTermUnsubscribesOnce) {
    TermMediaIdManager();
    EXPECT_THAT(g_fakes.unsubscribed, IsEmpty());
    EXPECT_EQ(InitMediaIdManager(), nullptr);
    EXPECT_THAT(g_fakes.callBacks,
                ElementsAre(ChangerListNotificationCallBack, RootPrefsNotificationCallBack,
                            ChangerInfoNotificationCallBack));
    TermMediaIdManager();
    TermMediaIdManager();
    EXPECT_EQ(g_fakes.unsubscribed.size(), 1U);
}

TEST_F(MediaIdManager, FailedSubscriptionIsNotUndone) {
    g_fakes.failing = "SubscribeToChangerNotifications";
    EXPECT_EQ(
        TakeChain(InitMediaIdManager()).back(),
        (RaisedLink{"fail SubscribeToChangerNotifications", "InitMediaIdManager", kSource, 5}));
    TermMediaIdManager();
    EXPECT_THAT(g_fakes.unsubscribed, IsEmpty());
}

TEST_F(MediaIdManager, FailedUnsubscriptionIsLoggedAndRepeatedByTheNextTerm) {
    ASSERT_EQ(InitMediaIdManager(), nullptr);
    g_fakes.failing = "UnsubscribeFromChangerNotifications";
    TermMediaIdManager();
    EXPECT_THAT(log_.TakeWithoutLineNumbers(),
                ElementsAre(HasSubstr(kFakeLine), "MediaIdManager:123, TermMediaIdManager: fail "
                                                  "UnsubscribeFromChangerNotifications (err = 5)"));
    g_fakes.failing.clear();
    TermMediaIdManager();
    EXPECT_EQ(g_fakes.unsubscribed.size(), 2U);
}

// ---- "changer info" ----

TEST_F(MediaIdManager, ChangersThatAreNotReadyAreSavedAndNotHandled) {
    EXPECT_THAT(Notify({Changer(kChanger, {{"Changer Ready", false},
                                           {"Changer Request Identification", true}}),
                        Without(Changer(kOtherChanger, {{"Changer Ready", false}}), "GUID")}),
                IsEmpty());
    EXPECT_FALSE(IsKnown(kChanger));
    CFDictionaryRef info = nullptr;
    EXPECT_EQ(GetChangerInfoDict(kChanger, &info), nullptr);
    EXPECT_NE(info, nullptr);
}

TEST_F(MediaIdManager, ChangerBehindOneThatIsNotReadyIsHandled) {
    EXPECT_THAT(Notify({Changer(kOtherChanger, {{"Changer Ready", false}}), Changer(kChanger)}),
                ElementsAre(kReset));
    EXPECT_FALSE(IsKnown(kOtherChanger));
    EXPECT_TRUE(IsKnown(kChanger));
}

TEST_F(MediaIdManager, ListIsSavedBeforeAnyChangerIsHandled) {
    int resets = 0;
    g_fakes.onReset = [&resets] {
        CFDictionaryRef info = nullptr;
        EXPECT_EQ(TakeChain(GetChangerInfoDict(kOtherChanger, &info)), Chain());
        ++resets;
    };
    Notify({Changer(kChanger), Changer(kOtherChanger, {{"Changer Ready", false}})});
    EXPECT_EQ(resets, 1);
}

// The flag of the last notification must not start a build that a user has aborted since.
TEST_F(MediaIdManager, AbortFlagIsSetBeforeABuildIsStarted) {
    const auto status = Dictionary({{"trayprobed", Dictionary({{"Abort Requested", true}})}});
    EXPECT_THAT(Notify({Changer(kChanger, {{"Changer Client Status", status},
                                           {"Changer Request Identification", true}})}),
                ElementsAre(kReset, std::string(kBuild) + " to be aborted"));
    EXPECT_THAT(Notify({Changer(kChanger, {{"Changer Request Identification", true}})}),
                ElementsAre(kBuild));
}

TEST_F(MediaIdManager, NullEntryEndsThePassAndItsIndexIsLogged) {
    const NullElement null(1);
    Notify({Changer(kChanger), Changer(kOtherChanger)});
    EXPECT_EQ(OnlyLogged(),
              "ChangerInfoNotificationCallBack: fail get changer info dict at index 1");
    EXPECT_TRUE(IsKnown(kChanger));
    EXPECT_FALSE(IsKnown(kOtherChanger));
}

TEST_F(MediaIdManager, ReadyChangerIsAddedOnceAndKeepsItsState) {
    EXPECT_THAT(Notify({Changer(kChanger)}), ElementsAre(kReset));
    EXPECT_TRUE(IsKnown(kChanger));
    EXPECT_EQ(AddStorageElemToMediaIdInProgressList(kChanger, 5), nullptr);
    EXPECT_EQ(SetChangerFSCacheBuildInProgress(kChanger, 1), nullptr);
    EXPECT_THAT(Notify({Changer(kChanger)}), IsEmpty());
    EXPECT_TRUE(IsInProgress(kChanger, 5));
    EXPECT_TRUE(IsBuilding(kChanger));
}

TEST_F(MediaIdManager, ChangerThatIsNoLongerReadyStaysKnown) {
    Notify({ChangerWithDailyBuild()});
    EXPECT_THAT(Notify({Changer(kChanger, {{"Changer Ready", false}})}), IsEmpty());
    EXPECT_TRUE(IsKnown(kChanger));
}

TEST_F(MediaIdManager, StepsOfAReadyChangerRunInOrder) {
    const auto changer =
        With(ChangerWithDailyBuild(), {{"Changer Request Identification", true},
                                       {"Changer Media Info", Array({RequestedMedium(5)})}});
    EXPECT_THAT(Notify({changer}), ElementsAre(kReset, "add to default", kBuild, Identify(5)));
    EXPECT_THAT(Notify({changer}),
                ElementsAre("remove from common", "invalidate", "add to default", kBuild));
}

// The server's list may still contain a request that is done.
TEST_F(MediaIdManager, RepeatedBuildRequestStartsABuildAgain) {
    const auto changer = Changer(kChanger, {{"Changer Request Identification", true}});
    EXPECT_THAT(Notify({changer}), ElementsAre(kReset, kBuild));
    EXPECT_THAT(Notify({changer}), ElementsAre(kBuild));
}

TEST_F(MediaIdManager, BothEntriesOfOneChangerAreHandled) {
    const auto changer =
        Changer(kChanger, {{"Changer Media Info", Array({NewMedium(3), NewMedium(4)})}});
    EXPECT_THAT(Notify({changer, changer}), ElementsAre(kReset, Identify(3), Identify(4)));
}

TEST_F(MediaIdManager, ChangerInfoWithoutTheLockChangesNothing) {
    StateLock::FailLock(EINVAL);
    ChangerInfoNotificationCallBack(Array({Changer(kChanger)}).Get(), &g_subscription, nullptr);
    ExpectLockFailureIn("ChangerInfoNotificationCallBack");
    EXPECT_FALSE(IsKnown(kChanger));
    SInt32 flag = 0;
    EXPECT_EQ(TakeMessages(MediaHasMountablePartitions(kChanger, 0, &flag, &flag)).front(),
              "info list array is still NULL");
}

TEST_F(MediaIdManager, ListThatCannotBeSavedEndsThePass) {
    g_fakes.failing = "SaveChangerInfoList";
    ChangerInfoNotificationCallBack(Array({Changer(kChanger)}).Get(), nullptr, nullptr);
    EXPECT_THAT(log_.TakeWithoutLineNumbers(),
                ElementsAre(HasSubstr(kFakeLine),
                            "MediaIdManager:123, ChangerInfoNotificationCallBack: fail "
                            "SaveChangerList (err = 5)"));
    EXPECT_FALSE(IsKnown(kChanger));
}

// An invalid entry ends the pass: its own further steps and later entries are skipped.
TEST_F(MediaIdManager, FailedEntryEndsThePass) {
    const std::pair<Value, std::string> cases[] = {
        {Without(Changer(kChanger), "Changer Ready"), "fail check for changer ready"},
        {Changer(kChanger, {{"Changer Ready", 1}}), "fail check for changer ready"},
        {3, "fail check for changer ready"},
        {"text", "fail check for changer ready"},
        {Array(), "fail check for changer ready"},
        {Without(Changer(kChanger), "GUID"), "fail handle added changers for changer at index 1"},
        {ChangerWithDailyBuild({{"BuildDirCacheTimeHours", "x"}}), "fail UpdateChangerSettings"},
        {Without(Changer(kChanger), "Changer Client Status"), "fail HandleChangerOperationAbort"},
        {Without(Changer(kChanger), "Changer Media Info"),
         "fail handle start media id for changer at index 1"},
    };
    for (const auto& [entry, message] : cases) {
        Notify({Changer(1), entry, Changer(kOtherChanger)});
        EXPECT_EQ(LastLogged(), "ChangerInfoNotificationCallBack: " + message);
        EXPECT_TRUE(IsKnown(1));
        EXPECT_FALSE(IsKnown(kOtherChanger)) << message;
    }
}

TEST_F(MediaIdManager, EntryWithoutAGuidFailsEachStepThatReadsTheGuid) {
    const auto changer = Without(Changer(kChanger), "GUID");
    const auto expectNoGuid = [&](VErrLink* (*step)(CFDictionaryRef changerInfo),
                                  const char* function) {
        const Chain chain = TakeChain(step(changer));
        ASSERT_EQ(chain.size(), 2U) << function;
        EXPECT_EQ(chain[0].message, "fail get value from dict");
        EXPECT_EQ(chain[1], (RaisedLink{"fail get changer GUID", function, kSource}));
    };
    expectNoGuid(HandleAddedChangers, "HandleAddedChangers");
    expectNoGuid(UpdateChangerSettings, "UpdateChangerSettings");
    expectNoGuid(HandleChangerOperationAbort, "HandleChangerOperationAbort");
    expectNoGuid(HandleManualChangerFSBuildStart, "HandleManualChangerFSBuildStart");
}

TEST_F(MediaIdManager, FailedBuildStartEndsThePass) {
    g_fakes.failing = "StartChangerFSCache";
    EXPECT_THAT(Notify({Changer(kChanger, {{"Changer Request Identification", true}}),
                        Changer(kOtherChanger)}),
                ElementsAre(kReset, kBuild));
    EXPECT_THAT(log_.TakeWithoutLineNumbers(),
                ElementsAre(HasSubstr(kFakeLine),
                            "MediaIdManager:123, HandleManualChangerFSBuildStart: fail "
                            "StartChangerFSCache (err = 5)",
                            "MediaIdManager:123, ChangerInfoNotificationCallBack: fail "
                            "HandleManualChangerFSBuildStart (err = 5)"));
}

// The next notification repeats the attempt.
TEST_F(MediaIdManager, ChangerWhoseStatusCannotBeResetIsNotAdded) {
    g_fakes.failing = "ResetStatusReporting";
    EXPECT_THAT(Notify({Changer(kChanger), Changer(kOtherChanger)}), ElementsAre(kReset));
    EXPECT_THAT(
        log_.TakeWithoutLineNumbers(),
        ElementsAre(HasSubstr(kFakeLine),
                    "MediaIdManager:123, HandleAddedChangers: fail ResetStatusReporting (err = 5)",
                    "MediaIdManager:123, ChangerInfoNotificationCallBack: fail handle added "
                    "changers for changer at index 0 (err = 5)"));
    EXPECT_FALSE(IsKnown(kChanger));
    g_fakes.failing.clear();
    EXPECT_THAT(Notify({Changer(kChanger)}), ElementsAre(kReset));
}

TEST_F(MediaIdManager, ListThatIsNoArrayIsLoggedAndNotSaved) {
    CFDictionaryRef saved = nullptr;
    Notify({Changer(kChanger)});
    for (const Value& value :
         {Value(Changer(kOtherChanger)), Value(3), Value("text"), Value(true)}) {
        ChangerInfoNotificationCallBack(value.Get(), &g_subscription, nullptr);
        EXPECT_EQ(OnlyLogged(), "ChangerInfoNotificationCallBack: fail get changer info as array");
        EXPECT_EQ(GetChangerInfoDict(kChanger, &saved), nullptr);
        EXPECT_FALSE(StateLock::IsHeld());
    }
    EXPECT_FALSE(IsKnown(kOtherChanger));
}

TEST_F(MediaIdManager, ChangerListThatIsNoArrayIsLoggedAndRemovesNoChanger) {
    AddChanger(kChanger);
    for (const Value& value : {Value(Dictionary()), Value(3), Value("text"), Value(true)}) {
        ChangerListNotificationCallBack(value.Get(), nullptr, nullptr);
        EXPECT_EQ(OnlyLogged(), "ChangerListNotificationCallBack: fail get changer list as array");
        EXPECT_TRUE(IsKnown(kChanger));
        EXPECT_FALSE(StateLock::IsHeld());
    }
}

TEST_F(MediaIdManager, WithoutMemoryAChangerIsNotAdded) {
    const auto changer = Changer(kChanger);
    const auto check = [&](const Chain&, bool failed) { EXPECT_EQ(IsKnown(kChanger), !failed); };
    EXPECT_THAT(SweepErrors([&] { return HandleAddedChangers(changer); }, check),
                testing::IsSupersetOf({"fail check for changer 9EDCBA9876543210 in list",
                                       "fail add changer GUID 9EDCBA9876543210 to list"}));
}

// ---- "changer list" ----

TEST_F(MediaIdManager, ChangerNoLongerListedIsRemoved) {
    AddChanger(kChanger);
    AddChanger(kOtherChanger);
    NotifyList({kOtherChanger, 42});
    EXPECT_FALSE(IsKnown(kChanger));
    EXPECT_TRUE(IsKnown(kOtherChanger));
    EXPECT_FALSE(IsKnown(42));
}

TEST_F(MediaIdManager, AllChangersNoLongerListedAreRemoved) {
    for (const UInt64 changer : {kChanger, kOtherChanger, UInt64{1}})
        AddChanger(changer);
    NotifyList({1});
    EXPECT_FALSE(IsKnown(kChanger));
    EXPECT_FALSE(IsKnown(kOtherChanger));
    EXPECT_TRUE(IsKnown(1));
}

TEST_F(MediaIdManager, FirstFailedRemovalEndsTheHandling) {
    constexpr UInt64 kChangers[] = {1, 2, 3};
    const auto list = Array();
    std::vector<int> knownAfterFailure;
    // The list of known changers stays retained, and each run allocates the same objects.
    for (const UInt64 changer : kChangers)
        AddChanger(changer);
    ChangerListNotificationCallBack(list.Get(), nullptr, nullptr);
    for (const UInt64 changer : kChangers)
        AddChanger(changer);
    SweepAllocationFaults(
        [&](std::size_t) { ChangerListNotificationCallBack(list.Get(), nullptr, nullptr); },
        [&](std::size_t, bool) {
            int known = 0;
            for (const UInt64 changer : kChangers) {
                known += IsKnown(changer);
                AddChanger(changer);
            }
            for (const std::string& line : log_.Take())
                if (line.find("fail remove changer GUID ") != std::string::npos)
                    knownAfterFailure.push_back(known);
        });
    // Changers added again may have another order, whose list is another object.
    ASSERT_FALSE(knownAfterFailure.empty());
    EXPECT_EQ(knownAfterFailure.front(), 3);
}

TEST_F(MediaIdManager, NullNumberOfAKnownChangerEndsTheHandlingAndItsIndexIsLogged) {
    const auto list = Array();
    for (const int goodReads : {0, 1}) { // fails in the loop, and in the typed read
        AddChanger(kChanger);
        AddChanger(kOtherChanger);
        {
            const NullElement null(0, goodReads);
            ChangerListNotificationCallBack(list.Get(), nullptr, nullptr);
        }
        std::vector<std::string> lines = log_.TakeWithoutLineNumbers();
        ASSERT_GE(lines.size(), 2U);
        EXPECT_EQ(lines[lines.size() - 2],
                  std::string("MediaIdManager:123, HandleRemovedChangers: fail get changer GUID ") +
                      (goodReads == 0 ? "CFNumber " : "") + "at index 0");
        EXPECT_TRUE(IsKnown(kChanger));
        EXPECT_TRUE(IsKnown(kOtherChanger));
    }
}

TEST_F(MediaIdManager, ListWithoutNumbersRemovesAllChangers) {
    AddChanger(kChanger);
    NotifyList({kChangerText});
    EXPECT_FALSE(IsKnown(kChanger));
}

TEST_F(MediaIdManager, TimerOfARemovedChangerIsNotCancelled) {
    Notify({ChangerWithDailyBuild()});
    NotifyList({});
    EXPECT_FALSE(IsKnown(kChanger));
    EXPECT_THAT(Journal::Take(), IsEmpty());
}

TEST_F(MediaIdManager, ChangerListWithoutTheLockChangesNothing) {
    AddChanger(kChanger);
    StateLock::FailLock(EINVAL);
    NotifyList({});
    ExpectLockFailureIn("ChangerListNotificationCallBack");
    EXPECT_TRUE(IsKnown(kChanger));
}

TEST_F(MediaIdManager, WithoutMemoryTheFailedRemovalIsLogged) {
    const auto list = Array();
    // The list of known changers stays retained, and each run allocates the same objects.
    AddChanger(kChanger);
    ChangerListNotificationCallBack(list.Get(), nullptr, nullptr);
    AddChanger(kChanger);
    std::set<std::string> logged;
    SweepAllocationFaults(
        [&](std::size_t) { ChangerListNotificationCallBack(list.Get(), nullptr, nullptr); },
        [&](std::size_t, bool happened) {
            EXPECT_EQ(IsKnown(kChanger), happened);
            for (const std::string& line : log_.TakeWithoutLineNumbers())
                logged.insert(line);
        });
    EXPECT_THAT(
        logged,
        testing::IsSupersetOf(
            {"MediaIdManager:123, HandleRemovedChangers: fail get old changer list",
             "MediaIdManager:123, HandleRemovedChangers: fail remove changer GUID "
             "9EDCBA9876543210 from list",
             "MediaIdManager:123, ChangerListNotificationCallBack: fail HandleRemovedChangers"}));
}

TEST_F(MediaIdManager, ChangersNumberIsLoggedInSixteenDigits) {
    const std::string number = kSmallChangerText;
    const auto changer = With(ChangerWithDailyBuild(), {{"GUID", kSmallChanger}});
    const auto list = Array();
    const auto addAgain = [&](const Chain&, bool) { AddChanger(kSmallChanger); };
    AddChanger(kSmallChanger);
    EXPECT_THAT(SweepErrors([&] { return UpdateChangerSettings(changer); }, addAgain),
                Contains("fail ScheduleChangerFSCacheTimer for " + number + " with 1:00"));
    EXPECT_THAT(SweepErrors([&] { return HandleRemovedChangers(list); }, addAgain),
                Contains("fail remove changer GUID " + number + " from list"));
    EXPECT_EQ(RemoveChangerFromList(kSmallChanger), nullptr);
    EXPECT_THAT(SweepErrors([&] { return HandleAddedChangers(changer); }, [](auto&, bool) {}),
                testing::IsSupersetOf({"fail check for changer " + number + " in list",
                                       "fail add changer GUID " + number + " to list"}));
}

// ---- "root preferences" ----

TEST_F(MediaIdManager, RootPreferencesSetTheGlobalFlag) {
    NotifyPreferences(Dictionary({{"IdentifyMediaOnInsert", false}}));
    EXPECT_FALSE(IdentifiesOnInsert());
    NotifyPreferences(Dictionary({{"Other", true}}));
    EXPECT_FALSE(IdentifiesOnInsert());
    NotifyPreferences(Dictionary({{"IdentifyMediaOnInsert", true}}));
    EXPECT_TRUE(IdentifiesOnInsert());
    NotifyPreferences(Dictionary());
    EXPECT_TRUE(IdentifiesOnInsert());
    EXPECT_THAT(Journal::Take(), IsEmpty());
}

TEST_F(MediaIdManager, RootPreferencesOfOtherTypesLeaveTheFlag) {
    NotifyPreferences(Dictionary({{"IdentifyMediaOnInsert", 0}}));
    EXPECT_THAT(log_.TakeWithoutLineNumbers(),
                ElementsAre("CFHelpers:123, CFHDictionaryGetBoolValue: bool neither true nor false",
                            "MediaIdManager:123, RootPrefsNotificationCallBack: fail get should id "
                            "media value as boolean"));
    for (const Value& value : {Value(Array()), Value("IdentifyMediaOnInsert"), Value(false)}) {
        RootPrefsNotificationCallBack(value.Get(), nullptr, nullptr);
        EXPECT_EQ(OnlyLogged(),
                  "RootPrefsNotificationCallBack: fail get root preferences as dictionary");
        EXPECT_TRUE(IdentifiesOnInsert());
    }
}

TEST_F(MediaIdManager, GlobalFlagThatCannotBeSetIsLogged) {
    g_fakes.failing = "SetGlobalShouldIdMedia";
    NotifyPreferences(Dictionary({{"IdentifyMediaOnInsert", false}}));
    g_fakes.failing.clear();
    EXPECT_THAT(log_.TakeWithoutLineNumbers(),
                ElementsAre(HasSubstr(kFakeLine),
                            "MediaIdManager:123, RootPrefsNotificationCallBack: fail "
                            "SetGlobalShouldIdMedia (err = 5)"));
    EXPECT_TRUE(IdentifiesOnInsert());
}

TEST_F(MediaIdManager, RootPreferencesWithoutTheLockChangeNothing) {
    StateLock::FailLock(EINVAL);
    NotifyPreferences(Dictionary({{"IdentifyMediaOnInsert", false}}));
    ExpectLockFailureIn("RootPrefsNotificationCallBack");
    EXPECT_TRUE(IdentifiesOnInsert());
}

} // namespace
