#ifndef SIMULATOR_MECHANICS_H
#define SIMULATOR_MECHANICS_H

/*
 * The moving parts of a changer: one robot, and drives that spin discs up.
 *
 * A disc that a drive has to do with passes through these phases:
 *     InSlot -> Loading -> SpinningUp -> Readable -> Unloading -> InSlot
 * Loading and Unloading need the robot, which does one thing at a time. Nothing happens by itself:
 * Advance() makes the steps whose time has come, at their own times, so that with all times at
 * zero a disc is readable as soon as the caller has advanced.
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

/* A disc has come into a phase. */
struct Step {
    SlotIndex slot;
    DriveIndex drive;
    Phase reached;
};

class Mechanics {
public:
    explicit Mechanics(std::size_t driveCount) : drives_(driveCount) {}

    // Holds from the next step on.
    void SetTiming(DriveTiming timing) {
        timing_ = timing;
    }

    bool IsRobotIdle() const;
    std::size_t DriveCount() const {
        return drives_.size();
    }
    std::optional<SlotIndex> FindSlotIn(DriveIndex drive) const;
    std::optional<DriveIndex> FindDriveOf(SlotIndex slot) const;
    Phase PhaseOf(SlotIndex slot) const;

    // The robot must be idle; the drive empty, or the disc readable.
    void BeginLoad(SlotIndex slot, DriveIndex drive, TimePoint now);
    void BeginUnload(SlotIndex slot, TimePoint now);

    // Forgets a disc that somebody has pulled out.
    void Drop(SlotIndex slot);

    // The next step that is due by now, made; nothing if none is.
    std::optional<Step> Advance(TimePoint now);
    std::optional<TimePoint> NextDue() const;

private:
    struct Drive {
        Phase phase = Phase::InSlot; // of its disc; InSlot: there is none
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
