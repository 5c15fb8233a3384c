#include "simulator/Changer.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>

namespace simulator {
namespace {

constexpr User kDaemon = {true, 100, 1};
constexpr User kOtherDaemon = {true, 200, 1};
constexpr User kPublicUser = {};

class ChangerTest : public testing::Test {
protected:
    void Put(SlotIndex slot, bool identified, unsigned partitions = 1) {
        NewDisc disc;
        disc.slot = slot;
        disc.name = "disc-" + std::to_string(slot);
        disc.identified = identified;
        for (unsigned count = 0; count < partitions; ++count)
            disc.partitions.push_back({MakeSyntheticTree({.seed = slot, .directories = 2}), true});
        changer_.Put(std::move(disc));
    }
    // Puts discs into the first slots.
    void PutDiscs(SlotIndex count, bool identified) {
        for (SlotIndex slot = 0; slot < count; ++slot)
            Put(slot, identified);
    }
    void SetTimes(int moving, int spinUp, int appear = 0) {
        changer_.SetTiming({{milliseconds(moving), milliseconds(spinUp)}, milliseconds(appear)});
    }
    void Pass(int time) {
        now_ += milliseconds(time);
        changer_.Settle();
    }
    ReplyCode Mount(SlotIndex slot, const User& user, bool mayStart = true) {
        return changer_.Mount({.slot = slot, .user = user, .mayStart = mayStart}).code;
    }
    ReplyCode Eject(SlotIndex slot, const User& user, bool overridePrivate = false) {
        return changer_.Eject({slot, user, overridePrivate}).code;
    }
    // The result of a listing; none while the listing is pending.
    std::shared_ptr<std::optional<int>> List(std::uint32_t volume, EntryIndex directory = 0) {
        auto result = std::make_shared<std::optional<int>>();
        changer_.List(volume, directory, [result](int error) { *result = error; });
        return result;
    }
    std::uint32_t FindRoot(const std::string& name) {
        for (const auto& volume : changer_.MediaRoots())
            if (volume->name == name)
                return volume->id;
        return 0;
    }
    std::string InfoXml() {
        return changer_.MakeInfo().ToXml();
    }

    int changes_ = 0;
    TimePoint now_;
    Events events_{-1};
    Changer changer_{{.guid = 0xFEDCBA9876543210, .slots = 8, .drives = 2},
                     events_,
                     [this] { ++changes_; },
                     [this] { return now_; }};
};

// ---- Mounting and ejecting ----

TEST_F(ChangerTest, WithoutTimesAMountSucceedsAtOnce) {
    Put(3, false, 2);
    const MountOutcome outcome = changer_.Mount({.slot = 3, .user = kDaemon, .mayStart = true});
    EXPECT_EQ(outcome.code, ReplyCode::Success);
    EXPECT_EQ(outcome.mediaRoot, "disc-3");
    EXPECT_EQ(Eject(3, kDaemon), ReplyCode::Success);
}

TEST_F(ChangerTest, MountIsUnderWayUntilTheDiscIsReadable) {
    SetTimes(300, 200);
    Put(3, false);
    EXPECT_EQ(Mount(3, kDaemon), ReplyCode::UnderWay);
    EXPECT_EQ(Mount(3, kDaemon, false), ReplyCode::UnderWay);
    Pass(499);
    EXPECT_EQ(Mount(3, kDaemon, false), ReplyCode::UnderWay);
    Pass(1);
    EXPECT_EQ(Mount(3, kDaemon, false), ReplyCode::Success);
}

TEST_F(ChangerTest, MountAndEjectAreBusyWhileTheRobotMoves) {
    SetTimes(300, 200);
    Put(1, false);
    Put(2, false);
    Mount(1, kDaemon);
    EXPECT_EQ(Mount(2, kOtherDaemon), ReplyCode::Busy);
    EXPECT_EQ(Eject(1, kDaemon), ReplyCode::Busy);
    Pass(300);
    EXPECT_EQ(Mount(2, kOtherDaemon), ReplyCode::UnderWay);
}

TEST_F(ChangerTest, MountIsBusyWhileAllDrivesAreMounted) {
    PutDiscs(3, false);
    Mount(0, kDaemon);
    Mount(1, kDaemon);
    EXPECT_EQ(Mount(2, kDaemon), ReplyCode::Busy);
    Eject(1, kDaemon);
    EXPECT_EQ(Mount(2, kDaemon), ReplyCode::Success);
}

TEST_F(ChangerTest, MountThatMayNotStartIsRefused) {
    Put(0, false);
    EXPECT_EQ(Mount(0, kDaemon, false), ReplyCode::NotMounted);
}

TEST_F(ChangerTest, EjectSucceedsWhenTheDiscIsInItsSlot) {
    SetTimes(300, 0);
    Put(0, false);
    Mount(0, kDaemon);
    Pass(300);
    EXPECT_EQ(Eject(0, kDaemon), ReplyCode::UnderWay);
    EXPECT_EQ(Eject(0, kDaemon), ReplyCode::Busy);
    EXPECT_EQ(Mount(0, kDaemon), ReplyCode::Busy);
    Pass(300);
    EXPECT_EQ(Eject(0, kDaemon), ReplyCode::Success);
}

TEST_F(ChangerTest, RequestedDriveIsUsed) {
    PutDiscs(2, false);
    MountRequest request = {.slot = 0, .drive = 1, .user = kDaemon};
    EXPECT_EQ(changer_.Mount(request).drive, 1);
    request.slot = 1;
    EXPECT_EQ(changer_.Mount(request).code, ReplyCode::Busy);
    request.drive = 2;
    EXPECT_EQ(changer_.Mount(request).code, ReplyCode::NotFound);
}

TEST_F(ChangerTest, MissingDiscSlotOrPartitionIsNotFound) {
    Put(0, false);
    EXPECT_EQ(Mount(1, kDaemon), ReplyCode::NotFound);
    EXPECT_EQ(Mount(800, kDaemon), ReplyCode::NotFound);
    EXPECT_EQ(Eject(1, kDaemon), ReplyCode::NotFound);
    EXPECT_EQ(changer_.Mount({.slot = 0, .partitionId = "9", .user = kDaemon}).code,
              ReplyCode::NotFound);
    EXPECT_EQ(changer_.RequestDiscIdentification(1, true).code, ReplyCode::NotFound);
}

// ---- Privacy ----

TEST_F(ChangerTest, PrivateMountRefusesOtherUsers) {
    Put(0, false);
    Mount(0, kDaemon);
    EXPECT_EQ(Mount(0, kOtherDaemon), ReplyCode::Private);
    EXPECT_EQ(Mount(0, kPublicUser), ReplyCode::Private);
    EXPECT_EQ(Mount(0, {true, 100, 2}), ReplyCode::Private) << "another family";
    EXPECT_EQ(Eject(0, kOtherDaemon), ReplyCode::Private);
    EXPECT_EQ(Eject(0, kPublicUser), ReplyCode::Private);
    EXPECT_EQ(Mount(0, kDaemon), ReplyCode::Success);
    EXPECT_EQ(Eject(0, kPublicUser, true), ReplyCode::Success);
    EXPECT_EQ(Mount(0, kOtherDaemon), ReplyCode::Success);
}

TEST_F(ChangerTest, PrivateMountIsBusyUntilThePublicOneEnds) {
    Put(0, false);
    EXPECT_EQ(Mount(0, kPublicUser), ReplyCode::Success);
    EXPECT_EQ(Mount(0, kPublicUser), ReplyCode::Success);
    EXPECT_EQ(Mount(0, kDaemon), ReplyCode::Busy);
    EXPECT_EQ(Eject(0, kPublicUser), ReplyCode::Success);
    EXPECT_EQ(Mount(0, kDaemon), ReplyCode::Success);
}

// ---- Identification ----

TEST_F(ChangerTest, RepeatedPrivateMountIdentifiesOnce) {
    Put(0, false, 2);
    EXPECT_TRUE(changer_.MediaRoots().empty());
    Mount(0, kDaemon);
    EXPECT_EQ(changer_.MediaRoots().size(), 2u);
    EXPECT_NE(InfoXml().find("Partition Has File System"), std::string::npos);
    const int changes = changes_;
    Mount(0, kDaemon);
    EXPECT_EQ(changes_, changes) << "a second mount must not identify again";
}

TEST_F(ChangerTest, PublicMountDoesNotIdentify) {
    Put(0, false);
    Mount(0, kPublicUser);
    EXPECT_TRUE(changer_.MediaRoots().empty());
    EXPECT_EQ(InfoXml().find("Partition Has File System"), std::string::npos);
}

TEST_F(ChangerTest, MediaRootsAppearAfterTheConfiguredTime) {
    SetTimes(0, 0, 50);
    Put(0, false);
    Mount(0, kDaemon);
    EXPECT_TRUE(changer_.MediaRoots().empty());
    Pass(49);
    EXPECT_TRUE(changer_.MediaRoots().empty());
    Pass(1);
    EXPECT_EQ(changer_.MediaRoots().size(), 1u);
}

TEST_F(ChangerTest, UnformattedPartitionHasNoMediaRoot) {
    NewDisc disc;
    disc.name = "disc";
    disc.identified = true;
    disc.partitions = {{MakeSyntheticTree({}), false}, {MakeSyntheticTree({}), true}};
    changer_.Put(std::move(disc));
    ASSERT_EQ(changer_.MediaRoots().size(), 1u);
    EXPECT_EQ(changer_.MediaRoots()[0]->name, "disc-2");
    EXPECT_EQ(changer_.MediaRoots()[0]->partitionId, "2");
}

// ---- Listings ----

TEST_F(ChangerTest, UncachedListingWaitsForTheRobot) {
    SetTimes(300, 200);
    Put(0, true);
    const auto first = List(FindRoot("disc-0"));
    EXPECT_EQ(*first, std::nullopt);
    Pass(500);
    EXPECT_EQ(*first, 0);
    EXPECT_EQ(*List(FindRoot("disc-0")), 0) << "the listing is cached";
}

TEST_F(ChangerTest, CachedListingNeedsNoDisc) {
    Put(0, true);
    List(FindRoot("disc-0"));
    SetTimes(300, 200);
    Eject(0, kPublicUser);
    EXPECT_EQ(*List(FindRoot("disc-0")), 0);
    const TreeEntry root = changer_.MediaRoots()[0]->tree->Entry(0);
    EXPECT_EQ(*List(FindRoot("disc-0"), root.firstChild), std::nullopt) << "another directory";
}

TEST_F(ChangerTest, ForgottenListingsNeedTheDiscAgain) {
    Put(0, true);
    List(FindRoot("disc-0"));
    Eject(0, kPublicUser);
    SetTimes(300, 200);
    changer_.Forget(0);
    EXPECT_EQ(*List(FindRoot("disc-0")), std::nullopt);
}

TEST_F(ChangerTest, ListingUsesTheDriveOfAnUnusedDisc) {
    PutDiscs(4, true);
    Mount(0, kDaemon);
    List(FindRoot("disc-1"));
    EXPECT_EQ(*List(FindRoot("disc-2")), 0) << "in the drive of disc 1, not of disc 0";
    EXPECT_EQ(Mount(0, kDaemon, false), ReplyCode::Success);
    EXPECT_EQ(Mount(1, kDaemon, false), ReplyCode::NotMounted);
    EXPECT_EQ(Mount(3, kDaemon), ReplyCode::Success) << "a mount takes it as well";
}

TEST_F(ChangerTest, ListingWaitsWhileAllDrivesAreMounted) {
    PutDiscs(3, true);
    Mount(0, kDaemon);
    Mount(1, kDaemon);
    const auto waiting = List(FindRoot("disc-2"));
    EXPECT_EQ(*waiting, std::nullopt);
    EXPECT_NE(InfoXml().find("<integer>64</integer>"), std::string::npos) << "its mount state";
    Eject(1, kDaemon);
    EXPECT_EQ(*waiting, 0);
}

TEST_F(ChangerTest, OpeningAFileNeedsTheDiscEachTime) {
    Put(0, true);
    std::optional<int> result;
    changer_.Open(FindRoot("disc-0"), 1, [&](int error) { result = error; });
    EXPECT_EQ(result, 0);
    Eject(0, kPublicUser);
    SetTimes(300, 0);
    result.reset();
    changer_.Open(FindRoot("disc-0"), 1, [&](int error) { result = error; });
    EXPECT_EQ(result, std::nullopt);
    Pass(300);
    EXPECT_EQ(result, 0);
}

TEST_F(ChangerTest, WaitersOfARemovedDiscFail) {
    SetTimes(300, 200);
    Put(0, true);
    const std::uint32_t volume = FindRoot("disc-0");
    const auto waiting = List(volume);
    changer_.Take(0);
    EXPECT_EQ(*waiting, EIO);
    EXPECT_EQ(*List(volume), ESTALE);
    EXPECT_EQ(changer_.FindVolume(volume), nullptr);
    Put(0, true);
    EXPECT_NE(FindRoot("disc-0"), volume) << "numbers are never used again";
}

TEST_F(ChangerTest, FailWaitersFailsPendingListings) {
    SetTimes(300, 200);
    Put(0, true);
    const auto waiting = List(FindRoot("disc-0"));
    changer_.FailWaiters();
    EXPECT_EQ(*waiting, EIO);
}

// ---- Published state ----

TEST_F(ChangerTest, InfoHasAllKeysOfAnEmptyChanger) {
    const Value info = changer_.MakeInfo();
    EXPECT_EQ(info.FindInteger("GUID"), -81985529216486896);
    EXPECT_TRUE(info.IsTrue("Changer Ready"));
    EXPECT_EQ(info.FindInteger("Data Transfer Element Count"), 2);
    EXPECT_EQ(info.Describe("Changer Request Identification"), "no");
    EXPECT_EQ(info.Describe("Changer Client Status"), "<dictionary>");
    EXPECT_EQ(info.Describe("Changer Preferences"), "<dictionary>");
    EXPECT_EQ(info.Describe("Changer Media Info"), "<array>");
}

TEST_F(ChangerTest, AbortRequestLastsUntilTheNextStatus) {
    EXPECT_THROW(changer_.RequestAbort("trayprobed", false), CommandError);
    changer_.SetClientStatus("trayprobed", {"Building", 1, 3, false});
    EXPECT_EQ(InfoXml().find("<true/>"), InfoXml().rfind("<true/>")) << "ready, nothing else";
    changer_.RequestAbort("trayprobed", false);
    EXPECT_NE(InfoXml().find("<true/>"), InfoXml().rfind("<true/>"));
    changer_.SetClientStatus("trayprobed", {"Building", 2, 3, false});
    EXPECT_EQ(InfoXml().find("<true/>"), InfoXml().rfind("<true/>"));
    changer_.SetClientStatus("trayprobed", {});
    EXPECT_EQ(InfoXml().find("trayprobed"), std::string::npos);
}

TEST_F(ChangerTest, EveryChangeOfTheStateIsReported) {
    const auto notifies = [&](const auto& change) {
        const int before = std::exchange(changes_, 0);
        change();
        return std::exchange(changes_, before) > 0;
    };
    EXPECT_TRUE(notifies([&] { changer_.SetReady(false); }));
    EXPECT_TRUE(notifies([&] { Put(0, true); }));
    EXPECT_TRUE(notifies([&] { changer_.RequestDiscIdentification(0, true); }));
    EXPECT_FALSE(notifies([&] { changer_.RequestDiscIdentification(0, true); }));
    EXPECT_TRUE(notifies([&] { changer_.RequestChangerIdentification(true); }));
    EXPECT_TRUE(notifies([&] { changer_.SetPreferences({.hours = 3}); }));
    EXPECT_TRUE(notifies([&] { Mount(0, kDaemon); }));
    EXPECT_FALSE(notifies([&] { List(FindRoot("disc-0")); })) << "the disc is in its drive";
    EXPECT_TRUE(notifies([&] { Eject(0, kDaemon); }));
    EXPECT_TRUE(notifies([&] { changer_.Take(0); }));
}

TEST_F(ChangerTest, WaitForChangeEndsAtAChangeAndAtTheDeadline) {
    const auto generation = changer_.Generation();
    EXPECT_FALSE(changer_.WaitForChange(generation, std::chrono::steady_clock::now(), {}));
    changer_.SetReady(false);
    EXPECT_TRUE(changer_.WaitForChange(generation, TimePoint::max(), {}));
}

} // namespace
} // namespace simulator
