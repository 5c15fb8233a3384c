#include "bench/ChangingFrame.h"

#include "bench/ChangerInfoGenerator.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

using bench::ChangerInfoGenerator;
using bench::ChangingFrame;

namespace {

std::vector<std::uint64_t> TimesIn(const ChangingFrame& frame) {
    const std::string key = "<key>Media Identify Time</key>";
    const std::string tag = "<integer>";
    const std::string& text = frame.Bytes();
    std::vector<std::uint64_t> times;
    for (std::size_t at = 0; (at = text.find(key, at)) != std::string::npos; ++at)
        times.push_back(std::strtoull(&text[text.find(tag, at) + tag.size()], nullptr, 10));
    return times;
}

} // namespace

TEST(ChangingFrame, NumberOfDiscsIsThatOfAllChangers) {
    EXPECT_EQ(ChangingFrame(ChangerInfoGenerator(3, 5)).CountDiscs(), 15U);
}

TEST(ChangingFrame, ChangeOfADiscChangesOnlyItsTime) {
    ChangingFrame frame(ChangerInfoGenerator(2, 3));
    std::vector<std::uint64_t> expected = TimesIn(frame);
    const std::size_t size = frame.Bytes().size();
    ASSERT_EQ(expected.size(), 6U);

    frame.ChangeDisc(4);
    expected[4] += 86'400;
    EXPECT_EQ(TimesIn(frame), expected);
    EXPECT_EQ(frame.Bytes().size(), size);
}

TEST(ChangingFrame, RepeatedChangesGiveNoTimeTwice) {
    constexpr std::size_t kChangers = 5;
    constexpr std::size_t kDiscs = kChangers * 13'107;
    ChangingFrame frame(ChangerInfoGenerator(kChangers, kDiscs / kChangers));
    const std::vector<std::uint64_t> first = TimesIn(frame);
    std::set<std::uint64_t> seen(first.begin(), first.end());
    EXPECT_EQ(seen.size(), kDiscs);
    for (std::size_t change = 1; change <= 2; ++change) {
        for (std::size_t disc = 0; disc < kDiscs; ++disc)
            frame.ChangeDisc(disc);
        const std::vector<std::uint64_t> times = TimesIn(frame);
        seen.insert(times.begin(), times.end());
        EXPECT_EQ(seen.size(), (1 + change) * kDiscs);
    }
}

TEST(ChangingFrame, ChangeOfAnUnknownDiscThrows) {
    ChangingFrame frame(ChangerInfoGenerator(2, 3));
    EXPECT_THROW(frame.ChangeDisc(6), std::out_of_range);
}
