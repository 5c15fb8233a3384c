#include "changerctl/Table.h"

#include "changerctl/Failure.h"

#include <gmock/gmock.h>

using testing::ElementsAre;

namespace changerctl {
namespace {

std::vector<std::string> Texts(const std::vector<TextLine>& lines) {
    std::vector<std::string> texts;
    for (const TextLine& line : lines) {
        texts.emplace_back();
        for (const Span& span : line)
            texts.back() += span.text;
    }
    return texts;
}

Table MakeTable(const std::vector<std::string>& chosen = {}) {
    Table table({{"slot", Alignment::Right}, {"disc"}, {"place"}}, chosen);
    table.AddRow({{"0"}, {"kind 1"}, {"slot"}});
    table.AddRow({{"65534"}, {"-"}, {"drive"}});
    return table;
}

TEST(Table, ColumnsAreAsWideAsTheirWidestCell) {
    EXPECT_THAT(Texts(MakeTable().Lines(true)),
                ElementsAre(" SLOT  DISC    PLACE", "    0  kind 1  slot", "65534  -       drive"));
}

TEST(Table, HeadingWidensNoColumnWithoutHeader) {
    Table table({{"activity"}, {"x"}}, {});
    table.AddRow({{"-"}, {"1"}});
    EXPECT_THAT(Texts(table.Lines(false)), ElementsAre("-  1"));
}

TEST(Table, ChosenColumnsAreShownInTheirOrder) {
    EXPECT_THAT(Texts(MakeTable({"place", "slot"}).Lines(true)),
                ElementsAre("PLACE   SLOT", "slot       0", "drive  65534"));
}

TEST(Table, UnknownColumnIsAUsageErrorThatNamesAllColumns) {
    try {
        MakeTable({"slot", "size"});
        FAIL() << "no failure";
    } catch (const Failure& failure) {
        EXPECT_EQ(failure.Status(), ExitStatus::Usage);
        EXPECT_STREQ(failure.what(), "no column size; the columns are slot,disc,place");
    }
}

} // namespace
} // namespace changerctl
