#include "simulator/Arguments.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <optional>
#include <set>
#include <string>

namespace simulator {
namespace {

Arguments Parse(const std::string& values) {
    return Arguments(ParseCommandLine("word " + values).values,
                     "changer=GUID [a=N] [b=N] c=N d=N e=N [f=N] [kept=yes] removed=yes set=N "
                     "[folder=PATH]");
}

TEST(ArgumentsTest, NumberOutsideTheTypeIsRefused) {
    Arguments arguments = Parse("a=65535 b=65536 c=0x1F d=-1 e=1x f=\"\"");
    EXPECT_EQ(arguments.RequiredNumber<std::uint16_t>("a"), 65535);
    EXPECT_EQ(arguments.RequiredNumber<std::uint16_t>("c"), 31);
    for (const char* key : {"b", "d", "e", "f", "missing"})
        EXPECT_THROW(arguments.RequiredNumber<std::uint16_t>(key), CommandError) << key;
    EXPECT_EQ(arguments.NumberOr<std::uint16_t>("missing", 7), 7);
}

TEST(ArgumentsTest, ChangerGuidIsParsedAsHexadecimal) {
    EXPECT_EQ(Parse("changer=10").RequiredGuid(), 16u);
    EXPECT_EQ(Parse("changer=FEDCBA9876543210").RequiredGuid(), 0xFEDCBA9876543210u);
    EXPECT_THROW(Parse("changer=1FEDCBA9876543210").RequiredGuid(), CommandError);
}

TEST(ArgumentsTest, SwitchOtherThanYesOrNoIsRefused) {
    EXPECT_TRUE(Parse("a=yes").RequiredSwitch("a"));
    EXPECT_FALSE(Parse("a=no").RequiredSwitch("a"));
    EXPECT_THROW(Parse("a=true").RequiredSwitch("a"), CommandError);
}

TEST(ArgumentsTest, UpdateKeepsMissingResetsAbsentAndSetsGivenValues) {
    std::optional<bool> kept = true;
    std::optional<bool> removed = true;
    std::optional<std::int32_t> set;
    Arguments arguments = Parse("removed=absent set=23");
    arguments.Update("kept", kept);
    arguments.Update("removed", removed);
    arguments.Update("set", set);
    EXPECT_EQ(kept, true);
    EXPECT_EQ(removed, std::nullopt);
    EXPECT_EQ(set, 23);
}

TEST(ArgumentsTest, NumberSetIsSplitAtCommas) {
    EXPECT_EQ(Parse("a=1,3").NumberSet("a"), (std::set<unsigned>{1, 3}));
    EXPECT_TRUE(Parse("").NumberSet("a").empty());
}

TEST(ArgumentsTest, KeyOutsideTheUsageIsRefused) {
    for (const char* values : {"older=1", "fold=1", "GUID=1"}) // parts of the usage
        EXPECT_THROW(Parse(values), CommandError) << values;
    EXPECT_NO_THROW(Parse("folder2=1"));
}

} // namespace
} // namespace simulator
