#include "SystemTest.h"
#include "tests/unit/support/Matchers.h"

#include <algorithm>
#include <cstddef>
#include <set>
#include <string>
#include <vector>

using testbed::Event;

namespace {

class IdentificationTest : public SystemTest {
protected:
    std::vector<Event> Mounts() {
        return Server().AllSoFar("request", {{"command", "mount disc"}});
    }
    // The slots in the order of the mount requests. A disc may be mounted twice: if the main thread
    // is late, it handles a notification from before the first time after it.
    std::vector<std::string> MountedSlots() {
        std::vector<std::string> slots;
        for (const Event& mount : Mounts())
            slots.push_back(mount["storage-element-index"]);
        return slots;
    }

    std::size_t TimesIdentified(int slot) {
        return Server().AllSoFar("identified", {{"slot", std::to_string(slot)}}).size();
    }

    // The maximum of simultaneous identifications: between the first and the second withdrawal.
    std::size_t MostAtOnce() {
        std::set<std::string> running;
        std::size_t most = 0;
        for (const Event& request :
             Server().AllSoFar("request", {{"command", "request identification"}})) {
            const std::string slot = request["storage-element-index"];
            if (running.erase(slot) == 0)
                running.insert(slot);
            most = std::max(most, running.size());
        }
        return most;
    }
};

TEST_F(IdentificationTest, DiscIsWithdrawnMountedEjectedAndWithdrawnAgain) {
    Begin();
    IdentifyNewDisc(3);
    EXPECT_THAT(RequestsSoFar(),
                ElementsAre("clear status", "withdraw 3", "mount 3", "eject 3", "withdraw 3"));
    EXPECT_EQ(TimesIdentified(3), 1U);
}

TEST_F(IdentificationTest, MountRequestIsPrivateToTheDaemonsProcess) {
    Begin();
    IdentifyNewDisc(3);
    const Event mount = Mounts().front();
    EXPECT_TRUE(mount.Has({{"changer", "5000C500ABCD00A1"},
                           {"storage-element-index", "3"},
                           {"partition-id", ""},
                           {"client-name", "Media Identification"},
                           {"private", "yes"},
                           {"private-pid", std::to_string(run_.Daemon().Pid())},
                           {"private-family", "1"},
                           {"mount-disc-clear-errors", "yes"},
                           {"mount-disc-start-mount", "yes"}}));
    EXPECT_EQ(mount.values.count("data-transfer-element-index"), 0U);
    EXPECT_EQ(mount.values.count("mount-disc-disallow-mount"), 0U);
    const Event eject = Server().AllSoFar("request", {{"command", "eject disc"}}).front();
    EXPECT_TRUE(eject.Has({{"private", "yes"}, {"private-family", "1"}}));
    EXPECT_EQ(eject.values.count("overrideprivate"), 0U);
}

class DriveCountTest : public IdentificationTest, public testing::WithParamInterface<int> {};

INSTANTIATE_TEST_SUITE_P(Drives, DriveCountTest, testing::Values(1, 2),
                         testing::PrintToStringParamName());

TEST_P(DriveCountTest, EveryDiscIsIdentifiedOnceAndNeverMoreThanThereAreDrives) {
    Begin("slots=8 moving=20 drives=" + std::to_string(GetParam()));
    Do("pause");
    for (int slot = 0; slot < 8; ++slot)
        PutDisc(slot);
    Do("resume");
    for (int slot = 0; slot < 8; ++slot) {
        AwaitIdentification(slot);
        EXPECT_EQ(TimesIdentified(slot), 1U) << "slot " << slot;
    }
    EXPECT_LE(MostAtOnce(), static_cast<std::size_t>(GetParam()));
}

TEST_F(IdentificationTest, SecondDiscStartsWhileADriveIsFree) {
    Begin("slots=4 drives=2");
    Do("fault on=\"mount disc\" do=late after=1000");
    PutDisc(0);
    Server().Await("request", {{"command", "mount disc"}, {"storage-element-index", "0"}});
    IdentifyNewDisc(1);
    AwaitIdentification(0);
    EXPECT_EQ(MostAtOnce(), 2U);
}

TEST_F(IdentificationTest, OneIdentificationStartsEvenIfUsersOccupyAllDrives) {
    Begin("slots=4 drives=1 timeout=0");
    PutDisc(0, "identified=yes");
    Do("load changer=5000C500ABCD00A1 slot=0");
    Server().Await("mounted", {{"slot", "0"}});
    PutDisc(1);
    Server().Await("request", {{"command", "mount disc"}, {"storage-element-index", "1"}});
    Do("eject changer=5000C500ABCD00A1 slot=0");
    AwaitIdentification(1);
    EXPECT_EQ(TimesIdentified(1), 1U);
}

TEST_F(IdentificationTest, RequestedDiscIsPickedBeforeNeverIdentifiedDiscs) {
    Begin("slots=8 drives=1");
    Do("pause");
    PutDisc(1);
    PutDisc(5, "identified=yes");
    Do("identify changer=5000C500ABCD00A1 slot=5");
    Do("resume");
    AwaitIdentification(5);
    AwaitIdentification(1);
    EXPECT_EQ(MountedSlots().front(), "5");
}

TEST_F(IdentificationTest, IdentifiedDiscIsNotPickedUntilRequested) {
    Begin();
    PutDisc(2, "identified=yes");
    IdentifyNewDisc(3);
    EXPECT_THAT(MountedSlots(), Not(Contains("2")));
    AwaitServedRequest(2);
    EXPECT_THAT(MountedSlots(), Contains("2"));
}

TEST_F(IdentificationTest, GlobalPreferenceDisablesAutomaticIdentificationButNotRequests) {
    StartServer();
    Do("root-preferences identify-on-insert=no");
    StartDaemon();
    PutDisc(0);
    PutDisc(1);
    AwaitServedRequest(1);
    EXPECT_THAT(MountedSlots(), Not(Contains("0")));
    Do("root-preferences identify-on-insert=yes");
    AwaitIdentification(0);
}

TEST_F(IdentificationTest, PreferenceOfTheChangerOverridesTheGlobalOne) {
    Begin();
    Do("root-preferences identify-on-insert=no");
    Do("preferences changer=5000C500ABCD00A1 identify-on-insert=yes");
    IdentifyNewDisc(0);
    Do("root-preferences identify-on-insert=yes");
    Do("preferences changer=5000C500ABCD00A1 identify-on-insert=no");
    PutDisc(1);
    AwaitServedRequest(0);
    EXPECT_THAT(MountedSlots(), Not(Contains("1")));
}

TEST_F(IdentificationTest, DiscOfAChangerThatIsNotReadyIsIdentifiedOnceReady) {
    Begin();
    Do("ready changer=5000C500ABCD00A1 value=no");
    PutDisc(0);
    Do("add-changer changer=5000C500ABCD00B2 slots=2 drives=1");
    AwaitChangerAdded("5000C500ABCD00B2");
    EXPECT_THAT(MountedSlots(), IsEmpty());
    Do("ready changer=5000C500ABCD00A1 value=yes");
    AwaitIdentification(0);
}

TEST_F(IdentificationTest, OnlyTheRootIsListedWithoutBuildOnIdentify) {
    Begin();
    IdentifyNewDisc(0, "directories=6 depth=3");
    const auto listings = Server().AllSoFar("listing", {{"slot", "0"}});
    ASSERT_FALSE(listings.empty());
    for (const Event& listing : listings)
        EXPECT_EQ(listing["path"], "/");
}

TEST_F(IdentificationTest, WholeDiscIsListedWithBuildOnIdentify) {
    Begin();
    Do("preferences changer=5000C500ABCD00A1 build-on-identify=yes");
    IdentifyNewDisc(0, "directories=6 depth=3");
    for (const Event& line : Do("show changer=5000C500ABCD00A1 slot=0 directories=yes"))
        if (line.kind == "directory")
            EXPECT_EQ(line["cached"], "yes") << line["path"];
    EXPECT_THAT(Server().AllSoFar("open"), IsEmpty()) << "files are never opened";
}

TEST_F(IdentificationTest, EveryPartitionIsListed) {
    Begin();
    IdentifyNewDisc(0, "partitions=2");
    EXPECT_FALSE(Server().AllSoFar("listed", {{"partition", "1"}}).empty());
    EXPECT_FALSE(Server().AllSoFar("listed", {{"partition", "2"}}).empty());
}

TEST_F(IdentificationTest, DiscWithoutFileSystemIsEjectedAtOnce) {
    Begin();
    IdentifyNewDisc(0, "unformatted=1");
    EXPECT_THAT(RequestsSoFar(),
                ElementsAre("clear status", "withdraw 0", "mount 0", "eject 0", "withdraw 0"));
    EXPECT_THAT(Server().AllSoFar("listing"), IsEmpty());
}

TEST_F(IdentificationTest, MediaRootThatAppearsLateIsListed) {
    Begin("slots=4 drives=1 appear=1500");
    IdentifyNewDisc(0);
    EXPECT_FALSE(Server().AllSoFar("listed", {{"slot", "0"}, {"path", "/"}}).empty());
}

TEST_F(IdentificationTest, MountIsRepeatedWithoutStartMountWhileTheMountIsUnderWay) {
    Begin("slots=4 drives=1 moving=1500 timeout=0");
    IdentifyNewDisc(0);
    const auto mounts = Mounts();
    ASSERT_GE(mounts.size(), 2U);
    EXPECT_TRUE(
        mounts[0].Has({{"mount-disc-clear-errors", "yes"}, {"mount-disc-start-mount", "yes"}}));
    EXPECT_EQ(mounts[1].values.count("mount-disc-clear-errors"), 0U);
    EXPECT_EQ(mounts[1].values.count("mount-disc-start-mount"), 0U);
}

TEST_F(IdentificationTest, MountIsRepeatedUnchangedWhileTheServerIsBusy) {
    Begin();
    Do("fault on=\"mount disc\" do=error code=1021 count=2");
    IdentifyNewDisc(0);
    const auto mounts = Mounts();
    ASSERT_EQ(mounts.size(), 3U);
    EXPECT_EQ(mounts[1].values.count("mount-disc-clear-errors"), 0U);
    EXPECT_EQ(mounts[1]["mount-disc-start-mount"], "yes");
    EXPECT_EQ(mounts[2]["mount-disc-start-mount"], "yes");
}

TEST_F(IdentificationTest, EjectIsRepeatedWhileTheServerIsBusy) {
    Begin();
    Do("fault on=\"eject disc\" do=error code=1021 count=2");
    IdentifyNewDisc(0);
    EXPECT_THAT(RequestsSoFar(), ElementsAre("clear status", "withdraw 0", "mount 0", "eject 0",
                                             "eject 0", "eject 0", "withdraw 0"));
}

} // namespace
