#include "changerctl/Identifiers.h"

#include <gmock/gmock.h>

#include <numeric>

using testing::ElementsAre;
using testing::Optional;

namespace changerctl {
namespace {

TEST(Guid, HasSixteenDigitsInUpperCase) {
    EXPECT_EQ(FormatGuid(0xA1), "00000000000000A1");
    EXPECT_EQ(FormatGuid(0x5000C500ABCD1234), "5000C500ABCD1234");
    EXPECT_EQ(FormatGuid(~0ULL), "FFFFFFFFFFFFFFFF");
}

TEST(Guid, LeadingZerosCaseAndPrefixMakeNoDifference) {
    for (const char* text : {"A1", "a1", "0xA1", "0Xa1", "00000000000000A1", "0x00000000000000a1"})
        EXPECT_THAT(ParseGuid(text), Optional(0xA1ULL)) << text;
    EXPECT_THAT(ParseGuid("FFFFFFFFFFFFFFFF"), Optional(~0ULL));
}

TEST(Guid, AnyOtherTextIsNone) {
    for (const char* text :
         {"", "0x", "x", "A1 ", " A1", "-1", "+1", "G", "0x0x1", "00000000000000000", "1,2", "1-2"})
        EXPECT_EQ(ParseGuid(text), std::nullopt) << text;
}

TEST(Slots, NumbersAndRangesKeepTheirOrder) {
    EXPECT_THAT(ParseSlots("7"), Optional(ElementsAre(7)));
    EXPECT_THAT(ParseSlots("3-5"), Optional(ElementsAre(3, 4, 5)));
    EXPECT_THAT(ParseSlots("9,3-4,0"), Optional(ElementsAre(9, 3, 4, 0)));
    EXPECT_THAT(ParseSlots("4-4"), Optional(ElementsAre(4)));
}

TEST(Slots, RepeatedNumberIsTakenOnce) {
    EXPECT_THAT(ParseSlots("3,1-4,3"), Optional(ElementsAre(3, 1, 2, 4)));
}

TEST(Slots, LastNumberIsOneBelowTheOneForTheWholeChanger) {
    EXPECT_THAT(ParseSlots("65534"), Optional(ElementsAre(65534)));
    EXPECT_EQ(ParseSlots("65535"), std::nullopt);
    EXPECT_EQ(ParseSlots("65534-65535"), std::nullopt);
    std::vector<SlotNumber> all(std::size_t{kLastSlot} + 1);
    std::iota(all.begin(), all.end(), SlotNumber{0});
    EXPECT_THAT(ParseSlots("0-65534"), Optional(all));
}

TEST(Slots, AnyOtherTextIsNone) {
    for (const char* text : {"", ",", "1,", ",1", "1,,2", "-", "1-", "-1", "5-3", "1-2-3", "a",
                             "0x1", "1 ", "+1", "1.5", "70000", "99999999999999999999"})
        EXPECT_EQ(ParseSlots(text), std::nullopt) << text;
}

} // namespace
} // namespace changerctl
