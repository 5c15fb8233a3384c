// Moves discs between slots and drives, and serves the waiters.

#include "simulator/Changer.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <ctime>
#include <mutex>
#include <optional>
#include <stop_token>
#include <utility>

namespace simulator {

void Changer::Settle() {
    const Section section(*this);
}

void Changer::Run(std::stop_token stop) {
    while (!stop.stop_requested()) {
        Settle();
        std::unique_lock guard(lock_);
        const std::uint64_t seen = generation_;
        const auto hasMoved = [&] { return generation_ != seen; };
        if (const auto due = NextDue())
            moved_.wait_until(guard, stop, *due, hasMoved);
        else
            moved_.wait(guard, stop, hasMoved);
    }
}

void Changer::FailWaiters() {
    const Section section(*this);
    for (auto& disc : slots_)
        if (disc)
            FailWaitersOf(*disc);
}

void Changer::FailWaitersOf(Disc& disc) {
    for (Waiter& waiter : std::exchange(disc.waiters, {}))
        callbacks_.push_back([callback = std::move(waiter.callback)] { callback(EIO); });
}

void Changer::Close() {
    const Section section(*this);
    closed_ = true;
    NoteChange();
}

void Changer::SettleLocked() {
    bool moved = true;
    while (moved) {
        moved = false;
        while (const auto step = mechanics_.Advance(clock_())) {
            Apply(*step);
            moved = true;
        }
        ShowMediaRoots();
        for (SlotIndex slot = 0; slot < slots_.size(); ++slot)
            if (slots_[slot] && !slots_[slot]->waiters.empty())
                ServeWaiters(slot, *slots_[slot]);
        moved = BeginNextLoad() || moved;
    }
}

void Changer::Apply(const Step& step) {
    const auto describe = [&] { return Describe(step.slot).Add("drive", step.drive); };
    switch (step.reached) {
    case Phase::SpinningUp:
        events_.Report("robot", describe().Add("move", "load").Add("phase", "end"));
        break;
    case Phase::Readable:
        events_.Report("mounted", describe());
        BecomeReadable(step.slot, *FindDisc(step.slot));
        break;
    default:
        events_.Report("robot", describe().Add("move", "unload").Add("phase", "end"));
        break;
    }
    NoteChange();
}

void Changer::BecomeReadable(SlotIndex slot, Disc& disc) {
    ++disc.timesMounted;
    if (disc.holder && disc.holder->user.isPrivate)
        IdentifyDisc(slot, disc);
}

void Changer::IdentifyDisc(SlotIndex slot, Disc& disc) {
    disc.holder->identified = true;
    disc.identifyTime = static_cast<std::int32_t>(std::time(nullptr));
    ++disc.timesIdentified;
    if (!disc.appeared)
        disc.appearance = clock_() + timing_.appear;
    events_.Report("identified", Describe(slot).Add("times", disc.timesIdentified));
    NoteChange();
}

void Changer::ShowMediaRoots() {
    const TimePoint now = clock_();
    for (auto& disc : slots_) {
        if (disc && disc->identifyTime != 0 && !disc->appeared && disc->appearance <= now) {
            disc->appeared = true;
            for (const auto& volume : disc->volumes) {
                events_.Report("appeared", Describe(volume->slot)
                                               .Add("partition", volume->partitionId)
                                               .Add("name", volume->name));
            }
        }
    }
}

void Changer::ServeWaiters(SlotIndex slot, Disc& disc) {
    const Phase phase = mechanics_.PhaseOf(slot);
    if (phase == Phase::InSlot && !IsLoadQueued(slot))
        EnqueueLoad(slot, {});
    if (phase != Phase::Readable)
        return;
    disc.lastUse = ++lastUse_;
    for (Waiter& waiter : std::exchange(disc.waiters, {})) {
        FinishListing(waiter);
        callbacks_.push_back([callback = std::move(waiter.callback)] { callback(0); });
    }
}

void Changer::FinishListing(const Waiter& waiter) {
    const auto volume = FindVolumeLocked(waiter.volume);
    if (!volume->tree->Entry(waiter.entry).IsDirectory())
        return;
    volume->directories[waiter.entry].cached = true;
    events_.Report("listed", Describe(*volume, waiter.entry));
}

// Begins to load the first queued disc, or to empty a drive for it. True if a move has begun.
bool Changer::BeginNextLoad() {
    if (loadQueue_.empty() || !mechanics_.IsRobotIdle())
        return false;
    const auto drive = ChooseDrive(loadQueue_.front().drive);
    if (!drive)
        return false;
    if (const auto occupant = mechanics_.FindSlotIn(*drive)) {
        BeginUnload(*occupant);
    } else {
        BeginLoad(loadQueue_.front().slot, *drive);
        loadQueue_.pop_front();
    }
    return true;
}

void Changer::EnqueueLoad(SlotIndex slot, std::optional<DriveIndex> drive) {
    loadQueue_.push_back({slot, drive});
    NoteChange();
}

void Changer::CancelLoad(SlotIndex slot) {
    std::erase_if(loadQueue_, [&](const QueuedLoad& wanted) { return wanted.slot == slot; });
}

bool Changer::IsLoadQueued(SlotIndex slot) const {
    return std::ranges::find(loadQueue_, slot, &QueuedLoad::slot) != loadQueue_.end();
}

bool Changer::CanBeEmptied(DriveIndex drive) const {
    const SlotIndex slot = *mechanics_.FindSlotIn(drive);
    const Disc& disc = *FindDisc(slot);
    return mechanics_.PhaseOf(slot) == Phase::Readable && !disc.holder && disc.waiters.empty();
}

// Prefers an empty drive, then the drive whose disc was least recently used. None if no drive is
// free.
std::optional<DriveIndex> Changer::ChooseDrive(std::optional<DriveIndex> wished) const {
    std::optional<DriveIndex> chosen;
    std::uint64_t oldestUse = UINT64_MAX;
    for (DriveIndex drive = 0; drive < mechanics_.DriveCount(); ++drive) {
        if (wished && *wished != drive)
            continue;
        const auto occupant = mechanics_.FindSlotIn(drive);
        if (!occupant)
            return drive;
        const std::uint64_t use = FindDisc(*occupant)->lastUse;
        if (CanBeEmptied(drive) && use < oldestUse) {
            chosen = drive;
            oldestUse = use;
        }
    }
    return chosen;
}

void Changer::BeginLoad(SlotIndex slot, DriveIndex drive) {
    mechanics_.BeginLoad(slot, drive, clock_());
    events_.Report("robot",
                   Describe(slot).Add("drive", drive).Add("move", "load").Add("phase", "begin"));
    NoteChange();
}

void Changer::BeginUnload(SlotIndex slot) {
    const DriveIndex drive = *mechanics_.FindDriveOf(slot);
    mechanics_.BeginUnload(slot, clock_());
    events_.Report("unmounted", Describe(slot).Add("drive", drive));
    events_.Report("robot",
                   Describe(slot).Add("drive", drive).Add("move", "unload").Add("phase", "begin"));
    NoteChange();
}

std::optional<TimePoint> Changer::NextDue() const {
    auto due = mechanics_.NextDue();
    for (const auto& disc : slots_) {
        const bool willAppear = disc && disc->identifyTime != 0 && !disc->appeared;
        if (willAppear && (!due || disc->appearance < *due))
            due = disc->appearance;
    }
    return due;
}

} // namespace simulator
