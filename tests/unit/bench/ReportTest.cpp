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

const std::string kMissed = "## Missed goals\n\n- Section: figure: ";
const std::string kInconclusive = "## Inconclusive results\n\n- Section: figure: ";
const std::string kNoneMissed = "## Missed goals\n\nNone.\n";

Spread Range(double low, double median, double high) {
    return Spread(std::vector<double>{low, low, median, high, high});
}

std::string AtMost(double goal, const Spread& measured) {
    Report report;
    report.BeginSection("Section", "How.");
    report.AddAtMost("figure", goal, measured, "", "");
    return report.FormatSummary();
}

std::string AtLeast(double goal, const Spread& measured) {
    Report report;
    report.BeginSection("Section", "How.");
    report.AddAtLeast("figure", goal, measured, "", "");
    return report.FormatSummary();
}

} // namespace

TEST(Report, MedianAtTheGoalMeetsIt) {
    EXPECT_EQ(AtMost(100, Range(99, 100, 101)), kNoneMissed);
    EXPECT_EQ(AtLeast(100, Range(99, 100, 101)), kNoneMissed);
}

TEST(Report, NarrowRangeWithAMedianBeyondTheGoalMissesIt) {
    EXPECT_THAT(AtMost(100, Range(99, 101, 102)), HasSubstr(kMissed + "101, goal ≤ 100\n"));
    EXPECT_THAT(AtLeast(100, Range(98, 99, 101)), HasSubstr(kMissed + "99, goal ≥ 100\n"));
}

TEST(Report, WideRangeThatContainsTheGoalIsInconclusive) {
    for (const double median : {99.0, 101.0}) {
        EXPECT_EQ(AtMost(100, Range(90, median, 110)),
                  kNoneMissed + "\n" + kInconclusive + InUnits(median, "") + ", goal ≤ 100\n");
        EXPECT_EQ(AtLeast(100, Range(90, median, 110)),
                  kNoneMissed + "\n" + kInconclusive + InUnits(median, "") + ", goal ≥ 100\n");
    }
}

TEST(Report, WideRangeOnOneSideOfTheGoalMeetsOrMissesIt) {
    EXPECT_EQ(AtMost(100, Range(60, 80, 99)), kNoneMissed);
    EXPECT_THAT(AtMost(100, Range(101, 120, 140)), HasSubstr(kMissed));
    EXPECT_EQ(AtLeast(100, Range(101, 120, 140)), kNoneMissed);
    EXPECT_THAT(AtLeast(100, Range(60, 80, 99)), HasSubstr(kMissed));
}

TEST(Report, SingleValueMeetsOrMissesTheGoalAndHasNoRange) {
    EXPECT_EQ(AtMost(0, Spread(0)), kNoneMissed);
    EXPECT_THAT(AtMost(0, Spread(1)), HasSubstr(kMissed + "1, goal ≤ 0\n"));

    Report report;
    report.BeginSection("Section", "How.");
    report.AddAtMost("figure", 5, Spread(4), "MiB", "peers");
    EXPECT_THAT(report.Format(), HasSubstr("| figure | 4 MiB |  | ≤ 5 MiB | peers |\n"));
}

TEST(Report, ResultWithoutGoalIsNotInTheSummary) {
    Report report;
    report.BeginSection("Section", "How.");
    report.AddWithoutGoal("figure", Range(1, 1000, 2000), "", "");
    EXPECT_EQ(report.FormatSummary(), kNoneMissed);
}

TEST(Report, TableMarksAMissedGoal) {
    Report report;
    report.BeginSection("Section", "How.");
    report.AddAtMost("figure", 1, Range(1.5, 2, 2.25), "s", "");
    EXPECT_THAT(report.Format(), HasSubstr("## Section\n\nHow.\n\n"));
    EXPECT_THAT(report.Format(), HasSubstr("| figure | 2 s **MISSED** | 1.50 to 2.25 (n = 5) | "));
}

TEST(Report, PictureFollowsTheTableOfItsSection) {
    Report report;
    report.BeginSection("Section", "How.");
    report.ShowPicture("picture.svg", "Text");
    report.AddWithoutGoal("figure", Spread(1), "", "");
    report.BeginSection("Next", "How.");
    EXPECT_THAT(report.Format(),
                HasSubstr("| figure | 1 |  |  |  |\n\n![Text](picture.svg)\n\n## Next"));
}

TEST(InUnits, ValueHasThreeDigitsOrAllBeforeThePoint) {
    EXPECT_EQ(InUnits(0.8149, ""), "0.81");
    EXPECT_EQ(InUnits(1.005, "KiB"), "1.00 KiB");
    EXPECT_EQ(InUnits(12.34, "MiB"), "12.3 MiB");
    EXPECT_EQ(InUnits(123.4, ""), "123");
    EXPECT_EQ(InUnits(5, "discs"), "5 discs");
}

TEST(InUnits, ThousandsAreSeparatedByCommas) {
    EXPECT_EQ(InUnits(1234, ""), "1,234");
    EXPECT_EQ(InUnits(65535, "discs"), "65,535 discs");
    EXPECT_EQ(InUnits(1234567.8, ""), "1,234,568");
    EXPECT_EQ(InUnits(-123, ""), "-123");
    EXPECT_EQ(InUnits(-123456, ""), "-123,456");
}

TEST(InTime, UnitFitsTheValue) {
    EXPECT_EQ(InTime(1.5), "1.50 s");
    EXPECT_EQ(InTime(0.0123), "12.3 ms");
    EXPECT_EQ(InTime(0.000456), "456 µs");
}
