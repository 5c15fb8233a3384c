#include "simulator/Mechanics.h"

#include <gtest/gtest.h>

#include <chrono>
#include <optional>

namespace simulator {
namespace {

constexpr TimePoint kStart{};

TEST(MechanicsTest, LoadAndUnloadPassThroughAllPhasesOnTime) {
    Mechanics mechanics(2);
    mechanics.SetTiming({milliseconds(300), milliseconds(200)});
    mechanics.BeginLoad(7, 1, kStart);
    EXPECT_EQ(mechanics.PhaseOf(7), Phase::Loading);
    EXPECT_FALSE(mechanics.IsRobotIdle());
    EXPECT_FALSE(mechanics.Advance(kStart + milliseconds(299)));

    ASSERT_TRUE(mechanics.Advance(kStart + milliseconds(300)));
    EXPECT_EQ(mechanics.PhaseOf(7), Phase::SpinningUp);
    EXPECT_TRUE(mechanics.IsRobotIdle());
    EXPECT_EQ(mechanics.NextDue(), kStart + milliseconds(500));

    ASSERT_TRUE(mechanics.Advance(kStart + milliseconds(500)));
    EXPECT_EQ(mechanics.PhaseOf(7), Phase::Readable);
    EXPECT_EQ(mechanics.FindDriveOf(7), 1);
    EXPECT_EQ(mechanics.NextDue(), std::nullopt);

    mechanics.BeginUnload(7, kStart + milliseconds(1000));
    EXPECT_FALSE(mechanics.IsRobotIdle());
    ASSERT_TRUE(mechanics.Advance(kStart + milliseconds(1300)));
    EXPECT_EQ(mechanics.PhaseOf(7), Phase::InSlot);
    EXPECT_EQ(mechanics.FindSlotIn(1), std::nullopt);
}

TEST(MechanicsTest, LateAdvancePerformsStepsInOrderOfTheirDueTimes) {
    Mechanics mechanics(2);
    mechanics.SetTiming({milliseconds(100), milliseconds(1000)});
    mechanics.BeginLoad(0, 0, kStart);
    mechanics.Advance(kStart + milliseconds(100));
    mechanics.BeginLoad(1, 1, kStart + milliseconds(500));
    const TimePoint late = kStart + milliseconds(5000);

    const Step second = *mechanics.Advance(late);
    EXPECT_EQ(second.slot, 1);
    EXPECT_EQ(second.reached, Phase::SpinningUp);
    EXPECT_EQ(mechanics.Advance(late)->slot, 0);
    EXPECT_EQ(mechanics.NextDue(), kStart + milliseconds(1600));
    EXPECT_EQ(mechanics.Advance(late)->slot, 1);
    EXPECT_FALSE(mechanics.Advance(late));
}

TEST(MechanicsTest, DroppedDiscFreesDriveAndRobot) {
    Mechanics mechanics(1);
    mechanics.SetTiming({milliseconds(100), milliseconds(0)});
    mechanics.BeginLoad(4, 0, kStart);
    mechanics.Drop(4);
    EXPECT_TRUE(mechanics.IsRobotIdle());
    EXPECT_FALSE(mechanics.Advance(kStart + milliseconds(100)));
    EXPECT_EQ(mechanics.FindSlotIn(0), std::nullopt);
}

} // namespace
} // namespace simulator
