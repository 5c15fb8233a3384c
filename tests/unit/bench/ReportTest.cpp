#include "bench/Report.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

using bench::InTime;
using bench::InUnits;
using bench::Report;
using bench::Spread;
using testing::HasSubstr;
using testing::Not;

namespace {

const std::string kShort = "## What falls short\n\n- Section: figure: ";
const std::string kBusy = "## What the machine was too busy to tell\n\n- Section: figure: ";
const std::string kNothing = "## What falls short\n\nNothing.\n";

Spread Middle(double low, double median, double high) {
    return Spread(std::vector<double>{low, low, median, high, high});
}

std::string AtMost(double goal, const Spread& measured) {
    Report report;
    report.BeginSection("Section", "How.");
    report.AddAtMost("figure", goal, measured, "", "");
    return report.WriteShortfalls();
}

std::string AtLeast(double goal, const Spread& measured) {
    Report report;
    report.BeginSection("Section", "How.");
    report.AddAtLeast("figure", goal, measured, "", "");
    return report.WriteShortfalls();
}

} // namespace

TEST(Report, MedianAtTheGoalMeetsIt) {
    EXPECT_EQ(AtMost(100, Middle(99, 100, 101)), kNothing);
    EXPECT_EQ(AtLeast(100, Middle(99, 100, 101)), kNothing);
}

TEST(Report, NarrowMiddleHalfWithAMedianBeyondTheGoalFallsShort) {
    EXPECT_THAT(AtMost(100, Middle(99, 101, 102)), HasSubstr(kShort + "101, wanted ≤ 100\n"));
    EXPECT_THAT(AtLeast(100, Middle(98, 99, 101)), HasSubstr(kShort + "99, wanted ≥ 100\n"));
}

TEST(Report, WideMiddleHalfWithTheGoalInsideIsTooBusyToTell) {
    for (const double median : {99.0, 101.0}) {
        EXPECT_EQ(AtMost(100, Middle(90, median, 110)),
                  kNothing + "\n" + kBusy + InUnits(median, "") + ", wanted ≤ 100\n");
        EXPECT_EQ(AtLeast(100, Middle(90, median, 110)),
                  kNothing + "\n" + kBusy + InUnits(median, "") + ", wanted ≥ 100\n");
    }
}

TEST(Report, WideMiddleHalfOnOneSideOfTheGoalIsJudged) {
    EXPECT_EQ(AtMost(100, Middle(60, 80, 99)), kNothing);
    EXPECT_THAT(AtMost(100, Middle(101, 120, 140)), HasSubstr(kShort));
    EXPECT_EQ(AtLeast(100, Middle(101, 120, 140)), kNothing);
    EXPECT_THAT(AtLeast(100, Middle(60, 80, 99)), HasSubstr(kShort));
}

TEST(Report, SingleValueIsJudgedAndHasNoMiddleHalf) {
    EXPECT_EQ(AtMost(0, Spread(0)), kNothing);
    EXPECT_THAT(AtMost(0, Spread(1)), HasSubstr(kShort + "1, wanted ≤ 0\n"));

    Report report;
    report.BeginSection("Section", "How.");
    report.AddAtMost("figure", 5, Spread(4), "MiB", "peers");
    EXPECT_THAT(report.Write(), HasSubstr("| figure | 4 MiB |  | ≤ 5 MiB | peers |\n"));
}

TEST(Report, FigureWithoutGoalIsNeverShort) {
    Report report;
    report.BeginSection("Section", "How.");
    report.AddUnjudged("figure", Middle(1, 1000, 2000), "", "");
    EXPECT_EQ(report.WriteShortfalls(), kNothing);
}

TEST(Report, TableMarksWhatFallsShort) {
    Report report;
    report.BeginSection("Section", "How.");
    report.AddAtMost("figure", 1, Middle(1.5, 2, 2.25), "s", "");
    EXPECT_THAT(report.Write(), HasSubstr("## Section\n\nHow.\n\n"));
    EXPECT_THAT(report.Write(), HasSubstr("| figure | 2 s **SHORT** | 1.50 to 2.25 (n = 5) | "));
}

TEST(Report, PictureFollowsTheTableOfItsSection) {
    Report report;
    report.BeginSection("Section", "How.");
    report.ShowPicture("picture.svg", "Text");
    report.AddUnjudged("figure", Spread(1), "", "");
    report.BeginSection("Next", "How.");
    EXPECT_THAT(report.Write(),
                HasSubstr("| figure | 1 |  |  |  |\n\n![Text](picture.svg)\n\n## Next"));
}

TEST(InUnits, HasThreeDigitsOrAllBeforeThePoint) {
    EXPECT_EQ(InUnits(0.8149, ""), "0.81");
    EXPECT_EQ(InUnits(1.005, "KiB"), "1.00 KiB");
    EXPECT_EQ(InUnits(12.34, "MiB"), "12.3 MiB");
    EXPECT_EQ(InUnits(123.4, ""), "123");
    EXPECT_EQ(InUnits(5, "discs"), "5 discs");
}

TEST(InUnits, SeparatesThousands) {
    EXPECT_EQ(InUnits(1234, ""), "1,234");
    EXPECT_EQ(InUnits(65535, "discs"), "65,535 discs");
    EXPECT_EQ(InUnits(1234567.8, ""), "1,234,568");
    EXPECT_EQ(InUnits(-123, ""), "-123");
    EXPECT_EQ(InUnits(-123456, ""), "-123,456");
}

TEST(InTime, ChoosesTheUnit) {
    EXPECT_EQ(InTime(1.5), "1.50 s");
    EXPECT_EQ(InTime(0.0123), "12.3 ms");
    EXPECT_EQ(InTime(0.000456), "456 µs");
}
