#include "simulator/Mechanics.h"

#include <algorithm>

namespace simulator {

bool Mechanics::IsRobotIdle() const {
    return std::ranges::none_of(drives_, [](const Drive& drive) {
        return drive.phase == Phase::Loading || drive.phase == Phase::Unloading;
    });
}

std::optional<SlotIndex> Mechanics::FindSlotIn(DriveIndex drive) const {
    if (drives_[drive].phase == Phase::InSlot)
        return {};
    return drives_[drive].slot;
}

std::optional<DriveIndex> Mechanics::FindDriveOf(SlotIndex slot) const {
    for (DriveIndex drive = 0; drive < drives_.size(); ++drive)
        if (FindSlotIn(drive) == slot)
            return drive;
    return {};
}

Phase Mechanics::PhaseOf(SlotIndex slot) const {
    const auto drive = FindDriveOf(slot);
    return drive ? drives_[*drive].phase : Phase::InSlot;
}

void Mechanics::BeginLoad(SlotIndex slot, DriveIndex drive, TimePoint now) {
    drives_[drive] = {Phase::Loading, slot, now + timing_.moving};
}

void Mechanics::BeginUnload(SlotIndex slot, TimePoint now) {
    Drive& drive = drives_[*FindDriveOf(slot)];
    drive.phase = Phase::Unloading;
    drive.due = now + timing_.moving;
}

void Mechanics::Drop(SlotIndex slot) {
    if (const auto drive = FindDriveOf(slot))
        drives_[*drive] = {};
}

std::optional<Step> Mechanics::Advance(TimePoint now) {
    const Drive* next = FindNextDrive();
    if (!next || next->due > now)
        return {};
    const auto index = static_cast<DriveIndex>(next - drives_.data());
    Drive& drive = drives_[index];
    switch (drive.phase) {
    case Phase::Loading:
        drive.phase = Phase::SpinningUp;
        drive.due += timing_.spinUp;
        break;
    case Phase::SpinningUp:
        drive.phase = Phase::Readable;
        break;
    default:
        drive.phase = Phase::InSlot;
        break;
    }
    return Step{drive.slot, index, drive.phase};
}

std::optional<TimePoint> Mechanics::NextDue() const {
    const Drive* next = FindNextDrive();
    return next ? std::optional(next->due) : std::nullopt;
}

const Mechanics::Drive* Mechanics::FindNextDrive() const {
    const Drive* next = nullptr;
    for (const Drive& drive : drives_)
        if (IsUnderWay(drive) && (!next || drive.due < next->due))
            next = &drive;
    return next;
}

} // namespace simulator
