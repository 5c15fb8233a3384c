#ifndef SIMULATOR_MECHANICS_H
#define SIMULATOR_MECHANICS_H

/*
 * The moving parts of a changer: one robot, and drives that spin discs up.
 *
 * A disc passes through these phases:
 *     InSlot -> Loading -> SpinningUp -> Readable -> Unloading -> InSlot
 * Loading and Unloading need the robot, which performs one move at a time. There are no timers and
 * no locks: the owner calls Advance() until no step is due. Each step is computed from the due time
 * of the previous one, not from the time of the call. If all times are 0, a loaded disc is readable
 * after the calls of Advance().
 */

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

namespace simulator {

using TimePoint = std::chrono::steady_clock::time_point;
using std::chrono::milliseconds;

using SlotIndex = std::uint16_t;
using DriveIndex = std::uint16_t;

enum class Phase { InSlot, Loading, SpinningUp, Readable, Unloading };

struct DriveTiming {
    milliseconds moving{0};
    milliseconds spinUp{0};
};

/* A disc has entered a phase. */
struct Step {
    SlotIndex slot;
    DriveIndex drive;
    Phase reached;
};

class Mechanics {
public:
    // All drives are empty.
    explicit Mechanics(std::size_t driveCount) : drives_(driveCount) {}

    // Replaces the times of all steps that begin later.
    void SetTiming(DriveTiming timing) {
        timing_ = timing;
    }

    // True if no disc is Loading or Unloading.
    bool IsRobotIdle() const;
    // The number of drives, empty or not.
    std::size_t DriveCount() const {
        return drives_.size();
    }
    // The slot of the disc in a drive, and the drive of a disc; none if there is none. A disc that
    // the robot moves counts as in the drive.
    std::optional<SlotIndex> FindSlotIn(DriveIndex drive) const;
    std::optional<DriveIndex> FindDriveOf(SlotIndex slot) const;
    // InSlot for every disc without a drive.
    Phase PhaseOf(SlotIndex slot) const;

    // Begin a move at `now`. Precondition: the robot is idle; the drive is empty (load) or the disc
    // is Readable (unload).
    void BeginLoad(SlotIndex slot, DriveIndex drive, TimePoint now);
    void BeginUnload(SlotIndex slot, TimePoint now);

    // Empties the drive of a disc that was removed by hand.
    void Drop(SlotIndex slot);

    // Performs and returns the earliest step that is due at `now`; none if none is due.
    std::optional<Step> Advance(TimePoint now);
    // The time of the next step; none if no disc moves or spins up.
    std::optional<TimePoint> NextDue() const;

private:
    struct Drive {
        Phase phase = Phase::InSlot; // of the disc; InSlot: the drive is empty
        SlotIndex slot = 0;
        TimePoint due;
    };
    static bool IsUnderWay(const Drive& drive) {
        return drive.phase != Phase::InSlot && drive.phase != Phase::Readable;
    }
    const Drive* FindNextDrive() const;

    std::vector<Drive> drives_;
    DriveTiming timing_;
};

} // namespace simulator

#endif
