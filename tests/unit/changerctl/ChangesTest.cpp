#include "changerctl/Changes.h"

#include <gmock/gmock.h>

using testing::ElementsAre;
using testing::IsEmpty;

namespace changerctl {
namespace {

// A ready changer with two discs.
Changer MakeChanger(ChangerGuid guid = 0xA1) {
    Changer changer;
    changer.guid = guid;
    changer.isReady = true;
    changer.slots = {{0, 1, 5, false, 0, 1}, {1, 1, 0, false, 0, 0}};
    return changer;
}

std::vector<std::string> Texts(const std::vector<Changer>& former,
                               const std::vector<Changer>& present) {
    std::vector<std::string> texts;
    for (const Change& change : FindChanges(former, present))
        texts.push_back(change.text);
    return texts;
}

// The texts of the changes that `change` makes to the changer.
template<typename Function>
std::vector<std::string> TextsOf(const Function& change, const Changer& former = MakeChanger()) {
    Changer present = former;
    change(present);
    return Texts({former}, {present});
}

TEST(Changes, EqualStatesHaveNone) {
    EXPECT_THAT(Texts({MakeChanger()}, {MakeChanger()}), IsEmpty());
}

TEST(Changes, ChangersAreAddedAndRemoved) {
    EXPECT_THAT(Texts({}, {MakeChanger()}), ElementsAre("added"));
    EXPECT_THAT(Texts({MakeChanger()}, {}), ElementsAre("removed"));
    EXPECT_THAT(Texts({MakeChanger(1)}, {MakeChanger(2)}), ElementsAre("removed", "added"));
}

TEST(Changes, ChangerWithoutGuidIsLeftOut) {
    EXPECT_THAT(Texts({}, {Changer{}}), IsEmpty());
    EXPECT_THAT(Texts({Changer{}}, {}), IsEmpty());
}

TEST(Changes, EachValueOfASlotIsALine) {
    EXPECT_THAT(TextsOf([](Changer& changer) { changer.slots[1].mountState = 2; }),
                ElementsAre("slot 1 drive"));
    EXPECT_THAT(TextsOf([](Changer& changer) { changer.slots[1].isWanted = true; }),
                ElementsAre("slot 1 wanted yes"));
    EXPECT_THAT(TextsOf([](Changer& changer) {
                    changer.slots[0].mountState = 1;
                    changer.slots[0].isWanted = true;
                }),
                ElementsAre("slot 0 drive", "slot 0 wanted yes"));
    EXPECT_THAT(TextsOf([](Changer& changer) { changer.slots[0] = {.number = 0, .kind = 0}; }),
                ElementsAre("slot 0 empty", "slot 0 -", "slot 0 identified -"));
}

TEST(Changes, MountStateOfTheSamePlaceIsNone) {
    EXPECT_THAT(TextsOf([](Changer& changer) { changer.slots[1].mountState = 0x40; }), IsEmpty());
}

TEST(Changes, StatusAppearsAdvancesAndGoes) {
    Changer building = MakeChanger();
    building.statuses = {{"trayprobed", "Building", 5, 10, false}};
    EXPECT_THAT(Texts({MakeChanger()}, {building}),
                ElementsAre("status trayprobed 5/10 \"Building\""));
    EXPECT_THAT(
        TextsOf([](Changer& changer) { changer.statuses[0].abortRequested = true; }, building),
        ElementsAre("status trayprobed 5/10 \"Building\" abort requested"));
    EXPECT_THAT(Texts({building}, {MakeChanger()}), ElementsAre("status trayprobed gone"));
}

TEST(Changes, StatusShowsWhatThereIs) {
    const auto textOf = [](const ClientStatus& status) {
        return TextsOf([&](Changer& changer) { changer.statuses = {status}; });
    };
    EXPECT_THAT(textOf({.client = "c"}), ElementsAre("status c"));
    EXPECT_THAT(textOf({.client = "c", .currentStep = 3}), ElementsAre("status c 3/?"));
    EXPECT_THAT(textOf({.client = "\033", .message = "%s\n"}),
                ElementsAre("status \\x1B \"%s\\n\""));
}

TEST(Changes, ReadinessBuildRequestAndPreferencesAreLines) {
    EXPECT_THAT(TextsOf([](Changer& changer) { changer.isReady = false; }),
                ElementsAre("ready no"));
    EXPECT_THAT(TextsOf([](Changer& changer) { changer.isWanted = true; }),
                ElementsAre("build wanted yes"));
    EXPECT_THAT(TextsOf([](Changer& changer) { changer.preferences.buildHours = 3; }),
                ElementsAre("preferences changed"));
}

TEST(Changes, DetailsNameTheEventAndTheNewValues) {
    Changer present = MakeChanger();
    present.slots[1].mountState = 2;
    const auto changes = FindChanges({MakeChanger()}, {present});
    ASSERT_EQ(changes.size(), 1U);
    EXPECT_EQ(changes[0].changer, 0xA1U);
    EXPECT_EQ(changes[0].details["event"], "slot");
    EXPECT_EQ(changes[0].details["slot"], 1);
    EXPECT_EQ(changes[0].details["place"], "drive");
}

TEST(Changes, ServerIsGoneOrBack) {
    EXPECT_EQ(ServerChange(false).text, "server gone");
    EXPECT_EQ(ServerChange(true).details["event"], "server_back");
    EXPECT_EQ(ServerChange(true).changer, std::nullopt);
}

} // namespace
} // namespace changerctl
