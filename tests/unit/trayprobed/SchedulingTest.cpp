/* The choice of the next disc to identify. */

#include "Journal.h"
#include "ManagedChangers.h"
#include "NullElement.h"
#include "support/Matchers.h"
#include "support/WithoutMemory.h"
#include "trayprobed/MediaIdManager.h"

#include <initializer_list>
#include <string>
#include <utility>
#include <vector>

namespace {

class Scheduling : public ManagedChangers {
protected:
    Scheduling() {
        AddChanger(kChanger);
    }

    // The threads started for a changer with these media and changes.
    std::vector<std::string> Start(std::initializer_list<Value> media,
                                   std::initializer_list<Entry> changes = {}) {
        EXPECT_THAT(Handle(HandleStartingMediaId, ChangerWithMedia(media, changes)), IsEmpty());
        return Journal::Take();
    }
    // The messages of the failure; no thread may be started.
    std::vector<std::string> FailedStart(std::initializer_list<Value> media,
                                         std::initializer_list<Entry> changes = {}) {
        std::vector<std::string> messages =
            MessagesOf(HandleStartingMediaId, ChangerWithMedia(media, changes));
        EXPECT_THAT(Journal::Take(), IsEmpty());
        return messages;
    }
    static CFOwned<CFMutableDictionaryRef>
    ChangerWithMedia(std::initializer_list<Value> media,
                     std::initializer_list<Entry> changes = {}) {
        return With(Changer(kChanger, {{"Changer Media Info", Array(media)}}), changes);
    }
    static void SetInProgress(std::initializer_list<UInt16> elems) {
        for (const UInt16 elem : elems)
            EXPECT_EQ(AddStorageElemToMediaIdInProgressList(kChanger, elem), nullptr);
    }
};

CFOwned<CFMutableDictionaryRef> MountedMedium(int storageElem, SInt64 state) {
    return Medium(storageElem, {{"Media Mount State", state}});
}

// ---- which medium ----

TEST_F(Scheduling, RequestedMediumIsPickedBeforeANewOne) {
    EXPECT_THAT(
        Start({Medium(0), NewMedium(1), Medium(2), Medium(3), Medium(4), RequestedMedium(5)}),
        ElementsAre(Identify(5)));
}

TEST_F(Scheduling, FirstMediumOfTheListIsPickedWhateverItsSlot) {
    EXPECT_THAT(Start({Medium(7), RequestedMedium(6), RequestedMedium(2)}),
                ElementsAre(Identify(6)));
    EXPECT_THAT(
        Start({Medium(7), NewMedium(9), NewMedium(2)}, {{"Data Transfer Element Count", 5}}),
        ElementsAre(Identify(9)));
}

TEST_F(Scheduling, IdentifiedMediumIsPickedOnlyOnRequest) {
    EXPECT_THAT(Start({Medium(0), Medium(1, {{"Media Identify Time", -1}})}), IsEmpty());
    EXPECT_THAT(Start({Medium(0), RequestedMedium(1)}), ElementsAre(Identify(1)));
}

TEST_F(Scheduling, OnlyTheTrueObjectIsARequest) {
    for (const Value& value : {Value(false), Value(1), Value("true")})
        EXPECT_THAT(Start({Medium(0, {{"Media Request Identification", value}})}), IsEmpty());
}

TEST_F(Scheduling, EmptySlotIsNeverPicked) {
    EXPECT_THAT(Start({Medium(0, {{"Media Kind", 0},
                                  {"Media Request Identification", true},
                                  {"Media Identify Time", 0}})}),
                IsEmpty());
    // No other key of an empty slot is read.
    EXPECT_THAT(Start({Dictionary({{"Media Kind", 0}, {"Media Mount State", 0}}), NewMedium(1)}),
                ElementsAre(Identify(1)));
}

TEST_F(Scheduling, MediumInProgressIsSkipped) {
    SetInProgress({1});
    EXPECT_THAT(Start({RequestedMedium(1), RequestedMedium(2)}), ElementsAre(Identify(2)));
}

TEST_F(Scheduling, NewMediumIsPickedWhenEveryRequestIsInProgress) {
    SetInProgress({1});
    EXPECT_THAT(Start({RequestedMedium(1), NewMedium(2)}), ElementsAre(Identify(2)));
}

TEST_F(Scheduling, SlotsAbove32767AreFoundInProgress) {
    SetInProgress({40000});
    EXPECT_THAT(Start({RequestedMedium(40000), RequestedMedium(-25536)}), IsEmpty());
}

TEST_F(Scheduling, WithoutMediaNothingStarts) {
    EXPECT_THAT(Start({}), IsEmpty());
}

// ---- automatic identification ----

TEST_F(Scheduling, PreferenceOfTheChangerOverridesTheGlobalFlag) {
    const auto off = Dictionary({{"IdentifyMediaOnInsert", false}});
    const auto on = Dictionary({{"IdentifyMediaOnInsert", true}});
    EXPECT_THAT(Start({NewMedium(1)}, {{"Changer Preferences", off}}), IsEmpty());
    EXPECT_THAT(Start({NewMedium(1), RequestedMedium(2)}, {{"Changer Preferences", off}}),
                ElementsAre(Identify(2)));
    EXPECT_EQ(SetGlobalShouldIdMedia(0), nullptr);
    EXPECT_THAT(Start({NewMedium(1)}, {{"Changer Preferences", on}}), ElementsAre(Identify(1)));
}

TEST_F(Scheduling, WithoutAPreferenceTheGlobalFlagDecides) {
    EXPECT_EQ(SetGlobalShouldIdMedia(0), nullptr);
    EXPECT_THAT(Start({NewMedium(1)}), IsEmpty());
    EXPECT_THAT(Start({NewMedium(1), RequestedMedium(2)}), ElementsAre(Identify(2)));
    EXPECT_EQ(SetGlobalShouldIdMedia(1), nullptr);
    EXPECT_THAT(Start({NewMedium(1)}), ElementsAre(Identify(1)));
}

TEST_F(Scheduling, PreferenceToDescendIsPassedToTheThread) {
    EXPECT_THAT(Start({NewMedium(1)},
                      {{"Changer Preferences", Dictionary({{"BuildDirCacheOnIdentify", true}})}}),
                ElementsAre(Identify(1) + " down"));
    EXPECT_THAT(Start({NewMedium(2)},
                      {{"Changer Preferences", Dictionary({{"BuildDirCacheOnIdentify", 1}})}}),
                ElementsAre(Identify(2)));
}

// ---- free drives ----

TEST_F(Scheduling, OneIdentificationIsAllowedHoweverManyDiscsAreMounted) {
    EXPECT_THAT(Start({MountedMedium(0, 1), MountedMedium(1, 2), NewMedium(2)}),
                ElementsAre(Identify(2)));
}

TEST_F(Scheduling, OneIdentificationIsAllowedWithoutDrives) {
    EXPECT_THAT(Start({NewMedium(0)}, {{"Data Transfer Element Count", 0}}),
                ElementsAre(Identify(0)));
}

TEST_F(Scheduling, SecondIdentificationNeedsAFreeDrive) {
    SetInProgress({0});
    EXPECT_THAT(Start({MountedMedium(0, 1), MountedMedium(1, 1), NewMedium(2)}), IsEmpty());
    EXPECT_THAT(Start({MountedMedium(0, 1), Medium(1), NewMedium(2)}), ElementsAre(Identify(2)));
    EXPECT_THAT(Start({Medium(0), Medium(1), NewMedium(3)}), IsEmpty()); // two are in progress now
    EXPECT_THAT(Start({Medium(0), NewMedium(3)}, {{"Data Transfer Element Count", 3}}),
                ElementsAre(Identify(3)));
}

TEST_F(Scheduling, DrivesAreCountedIn16Bits) {
    SetInProgress({0});
    EXPECT_THAT(Start({NewMedium(2)}, {{"Data Transfer Element Count", 40000}}),
                ElementsAre(Identify(2)));
    EXPECT_THAT(Start({NewMedium(3)}, {{"Data Transfer Element Count", -1}}),
                ElementsAre(Identify(3)));
}

TEST_F(Scheduling, EveryStateBut0And64CountsAsMounted) {
    struct Case {
        SInt64 state;
        int counted;
    };
    for (const Case& each :
         {Case{0, 0}, Case{0x40, 0}, Case{1, 1}, Case{2, 1}, Case{0x3F, 1}, Case{0x41, 1},
          Case{0x80, 1}, Case{0x40000000, 1}, Case{0x40000040, 1}, Case{-1, 1}}) {
        UInt16 count = 9;
        EXPECT_EQ(CountChangerMountedMedia(Array({MountedMedium(0, each.state)}), &count), nullptr);
        EXPECT_EQ(count, each.counted) << each.state;
    }
}

TEST_F(Scheduling, EveryMountedMediumIsCounted) {
    UInt16 count = 9;
    const auto media = Array(
        {MountedMedium(0, 1), MountedMedium(1, 0), MountedMedium(2, 2), MountedMedium(3, 0x40)});
    EXPECT_EQ(CountChangerMountedMedia(media, &count), nullptr);
    EXPECT_EQ(count, 2);
    EXPECT_EQ(CountChangerMountedMedia(Array(), &count), nullptr);
    EXPECT_EQ(count, 0);
}

// A medium that the server's restart frees may be picked by the same notification.
TEST_F(Scheduling, ServerOfANotificationIsHandledBeforeAMediumIsPicked) {
    SetInProgress({0});
    g_subscription.server = {4711, {12, 340000}};
    std::vector<ChangerServerProcess> servers;
    g_fakes.onServer = [&](const ChangerServerProcess& server) {
        servers.push_back(server);
        EXPECT_EQ(RemoveStorageElemFromMediaIdInProgressList(kChanger, 0), nullptr);
    };
    EXPECT_THAT(Notify({ChangerWithMedia({NewMedium(0)})}), Contains(Identify(0)));
    ASSERT_EQ(servers.size(), 1U);
    EXPECT_TRUE(IsSameChangerServerProcess(&servers[0], &g_subscription.server));
    g_subscription.server = {};
}

// ---- failures ----

TEST_F(Scheduling, CountEndsAtTheFirstFailure) {
    UInt16 count = 9;
    const auto media = Array({MountedMedium(0, 1), Dictionary(), MountedMedium(2, 1)});
    EXPECT_THAT(TakeMessages(CountChangerMountedMedia(media, &count)),
                ElementsAre("fail get value from dict", "fail get media mount state"));
    EXPECT_THAT(FailedStart({Dictionary(), NewMedium(1)}),
                ElementsAre("fail get value from dict", "fail get media mount state",
                            "fail CountChangerMountedMedia for changer GUID 9EDCBA9876543210"));
}

TEST_F(Scheduling, EachMissingKeyOfTheChangersEntryFails) {
    const std::pair<const char*, std::vector<std::string>> cases[] = {
        {"Changer Preferences", {"fail get changer preferences"}},
        {"GUID", {"fail get value from dict", "fail get changer GUID from changer info dict"}},
        {"Changer Media Info", {"fail get changer media array for changer GUID 9EDCBA9876543210"}},
        {"Data Transfer Element Count",
         {"fail get value from dict",
          "fail get count of data transfer elements for changer GUID 9EDCBA9876543210"}},
    };
    for (const auto& [key, messages] : cases) {
        EXPECT_EQ(MessagesOf(HandleStartingMediaId, Without(Changer(kChanger), key)), messages);
        if (messages.size() == 1) { // a collection of another type counts as absent
            EXPECT_EQ(MessagesOf(HandleStartingMediaId, Changer(kChanger, {{key, "text"}})),
                      messages);
        }
    }
}

// Begins with an empty entry and adds one value at a time.
TEST_F(Scheduling, KeysOfTheChangersEntryAreReadInOrder) {
    const std::string text = kSmallChangerText;
    auto changer = Dictionary();
    const auto newest = [&] { return MessagesOf(HandleStartingMediaId, changer).back(); };
    const auto add = [&](const char* key, const Value& value) {
        CFDictionarySetValue(changer, Text(key), value.Get());
    };
    EXPECT_EQ(newest(), "fail get changer preferences");
    add("Changer Preferences", Dictionary({{"IdentifyMediaOnInsert", 1}}));
    EXPECT_EQ(newest(), "fail get should id media flag from changer prefs");
    add("Changer Preferences", Dictionary());
    EXPECT_EQ(newest(), "fail get changer GUID from changer info dict");
    add("GUID", kSmallChanger);
    EXPECT_EQ(newest(), "fail get changer media array for changer GUID " + text);
    add("Changer Media Info", Array({Dictionary()}));
    EXPECT_EQ(newest(), "fail CountChangerMountedMedia for changer GUID " + text);
    add("Changer Media Info", Array({Dictionary({{"Media Mount State", 0}})}));
    EXPECT_EQ(newest(), "fail get count of data transfer elements for changer GUID " + text);
    add("Data Transfer Element Count", 2);
    EXPECT_EQ(newest(), "fail GetMediaIdInProgressCount for changer GUID " + text);
    AddChanger(kSmallChanger);
    EXPECT_EQ(newest(), "fail SpawnNextManualMediaId for changer GUID " + text);
}

TEST_F(Scheduling, PreferenceThatIsNoBooleanFails) {
    EXPECT_THAT(FailedStart({NewMedium(1)},
                            {{"Changer Preferences", Dictionary({{"IdentifyMediaOnInsert", 1}})}}),
                ElementsAre("bool neither true nor false",
                            "fail get should id media flag from changer prefs"));
}

TEST_F(Scheduling, GlobalFlagThatCannotBeReadFails) {
    g_fakes.failing = "GetGlobalShouldIdMedia";
    EXPECT_THAT(FailedStart({NewMedium(1)}),
                ElementsAre("fail on purpose", "fail GetGlobalShouldIdMedia"));
    g_fakes.failing.clear();
}

TEST_F(Scheduling, UnknownChangerFails) {
    EXPECT_EQ(RemoveChangerFromList(kChanger), nullptr);
    EXPECT_THAT(FailedStart({NewMedium(1)}),
                ElementsAre("fail find changer in list", "fail GetChangerDictForGUID",
                            "fail GetMediaIdInProgressCount for changer GUID 9EDCBA9876543210"));
}

// An invalid medium ends the scan: later media are not considered.
TEST_F(Scheduling, MediumWithAMissingKeyEndsTheScan) {
    const std::string manual = "fail SpawnNextManualMediaId for changer GUID 9EDCBA9876543210";
    const std::string automatic =
        "fail SpawnNextAutomaticMediaId for changer GUID 9EDCBA9876543210";
    EXPECT_THAT(
        FailedStart({Medium(0), Without(Medium(1), "Media Kind"), RequestedMedium(2)}),
        ElementsAre("fail get value from dict", "fail get media kind for media index 1", manual));
    EXPECT_THAT(
        FailedStart({Medium(0), Without(RequestedMedium(1), "Media Storage Element Index"),
                     RequestedMedium(2)}),
        ElementsAre("fail get value from dict", "fail get storage element for media 1", manual));
    EXPECT_THAT(
        FailedStart({Medium(0), Without(NewMedium(1), "Media Identify Time"), NewMedium(2)}),
        ElementsAre("fail get value from dict", "fail get media identify time", automatic));
    EXPECT_THAT(FailedStart({Medium(0, {{"Media Kind", "1"}}), RequestedMedium(2)}),
                ElementsAre(StartsWith("fail get num as "), "fail get media kind for media index 0",
                            manual));
}

using Scan = VErrLink* (*)(UInt64, CFArrayRef, SInt32, SInt32*);

// The newest link of a failed scan as "message in function".
std::string FailureOf(Scan scan, CFOwned<CFMutableDictionaryRef> medium) {
    SInt32 started = 0;
    const Chain chain = TakeChain(scan(kChanger, Array({std::move(medium)}), 0, &started));
    return chain.empty() ? "" : chain.back().message + " in " + chain.back().function;
}

// Both scans share code, but the log line names the failed one.
TEST_F(Scheduling, ErrorOfAScanNamesThatScan) {
    const std::string manual = " in SpawnNextManualMediaId";
    const std::string automatic = " in SpawnNextAutomaticMediaId";
    // Both scans fail for a medium without that key.
    const auto expectBoth = [&](const std::string& message, const char* absentKey) {
        EXPECT_EQ(FailureOf(SpawnNextManualMediaId, Without(RequestedMedium(5), absentKey)),
                  message + manual);
        EXPECT_EQ(FailureOf(SpawnNextAutomaticMediaId, Without(NewMedium(5), absentKey)),
                  message + automatic);
    };
    expectBoth("fail get media kind for media index 0", "Media Kind");
    expectBoth("fail get storage element for media 0", "Media Storage Element Index");
    EXPECT_EQ(FailureOf(SpawnNextAutomaticMediaId, Without(NewMedium(5), "Media Identify Time")),
              "fail get media identify time" + automatic);
    g_fakes.failing = "StartMediaId";
    expectBoth("fail RunMediaIdThread for changer GUID 9EDCBA9876543210/storage elem 5", "no key");
    Journal::Take();
    EXPECT_EQ(RemoveChangerFromList(kChanger), nullptr);
    expectBoth(
        "fail IsStorageElemOnInProgressList for changer GUID 9EDCBA9876543210/storage elem 5",
        "no key");
}

// The manual scan does not read the identify time, the automatic scan not the request.
TEST_F(Scheduling, EachScanReadsOnlyItsOwnKey) {
    EXPECT_THAT(Start({Without(RequestedMedium(1), "Media Identify Time")}),
                ElementsAre(Identify(1)));
}

// Both changers' numbers are logged in sixteen digits.
constexpr std::pair<UInt64, const char*> kChangers[] = {{kChanger, kChangerText},
                                                        {kSmallChanger, kSmallChangerText}};

TEST_F(Scheduling, FailedStartEndsTheScanAndIsLogged) {
    AddChanger(kSmallChanger);
    g_fakes.failing = "StartMediaId";
    for (const auto& [changer, text] : kChangers) {
        const std::string number = text;
        EXPECT_THAT(
            MessagesOf(HandleStartingMediaId,
                       With(ChangerWithMedia({NewMedium(5), NewMedium(6)}), {{"GUID", changer}})),
            ElementsAre("fail on purpose",
                        "fail RunMediaIdThread for changer GUID " + number + "/storage elem 5",
                        "fail SpawnNextAutomaticMediaId for changer GUID " + number));
        EXPECT_THAT(Journal::Take(), ElementsAre("identify " + number + "/5"));
    }
}

TEST_F(Scheduling, FailedManualScanIsNotFollowedByTheAutomaticScan) {
    g_fakes.failing = "StartMediaId";
    EXPECT_EQ(
        MessagesOf(HandleStartingMediaId, ChangerWithMedia({RequestedMedium(5), NewMedium(6)}))
            .back(),
        "fail SpawnNextManualMediaId for changer GUID 9EDCBA9876543210");
    EXPECT_THAT(Journal::Take(), ElementsAre(Identify(5)));
}

TEST_F(Scheduling, NullMediumEndsTheScanAndItsIndexIsLogged) {
    const auto media = Array({Medium(0), NewMedium(1), RequestedMedium(2)});
    const NullElement null(1);
    UInt16 count = 9;
    SInt32 started = 9;
    EXPECT_THAT(TakeMessages(CountChangerMountedMedia(media, &count)),
                ElementsAre("fail get media dict at index 1"));
    EXPECT_THAT(TakeMessages(SpawnNextManualMediaId(kChanger, media, 0, &started)),
                ElementsAre("fail get media dict for media index 1"));
    EXPECT_THAT(TakeMessages(SpawnNextAutomaticMediaId(kChanger, media, 0, &started)),
                ElementsAre("fail get media dict for media index 1"));
    EXPECT_EQ(started, 0);
    EXPECT_THAT(Journal::Take(), IsEmpty());
}

TEST_F(Scheduling, WithoutMemoryNoIdentificationIsStarted) {
    AddChanger(kSmallChanger);
    for (const auto& [changer, number] : kChangers) {
        SInt32 started = 0;
        const auto media = Array({RequestedMedium(40000)});
        const auto spawn = [&, changer = changer] {
            return SpawnNextManualMediaId(changer, media, 0, &started);
        };
        const auto check = [&](const Chain&, bool failed) { EXPECT_EQ(started, failed ? 0 : 1); };
        EXPECT_THAT(SweepErrors(spawn, check),
                    Contains(std::string("fail IsStorageElemOnInProgressList for changer GUID ") +
                             number + "/storage elem 40000"));
    }
}

} // namespace
