#include "SystemTest.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <cstddef>
#include <set>
#include <string>
#include <vector>

using testbed::Event;
using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;

namespace {

class IdentificationTest : public SystemTest {
protected:
    // The slots in the order in which their discs were asked for.
    std::vector<std::string> MountedSlots() {
        std::vector<std::string> slots;
        for (const Event& mount : Server().AllSoFar("request", {{"command", "mount disc"}}))
            slots.push_back(mount["storage-element-index"]);
        return slots;
    }

    int TimesIdentified(int slot) {
        return static_cast<int>(
            Server().AllSoFar("identified", {{"slot", std::to_string(slot)}}).size());
    }

    // How many discs were being identified when most were: withdrawn once, but not twice.
    int MostAtOnce() {
        std::set<std::string> running;
        std::size_t most = 0;
        for (const Event& request :
             Server().AllSoFar("request", {{"command", "request identification"}})) {
            const std::string slot = request["storage-element-index"];
            if (running.erase(slot) == 0)
                running.insert(slot);
            most = std::max(most, running.size());
        }
        return static_cast<int>(most);
    }
};

TEST_F(IdentificationTest, DiscIsWithdrawnMountedEjectedAndWithdrawnAgain) {
    Begin();
    Tell("put changer=5000C500ABCD00A1 slot=3");
    AwaitIdentification(3);
    EXPECT_THAT(RequestsSoFar(),
                ElementsAre("clear status", "withdraw 3", "mount 3", "eject 3", "withdraw 3"));
    EXPECT_EQ(TimesIdentified(3), 1);
}

TEST_F(IdentificationTest, MountRequestIsPrivateToTheDaemonsProcess) {
    Begin();
    Tell("put changer=5000C500ABCD00A1 slot=3");
    AwaitIdentification(3);
    const Event mount = Server().AllSoFar("request", {{"command", "mount disc"}}).front();
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

TEST_F(IdentificationTest, EveryDiscIsIdentifiedOnceAndNeverMoreThanThereAreDrives) {
    Begin("slots=8 drives=2 moving=20");
    Tell("pause");
    for (int slot = 0; slot < 8; ++slot)
        Tell("put changer=5000C500ABCD00A1 slot=" + std::to_string(slot));
    Tell("resume");
    for (int slot = 0; slot < 8; ++slot) {
        AwaitIdentification(slot);
        EXPECT_EQ(TimesIdentified(slot), 1) << "slot " << slot;
    }
    EXPECT_LE(MostAtOnce(), 2);
}

TEST_F(IdentificationTest, OneDriveMeansOneIdentificationAtATime) {
    Begin("slots=4 drives=1 moving=20");
    Tell("pause");
    for (int slot = 0; slot < 4; ++slot)
        Tell("put changer=5000C500ABCD00A1 slot=" + std::to_string(slot));
    Tell("resume");
    for (int slot = 0; slot < 4; ++slot)
        AwaitIdentification(slot);
    EXPECT_EQ(MostAtOnce(), 1);
}

TEST_F(IdentificationTest, SecondDiscStartsWhileADriveIsFree) {
    Begin("slots=4 drives=2");
    Tell("fault on=\"mount disc\" do=late after=1000");
    Tell("put changer=5000C500ABCD00A1 slot=0");
    Server().Await("request", {{"command", "mount disc"}, {"storage-element-index", "0"}});
    Tell("put changer=5000C500ABCD00A1 slot=1");
    AwaitIdentification(1);
    AwaitIdentification(0);
    EXPECT_EQ(MostAtOnce(), 2);
}

TEST_F(IdentificationTest, OneIdentificationStartsEvenIfUsersOccupyAllDrives) {
    Begin("slots=4 drives=1 timeout=0");
    Tell("put changer=5000C500ABCD00A1 slot=0 identified=yes");
    Tell("load changer=5000C500ABCD00A1 slot=0");
    Server().Await("mounted", {{"slot", "0"}});
    Tell("put changer=5000C500ABCD00A1 slot=1");
    Server().Await("request", {{"command", "mount disc"}, {"storage-element-index", "1"}});
    Tell("eject changer=5000C500ABCD00A1 slot=0");
    AwaitIdentification(1);
    EXPECT_EQ(TimesIdentified(1), 1);
}

TEST_F(IdentificationTest, RequestedDiscIsPickedBeforeNeverIdentifiedDiscs) {
    Begin("slots=8 drives=1");
    Tell("pause");
    Tell("put changer=5000C500ABCD00A1 slot=1");
    Tell("put changer=5000C500ABCD00A1 slot=5 identified=yes");
    Tell("identify changer=5000C500ABCD00A1 slot=5");
    Tell("resume");
    AwaitIdentification(5);
    AwaitIdentification(1);
    EXPECT_THAT(MountedSlots(), ElementsAre("5", "1"));
}

TEST_F(IdentificationTest, IdentifiedDiscIsNotPickedUntilRequested) {
    Begin();
    Tell("put changer=5000C500ABCD00A1 slot=2 identified=yes");
    Tell("put changer=5000C500ABCD00A1 slot=3");
    AwaitIdentification(3);
    EXPECT_THAT(MountedSlots(), ElementsAre("3"));
    AwaitServedRequest(2);
    EXPECT_THAT(MountedSlots(), ElementsAre("3", "2"));
}

TEST_F(IdentificationTest, GlobalPreferenceDisablesAutomaticIdentificationButNotRequests) {
    StartServer();
    Tell("root-preferences identify-on-insert=no");
    StartDaemon();
    Tell("put changer=5000C500ABCD00A1 slot=0");
    Tell("put changer=5000C500ABCD00A1 slot=1");
    AwaitServedRequest(1);
    EXPECT_THAT(MountedSlots(), ElementsAre("1"));
    Tell("root-preferences identify-on-insert=yes");
    AwaitIdentification(0);
}

TEST_F(IdentificationTest, PreferenceOfTheChangerOverridesTheGlobalOne) {
    Begin();
    Tell("root-preferences identify-on-insert=no");
    Tell("preferences changer=5000C500ABCD00A1 identify-on-insert=yes");
    Tell("put changer=5000C500ABCD00A1 slot=0");
    AwaitIdentification(0);
    Tell("root-preferences identify-on-insert=yes");
    Tell("preferences changer=5000C500ABCD00A1 identify-on-insert=no");
    Tell("put changer=5000C500ABCD00A1 slot=1");
    AwaitServedRequest(0);
    EXPECT_THAT(MountedSlots(), Not(Contains("1")));
}

TEST_F(IdentificationTest, DiscOfAChangerThatIsNotReadyIsIdentifiedOnceReady) {
    Begin();
    Tell("ready changer=5000C500ABCD00A1 value=no");
    Tell("put changer=5000C500ABCD00A1 slot=0");
    Tell("add-changer changer=5000C500ABCD00B2 slots=2 drives=1");
    AwaitChangerAdded("5000C500ABCD00B2");
    EXPECT_THAT(MountedSlots(), IsEmpty());
    Tell("ready changer=5000C500ABCD00A1 value=yes");
    AwaitIdentification(0);
}

TEST_F(IdentificationTest, OnlyTheRootIsListedWithoutBuildOnIdentify) {
    Begin();
    Tell("put changer=5000C500ABCD00A1 slot=0 directories=6 depth=3");
    AwaitIdentification(0);
    const auto listings = Server().AllSoFar("listing", {{"slot", "0"}});
    ASSERT_FALSE(listings.empty());
    for (const Event& listing : listings)
        EXPECT_EQ(listing["path"], "/");
}

TEST_F(IdentificationTest, WholeDiscIsListedWithBuildOnIdentify) {
    Begin();
    Tell("preferences changer=5000C500ABCD00A1 build-on-identify=yes");
    Tell("put changer=5000C500ABCD00A1 slot=0 directories=6 depth=3");
    AwaitIdentification(0);
    for (const Event& line : Tell("show changer=5000C500ABCD00A1 slot=0 directories=yes"))
        if (line.kind == "directory")
            EXPECT_EQ(line["cached"], "yes") << line["path"];
    EXPECT_THAT(Server().AllSoFar("open"), IsEmpty()) << "files are never opened";
}

TEST_F(IdentificationTest, EveryPartitionIsListed) {
    Begin();
    Tell("put changer=5000C500ABCD00A1 slot=0 partitions=2");
    AwaitIdentification(0);
    EXPECT_FALSE(Server().AllSoFar("listed", {{"partition", "1"}}).empty());
    EXPECT_FALSE(Server().AllSoFar("listed", {{"partition", "2"}}).empty());
}

TEST_F(IdentificationTest, DiscWithoutFileSystemIsEjectedAtOnce) {
    Begin();
    Tell("put changer=5000C500ABCD00A1 slot=0 unformatted=1");
    AwaitIdentification(0);
    EXPECT_THAT(RequestsSoFar(),
                ElementsAre("clear status", "withdraw 0", "mount 0", "eject 0", "withdraw 0"));
    EXPECT_THAT(Server().AllSoFar("listing"), IsEmpty());
}

TEST_F(IdentificationTest, MediaRootThatAppearsLateIsListed) {
    Begin("slots=4 drives=1 appear=1500");
    Tell("put changer=5000C500ABCD00A1 slot=0");
    AwaitIdentification(0);
    EXPECT_FALSE(Server().AllSoFar("listed", {{"slot", "0"}, {"path", "/"}}).empty());
}

TEST_F(IdentificationTest, MountIsRepeatedWithoutStartMountWhileTheMountIsUnderWay) {
    Begin("slots=4 drives=1 moving=1500 timeout=0");
    Tell("put changer=5000C500ABCD00A1 slot=0");
    AwaitIdentification(0);
    const auto mounts = Server().AllSoFar("request", {{"command", "mount disc"}});
    ASSERT_GE(mounts.size(), 2U);
    EXPECT_TRUE(
        mounts[0].Has({{"mount-disc-clear-errors", "yes"}, {"mount-disc-start-mount", "yes"}}));
    EXPECT_EQ(mounts[1].values.count("mount-disc-clear-errors"), 0U);
    EXPECT_EQ(mounts[1].values.count("mount-disc-start-mount"), 0U);
}

TEST_F(IdentificationTest, MountIsRepeatedUnchangedWhileTheServerIsBusy) {
    Begin();
    Tell("fault on=\"mount disc\" do=error code=1021 count=2");
    Tell("put changer=5000C500ABCD00A1 slot=0");
    AwaitIdentification(0);
    const auto mounts = Server().AllSoFar("request", {{"command", "mount disc"}});
    ASSERT_EQ(mounts.size(), 3U);
    EXPECT_EQ(mounts[1].values.count("mount-disc-clear-errors"), 0U);
    EXPECT_EQ(mounts[1]["mount-disc-start-mount"], "yes");
    EXPECT_EQ(mounts[2]["mount-disc-start-mount"], "yes");
}

TEST_F(IdentificationTest, EjectIsRepeatedWhileTheServerIsBusy) {
    Begin();
    Tell("fault on=\"eject disc\" do=error code=1021 count=2");
    Tell("put changer=5000C500ABCD00A1 slot=0");
    AwaitIdentification(0);
    EXPECT_THAT(RequestsSoFar(), ElementsAre("clear status", "withdraw 0", "mount 0", "eject 0",
                                             "eject 0", "eject 0", "withdraw 0"));
}

} // namespace
