#include "changerctl/Changer.h"

#include "XmlChangers.h"

#include <gmock/gmock.h>

using testing::ElementsAre;
using testing::Field;
using testing::IsEmpty;
using testing::Optional;
using testing::SizeIs;

namespace changerctl {
namespace {

// The only slot of a changer whose media dictionary has these members.
Slot ReadXmlSlot(const std::string& members) {
    return ReadXmlChanger("<key>Changer Media Info</key><array><dict>" + members +
                          "</dict></array>")
        .slots.at(0);
}

ClientStatus ReadXmlStatus(const std::string& members) {
    return ReadXmlChanger("<key>Changer Client Status</key><dict><key>trayprobed</key><dict>" +
                          members + "</dict></dict>")
        .statuses.at(0);
}

TEST(Changer, EachKnownKeyIsRead) {
    const Changer changer =
        ReadXmlChanger("<key>GUID</key><integer>-6052621292512931276</integer>"
                       "<key>Changer Ready</key><true/>"
                       "<key>Data Transfer Element Count</key><integer>2</integer>"
                       "<key>Changer Request Identification</key><true/>"
                       "<key>Changer Preferences</key><dict>"
                       "<key>IdentifyMediaOnInsert</key><false/>"
                       "<key>BuildDirCacheOnIdentify</key><true/>"
                       "<key>BuildDirCacheOnSchedule</key><true/>"
                       "<key>BuildDirCacheTimeHours</key><integer>3</integer>"
                       "<key>BuildDirCacheTimeMinutes</key><integer>30</integer></dict>");
    EXPECT_THAT(changer.guid, Optional(0xAC00C500ABCD1234ULL));
    EXPECT_THAT(changer.isReady, Optional(true));
    EXPECT_THAT(changer.drives, Optional(2));
    EXPECT_TRUE(changer.isWanted);
    EXPECT_EQ(changer.preferences, (Preferences{false, true, true, 3, 30}));
}

TEST(Changer, ValueThatIsMissingOrOfAnotherTypeIsAbsent) {
    for (const char* members :
         {"",
          "<key>GUID</key><string>1</string><key>Changer Ready</key><integer>1</integer>"
          "<key>Data Transfer Element Count</key><true/>"
          "<key>Changer Request Identification</key><integer>1</integer>"
          "<key>Changer Media Info</key><dict/><key>Changer Client Status</key><array/>"
          "<key>Changer Preferences</key><string/>",
          "<key>Changer Preferences</key><dict>"
          "<key>IdentifyMediaOnInsert</key><integer>1</integer>"
          "<key>BuildDirCacheTimeHours</key><string>3</string></dict>"})
        EXPECT_EQ(ReadXmlChanger(members), Changer{}) << members;
}

TEST(Changer, UnknownKeyIsIgnored) {
    EXPECT_EQ(ReadXmlChanger("<key>Robot Arms</key><integer>1</integer>"), Changer{});
}

TEST(Changer, WhatIsNoChangerIsLeftOut) {
    EXPECT_THAT(ReadXmlChangers("<array><string>A1</string><dict/><array/></array>"), SizeIs(1));
    EXPECT_THAT(ReadXmlChangers("<dict/>"), IsEmpty());
    EXPECT_THAT(ReadXmlChangers("<string>A1</string>"), IsEmpty());
    EXPECT_THAT(ReadChangers(nullptr), IsEmpty());
}

TEST(Slot, EachKnownKeyIsRead) {
    const Slot slot = ReadXmlSlot("<key>Media Storage Element Index</key><integer>-2</integer>"
                                  "<key>Media Kind</key><integer>1</integer>"
                                  "<key>Media Identify Time</key><integer>1700000000</integer>"
                                  "<key>Media Request Identification</key><true/>"
                                  "<key>Media Mount State</key><integer>2</integer>"
                                  "<key>Media Partition Info</key><array><dict/><dict/></array>");
    EXPECT_EQ(slot, (Slot{65534, 1, 1700000000, true, 2, 2}))
        << "numbers of 16 bits may arrive as signed ones";
}

TEST(Slot, WithoutANumberHasItsPositionInTheList) {
    const Changer changer = ReadXmlChanger("<key>Changer Media Info</key><array><dict/>"
                                           "<string/><dict/></array>");
    EXPECT_THAT(changer.slots, ElementsAre(Field(&Slot::number, 0), Field(&Slot::number, 2)));
}

TEST(Slot, IsFoundByItsNumberInAnyOrder) {
    Changer changer;
    for (const int number : {0, 1, 7, 3})
        changer.slots.push_back({.number = static_cast<SlotNumber>(number)});
    for (const Slot& slot : changer.slots)
        EXPECT_EQ(changer.FindSlot(slot.number), &slot);
    EXPECT_EQ(changer.FindSlot(2), nullptr);
    EXPECT_EQ(changer.FindSlot(4), nullptr);
}

TEST(Slot, OfKindZeroIsEmpty) {
    EXPECT_FALSE((Slot{.kind = 0, .identifyTime = 0}).HasDisc());
    EXPECT_FALSE((Slot{.kind = 0, .identifyTime = 0}).IsNew());
    EXPECT_EQ((Slot{.kind = 0, .mountState = 2}).DiscPlace(), std::nullopt);
    EXPECT_TRUE((Slot{.kind = 7}).HasDisc());
    EXPECT_TRUE(Slot{}.HasDisc()) << "unknown, not known to be empty";
}

TEST(Slot, IsNewOnlyIfNeverIdentified) {
    EXPECT_TRUE((Slot{.kind = 1, .identifyTime = 0}).IsNew());
    EXPECT_FALSE((Slot{.kind = 1, .identifyTime = 5}).IsNew());
    EXPECT_FALSE((Slot{.kind = 1}).IsNew());
}

TEST(Slot, DiscIsInItsSlotInTwoMountStatesOnly) {
    for (const std::uint32_t state : {0x0U, 0x40U})
        EXPECT_THAT((Slot{.kind = 1, .mountState = state}).DiscPlace(), Optional(Place::InSlot));
    for (const std::uint32_t state : {1U, 2U, 3U, 0x41U, 0x80U, 0xFFFFFFFFU})
        EXPECT_THAT((Slot{.kind = 1, .mountState = state}).DiscPlace(), Optional(Place::InDrive));
    EXPECT_EQ((Slot{.kind = 1}).DiscPlace(), std::nullopt);
}

TEST(ClientStatus, EachKnownKeyIsRead) {
    EXPECT_EQ(ReadXmlStatus("<key>Message</key><string>a &amp; b</string>"
                            "<key>Current Step</key><integer>-1</integer>"
                            "<key>Maximum Step</key><integer>10</integer>"
                            "<key>Abort Requested</key><false/>"),
              (ClientStatus{"trayprobed", "a & b", 65535, 10, false}));
}

TEST(ClientStatus, ValueThatIsMissingOrOfAnotherTypeIsAbsent) {
    const ClientStatus empty{.client = "trayprobed"};
    EXPECT_EQ(ReadXmlStatus(""), empty);
    EXPECT_EQ(ReadXmlStatus("<key>Message</key><integer>1</integer>"
                            "<key>Current Step</key><string>1</string>"
                            "<key>Maximum Step</key><integer>70000</integer>"
                            "<key>Abort Requested</key><integer>1</integer>"),
              empty);
}

TEST(ClientStatus, ClientsAreInTheOrderOfTheirNames) {
    const Changer changer = ReadXmlChanger(
        "<key>Changer Client Status</key><dict><key>b</key><dict/><key>c</key><string/>"
        "<key>a</key><dict/></dict>");
    EXPECT_THAT(changer.statuses,
                ElementsAre(Field(&ClientStatus::client, "a"), Field(&ClientStatus::client, "b")));
    EXPECT_EQ(changer.FindStatus("b"), &changer.statuses[1]);
    EXPECT_EQ(changer.FindStatus("c"), nullptr);
}

} // namespace
} // namespace changerctl
