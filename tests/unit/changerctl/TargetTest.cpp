#include "changerctl/Target.h"

#include "changerctl/Failure.h"

#include <gmock/gmock.h>

#include <utility>

using testing::ElementsAre;
using testing::HasSubstr;

namespace changerctl {
namespace {

using Arguments = std::vector<std::string>;

Changer MakeChanger(ChangerGuid guid, SlotNumber slots) {
    Changer changer;
    changer.guid = guid;
    for (SlotNumber number = 0; number < slots; ++number)
        changer.slots.push_back({.number = number});
    return changer;
}

const std::vector<Changer> kOne{MakeChanger(0x10, 12)};
const std::vector<Changer> kTwo{MakeChanger(0xA1, 12), MakeChanger(0xB7, 20)};

// The exit status and the message of what `select` throws.
template<typename Select>
std::pair<ExitStatus, std::string> FailureOf(const Select& select) {
    try {
        select();
    } catch (const Failure& failure) {
        return {failure.Status(), failure.what()};
    }
    return {ExitStatus::Done, "no failure"};
}

std::pair<ExitStatus, std::string> ChangerFailure(const std::vector<Changer>& changers,
                                                  const Arguments& arguments) {
    return FailureOf([&] { SelectChanger(changers, arguments); });
}

std::pair<ExitStatus, std::string> SlotFailure(const std::vector<Changer>& changers,
                                               const Arguments& arguments) {
    return FailureOf([&] { SelectSlots(changers, arguments); });
}

MATCHER_P2(Fails, status, text, "") {
    return arg.first == status &&
           testing::ExplainMatchResult(HasSubstr(text), arg.second, result_listener);
}

TEST(SelectChanger, OnlyOneMayBeLeftOut) {
    EXPECT_EQ(SelectChanger(kOne, {}).guid, 0x10U);
    EXPECT_EQ(SelectChanger(kTwo, {"b7"}).guid, 0xB7U);
}

TEST(SelectChanger, WithoutNameAmongSeveralListsThem) {
    EXPECT_THAT(ChangerFailure(kTwo, {}),
                Fails(ExitStatus::Usage, "00000000000000A1, 00000000000000B7"));
}

TEST(SelectChanger, UnknownOneIsNotFound) {
    EXPECT_THAT(ChangerFailure(kTwo, {"C1"}), Fails(ExitStatus::NotFound, "00000000000000C1"));
    EXPECT_THAT(ChangerFailure({}, {}), Fails(ExitStatus::NotFound, "no changer"));
    EXPECT_THAT(ChangerFailure({Changer{}}, {}), Fails(ExitStatus::NotFound, "no GUID"));
}

TEST(SelectChanger, OtherTextAndSecondArgumentAreUsageErrors) {
    EXPECT_THAT(ChangerFailure(kOne, {"first"}), Fails(ExitStatus::Usage, "first is no changer"));
    EXPECT_THAT(ChangerFailure(kOne, {"10", "11"}), Fails(ExitStatus::Usage, "11"));
}

TEST(SelectSlots, BelongToTheNamedChangerOrToTheOnlyOne) {
    const Target named = SelectSlots(kTwo, {"B7", "19", "3-4"});
    EXPECT_EQ(named.changer, 0xB7U);
    EXPECT_THAT(named.slots, ElementsAre(19, 3, 4));
    const Target only = SelectSlots(kOne, {"7", "9", "7"});
    EXPECT_EQ(only.changer, 0x10U);
    EXPECT_THAT(only.slots, ElementsAre(7, 9));
}

TEST(SelectSlots, SingleArgumentIsASlotEvenIfAChangerHasThatNumber) {
    EXPECT_THAT(SelectSlots(kOne, {"10"}).slots, ElementsAre(10));
}

TEST(SelectSlots, FirstArgumentThatIsAChangerAndASlotIsAUsageError) {
    EXPECT_THAT(SlotFailure(kOne, {"10", "11"}), Fails(ExitStatus::Usage, "write 0x10"));
    EXPECT_THAT(SelectSlots(kOne, {"10,11"}).slots, ElementsAre(10, 11));
    EXPECT_THAT(SelectSlots(kOne, {"0x10", "11"}).slots, ElementsAre(11));
    EXPECT_THAT(SelectSlots(kOne, {"0000000000000010", "11"}).slots, ElementsAre(11));
    EXPECT_THAT(SelectSlots(kOne, {"11", "10"}).slots, ElementsAre(11, 10));
}

TEST(SelectSlots, SlotThatTheChangerDoesNotListIsNotFound) {
    EXPECT_EQ(SlotFailure(kTwo, {"A1", "3", "99"}),
              std::make_pair(ExitStatus::NotFound,
                             std::string("00000000000000A1 has no slot 99 (0 to 11)")));
    EXPECT_THAT(SlotFailure({MakeChanger(1, 0)}, {"0"}), Fails(ExitStatus::NotFound, "shows none"));
}

TEST(SelectSlots, NoneIsAUsageErrorSinceTheRequestWouldBeABuild) {
    EXPECT_THAT(SlotFailure(kOne, {}), Fails(ExitStatus::Usage, "no slot"));
    EXPECT_THAT(SlotFailure(kTwo, {"A1"}), Fails(ExitStatus::Usage, "name one of them"));
    EXPECT_THAT(SlotFailure(kOne, {"A1"}), Fails(ExitStatus::Usage, "A1 is no slot"));
}

TEST(SelectSlots, OtherTextIsAUsageError) {
    EXPECT_THAT(SlotFailure(kTwo, {"A1", "seven"}), Fails(ExitStatus::Usage, "seven is no slot"));
    EXPECT_THAT(SlotFailure(kTwo, {"A1", "65535"}), Fails(ExitStatus::Usage, "65535 is no slot"));
    EXPECT_THAT(SlotFailure(kTwo, {"A1", ""}), Fails(ExitStatus::Usage, " is no slot"));
}

} // namespace
} // namespace changerctl
