#include "Changer.h"

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <utility>

namespace simulator {

Changer::Section::Section(Changer& changer) : changer_(changer), guard_(changer.lock_) {
    changer_.SettleLocked();
}

Changer::Section::~Section() {
    changer_.SettleLocked();
    const auto callbacks = std::exchange(changer_.callbacks_, {});
    guard_.unlock();
    for (const auto& callback : callbacks) {
        callback();
    }
}

Changer::Changer(const ChangerShape& shape, Events& events, std::function<void()> changed,
                 Clock clock)
    : guid_(shape.guid), events_(events), changed_(std::move(changed)), clock_(std::move(clock)),
      ready_(shape.ready), slots_(shape.slots), mechanics_(shape.drives) {}

// ---- What the user does ----

void Changer::SetReady(bool ready) {
    const Section section(*this);
    ready_ = ready;
    NoteChange();
}

void Changer::SetTiming(const ChangerTiming& timing) {
    const Section section(*this);
    timing_ = timing;
    mechanics_.SetTiming(timing.drives);
}

ChangerTiming Changer::GetTiming() const {
    const std::lock_guard guard(lock_);
    return timing_;
}

void Changer::SetPreferences(const Preferences& preferences) {
    const Section section(*this);
    preferences_ = preferences;
    NoteChange();
}

Preferences Changer::GetPreferences() const {
    const std::lock_guard guard(lock_);
    return preferences_;
}

void Changer::Put(NewDisc newDisc) {
    const Section section(*this);
    if (newDisc.slot >= slots_.size() || slots_[newDisc.slot]) {
        throw CommandError("no such slot, or not empty");
    }
    for (const auto& [id, volume] : volumes_) {
        if (volume->name == newDisc.name) {
            throw CommandError("another disc has that name");
        }
    }
    Disc disc;
    disc.kind = newDisc.kind;
    for (NewPartition& partition : newDisc.partitions) {
        disc.partitionsWithFileSystem.push_back(partition.hasFileSystem);
        const std::string number = std::to_string(disc.partitionsWithFileSystem.size());
        if (partition.hasFileSystem) {
            disc.volumes.push_back(std::make_shared<Volume>(
                Volume{++lastVolume_,
                       newDisc.slot,
                       number == "1" ? newDisc.name : newDisc.name + '-' + number,
                       number,
                       std::move(partition.tree),
                       {}}));
        }
    }
    if (newDisc.identified) {
        disc.identifyTime = static_cast<std::int32_t>(std::time(nullptr));
        disc.appearance = clock_();
    }
    for (const auto& volume : disc.volumes) {
        volumes_.emplace(volume->id, volume);
    }
    slots_[newDisc.slot] = std::move(disc);
    NoteChange();
}

void Changer::Take(SlotIndex slot) {
    const Section section(*this);
    Disc& disc = GetDisc(slot);
    FailWaitersOf(disc);
    for (const auto& volume : disc.volumes) {
        volumes_.erase(volume->id);
    }
    mechanics_.Drop(slot);
    Unwant(slot);
    slots_[slot].reset();
    NoteChange();
}

void Changer::Forget(SlotIndex slot) {
    const Section section(*this);
    for (const auto& volume : GetDisc(slot).volumes) {
        for (auto& [entry, directory] : volume->directories) {
            directory.cached = false;
        }
    }
}

void Changer::RequestAbort(const std::string& client, bool create) {
    const Section section(*this);
    if (!create && !statuses_.contains(client)) {
        throw CommandError("the client has no status");
    }
    ClientStatus& status = statuses_[client];
    status.abortRequested = true;
    events_.Report("status", Fields()
                                 .AddChanger(guid_)
                                 .Add("client", client)
                                 .Add("message", status.message)
                                 .Add("current", status.currentStep)
                                 .Add("maximum", status.maximumStep)
                                 .Add("abort", true));
    NoteChange();
}

// ---- What clients request ----

MountOutcome Changer::Mount(const MountRequest& request) {
    const Section section(*this);
    Disc* disc = FindDisc(request.slot);
    Outcome outcome = CheckMount(request, disc);
    if (outcome.code == ReplyCode::Success) {
        outcome = BeginMount(request, *disc);
    }
    if (outcome.code != ReplyCode::Success) {
        return {outcome, {}, 0};
    }
    return DescribeMount(request, *disc);
}

Outcome Changer::CheckMount(const MountRequest& request, const Disc* disc) const {
    if (!disc) {
        return {ReplyCode::NoSuchThing, "no disc in that slot"};
    }
    const auto hasId = [&](const auto& volume) {
        return volume->partitionId == request.partitionId;
    };
    if (!request.partitionId.empty() && std::ranges::none_of(disc->volumes, hasId)) {
        return {ReplyCode::NoSuchThing, "no such partition"};
    }
    if (request.drive && *request.drive >= mechanics_.GetDriveCount()) {
        return {ReplyCode::NoSuchThing, "no such drive"};
    }
    if (disc->holder && disc->holder->user != request.user) {
        if (disc->holder->user.isPrivate) {
            return {ReplyCode::Private, "the disc is mounted privately"};
        }
        return {ReplyCode::Busy, "the disc is in use"};
    }
    return {};
}

Outcome Changer::BeginMount(const MountRequest& request, Disc& disc) {
    const Phase phase = mechanics_.GetPhase(request.slot);
    if (phase == Phase::Unloading) {
        return {ReplyCode::Busy, "the disc is on its way to its slot"};
    }
    if (phase == Phase::InSlot && !IsWanted(request.slot)) {
        if (!request.mayStart) {
            return {ReplyCode::NotMounted, "the disc is not mounted"};
        }
        if (!mechanics_.IsRobotIdle() || !ChooseDrive(request.drive)) {
            return {ReplyCode::Busy, "the robot or the drives are busy"};
        }
        Want(request.slot, request.drive);
    }
    if (!disc.holder) {
        disc.holder = Holder{request.user};
        disc.lastUse = ++lastUse_;
    }
    SettleLocked();
    if (mechanics_.GetPhase(request.slot) != Phase::Readable) {
        return {ReplyCode::UnderWay, "the disc is on its way to a drive"};
    }
    if (disc.holder->user.isPrivate && !disc.holder->identified) {
        IdentifyDisc(request.slot, disc);
    }
    return {};
}

MountOutcome Changer::DescribeMount(const MountRequest& request, const Disc& disc) const {
    MountOutcome outcome;
    outcome.drive = *mechanics_.FindDriveOf(request.slot);
    for (const auto& volume : disc.volumes) {
        if (request.partitionId.empty() || volume->partitionId == request.partitionId) {
            outcome.mediaRoot = volume->name;
            break;
        }
    }
    return outcome;
}

Outcome Changer::Eject(const EjectRequest& request) {
    const Section section(*this);
    const Disc* disc = FindDisc(request.slot);
    if (!disc) {
        return {ReplyCode::NoSuchThing, "no disc in that slot"};
    }
    const bool isStrangers =
        disc->holder && disc->holder->user.isPrivate && disc->holder->user != request.user;
    if (isStrangers && !request.overridePrivate) {
        return {ReplyCode::Private, "the disc is mounted privately"};
    }
    return BeginEject(request);
}

Outcome Changer::BeginEject(const EjectRequest& request) {
    Disc& disc = *FindDisc(request.slot);
    Phase phase = mechanics_.GetPhase(request.slot);
    if (phase == Phase::Readable && mechanics_.IsRobotIdle()) {
        disc.holder.reset();
        BeginUnload(request.slot);
        SettleLocked();
        phase = mechanics_.GetPhase(request.slot);
        if (phase == Phase::Unloading) {
            return {ReplyCode::UnderWay, "the disc is on its way to its slot"};
        }
    } else if (phase == Phase::InSlot) {
        disc.holder.reset();
        if (disc.waiters.empty()) {
            Unwant(request.slot);
        }
    }
    if (phase != Phase::InSlot) {
        return {ReplyCode::Busy, "the robot or the drive is busy"};
    }
    return {};
}

Outcome Changer::RequestDiscIdentification(SlotIndex slot, bool request) {
    const Section section(*this);
    Disc* disc = FindDisc(slot);
    if (!disc) {
        return {ReplyCode::NoSuchThing, "no disc in that slot"};
    }
    if (std::exchange(disc->requested, request) != request) {
        NoteChange();
    }
    return {};
}

void Changer::RequestChangerIdentification(bool request) {
    const Section section(*this);
    if (std::exchange(identificationRequested_, request) != request) {
        NoteChange();
    }
}

void Changer::SetClientStatus(const std::string& client, const ClientStatus& status) {
    const Section section(*this);
    events_.Report("status", Fields()
                                 .AddChanger(guid_)
                                 .Add("client", client)
                                 .Add("message", status.message)
                                 .Add("current", status.currentStep)
                                 .Add("maximum", status.maximumStep)
                                 .Add("abort", status.abortRequested));
    if (status.message.empty()) {
        statuses_.erase(client);
    } else {
        statuses_[client] = status;
    }
    NoteChange();
}

std::uint64_t Changer::GetGeneration() const {
    const std::lock_guard guard(lock_);
    return generation_;
}

bool Changer::WaitForChange(std::uint64_t generation, TimePoint deadline, std::stop_token stop) {
    std::unique_lock guard(lock_);
    return moved_.wait_until(guard, stop, deadline, [&] {
        return closed_ || generation_ != generation;
    }) && !closed_;
}

// ---- What the file system needs ----

std::vector<std::shared_ptr<const Volume>> Changer::GetMediaRoots() {
    const Section section(*this);
    std::vector<std::shared_ptr<const Volume>> roots;
    for (const auto& disc : slots_) {
        if (disc && disc->appeared) {
            roots.insert(roots.end(), disc->volumes.begin(), disc->volumes.end());
        }
    }
    return roots;
}

std::shared_ptr<const Volume> Changer::FindVolume(std::uint32_t id) {
    const std::lock_guard guard(lock_);
    return FindVolumeLocked(id);
}

std::shared_ptr<Volume> Changer::FindVolumeLocked(std::uint32_t id) const {
    const auto found = volumes_.find(id);
    return found == volumes_.end() ? nullptr : found->second;
}

void Changer::List(std::uint32_t id, EntryIndex directory, Ready ready) {
    const Section section(*this);
    const auto volume = FindVolumeLocked(id);
    if (!volume) {
        callbacks_.push_back([ready] { ready(ESTALE); });
        return;
    }
    Volume::Directory& state = volume->directories[directory];
    ++state.listings;
    events_.Report("listing", Describe(volume->slot)
                                  .Add("partition", volume->partitionId)
                                  .Add("path", volume->tree->GetPath(directory))
                                  .Add("cached", state.cached));
    if (state.cached) {
        callbacks_.push_back([ready] { ready(0); });
    } else {
        WaitForDisc(volume, directory, std::move(ready));
    }
}

void Changer::Open(std::uint32_t id, EntryIndex file, Ready ready) {
    const Section section(*this);
    const auto volume = FindVolumeLocked(id);
    if (!volume) {
        callbacks_.push_back([ready] { ready(ESTALE); });
        return;
    }
    events_.Report("open", Describe(volume->slot)
                               .Add("partition", volume->partitionId)
                               .Add("path", volume->tree->GetPath(file)));
    WaitForDisc(volume, file, std::move(ready));
}

void Changer::WaitForDisc(const std::shared_ptr<Volume>& volume, EntryIndex entry, Ready ready) {
    FindDisc(volume->slot)->waiters.push_back({volume->id, entry, std::move(ready)});
}

// ---- How things move ----

void Changer::Settle() {
    const Section section(*this);
}

void Changer::Run(std::stop_token stop) {
    while (!stop.stop_requested()) {
        Settle();
        std::unique_lock guard(lock_);
        const std::uint64_t seen = generation_;
        const auto hasMoved = [&] { return generation_ != seen; };
        if (const auto due = GetNextDue()) {
            moved_.wait_until(guard, stop, *due, hasMoved);
        } else {
            moved_.wait(guard, stop, hasMoved);
        }
    }
}

void Changer::FailWaiters() {
    const Section section(*this);
    for (auto& disc : slots_) {
        if (disc) {
            FailWaitersOf(*disc);
        }
    }
}

void Changer::FailWaitersOf(Disc& disc) {
    for (Waiter& waiter : std::exchange(disc.waiters, {})) {
        callbacks_.push_back([ready = std::move(waiter.ready)] { ready(EIO); });
    }
}

void Changer::Close() {
    const Section section(*this);
    closed_ = true;
    NoteChange();
}

void Changer::SettleLocked() {
    bool moved = true;
    while (moved && !closed_) {
        moved = false;
        while (const auto step = mechanics_.Advance(clock_())) {
            Apply(*step);
            moved = true;
        }
        ShowMediaRoots();
        for (SlotIndex slot = 0; slot < slots_.size(); ++slot) {
            if (slots_[slot] && !slots_[slot]->waiters.empty()) {
                ServeWaiters(slot, *slots_[slot]);
            }
        }
        moved = BeginNextWanted() || moved;
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
    if (disc.holder && disc.holder->user.isPrivate) {
        IdentifyDisc(slot, disc);
    }
}

void Changer::IdentifyDisc(SlotIndex slot, Disc& disc) {
    disc.holder->identified = true;
    disc.identifyTime = static_cast<std::int32_t>(std::time(nullptr));
    ++disc.timesIdentified;
    if (!disc.appeared) {
        disc.appearance = clock_() + timing_.appear;
    }
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
    const Phase phase = mechanics_.GetPhase(slot);
    if (phase == Phase::InSlot && !IsWanted(slot)) {
        Want(slot, {});
    }
    if (phase != Phase::Readable) {
        return;
    }
    disc.lastUse = ++lastUse_;
    for (Waiter& waiter : std::exchange(disc.waiters, {})) {
        FinishListing(waiter);
        callbacks_.push_back([ready = std::move(waiter.ready)] { ready(0); });
    }
}

void Changer::FinishListing(const Waiter& waiter) {
    const auto volume = FindVolumeLocked(waiter.volume);
    if (!volume->tree->GetEntry(waiter.entry).IsDirectory()) {
        return;
    }
    volume->directories[waiter.entry].cached = true;
    events_.Report("listed", Describe(volume->slot)
                                 .Add("partition", volume->partitionId)
                                 .Add("path", volume->tree->GetPath(waiter.entry)));
}

// The first wanted disc gets a drive; one has to be emptied first if none is. True if the robot has
// begun anything.
bool Changer::BeginNextWanted() {
    if (wanted_.empty() || !mechanics_.IsRobotIdle()) {
        return false;
    }
    const auto drive = ChooseDrive(wanted_.front().drive);
    if (!drive) {
        return false;
    }
    if (const auto occupant = mechanics_.GetSlotIn(*drive)) {
        BeginUnload(*occupant);
    } else {
        BeginLoad(wanted_.front().slot, *drive);
        wanted_.pop_front();
    }
    return true;
}

void Changer::Want(SlotIndex slot, std::optional<DriveIndex> drive) {
    wanted_.push_back({slot, drive});
    NoteChange();
}

void Changer::Unwant(SlotIndex slot) {
    std::erase_if(wanted_, [&](const Wanted& wanted) { return wanted.slot == slot; });
}

bool Changer::IsWanted(SlotIndex slot) const {
    return std::ranges::find(wanted_, slot, &Wanted::slot) != wanted_.end();
}

bool Changer::CanBeEmptied(DriveIndex drive) const {
    const SlotIndex slot = *mechanics_.GetSlotIn(drive);
    const Disc& disc = *FindDisc(slot);
    return mechanics_.GetPhase(slot) == Phase::Readable && !disc.holder && disc.waiters.empty();
}

// An empty drive before the one whose disc was used longest ago.
std::optional<DriveIndex> Changer::ChooseDrive(std::optional<DriveIndex> wished) const {
    std::optional<DriveIndex> chosen;
    std::uint64_t oldestUse = UINT64_MAX;
    for (DriveIndex drive = 0; drive < mechanics_.GetDriveCount(); ++drive) {
        if (wished && *wished != drive) {
            continue;
        }
        const auto occupant = mechanics_.GetSlotIn(drive);
        if (!occupant) {
            return drive;
        }
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

std::optional<TimePoint> Changer::GetNextDue() const {
    auto due = mechanics_.GetNextDue();
    for (const auto& disc : slots_) {
        const bool willAppear = disc && disc->identifyTime != 0 && !disc->appeared;
        if (willAppear && (!due || disc->appearance < *due)) {
            due = disc->appearance;
        }
    }
    return due;
}

// ---- Small helpers ----

Changer::Disc* Changer::FindDisc(SlotIndex slot) {
    return slot < slots_.size() && slots_[slot] ? &*slots_[slot] : nullptr;
}

const Changer::Disc* Changer::FindDisc(SlotIndex slot) const {
    return slot < slots_.size() && slots_[slot] ? &*slots_[slot] : nullptr;
}

Changer::Disc& Changer::GetDisc(SlotIndex slot) {
    Disc* disc = FindDisc(slot);
    if (!disc) {
        throw CommandError("no disc in that slot");
    }
    return *disc;
}

Fields Changer::Describe(SlotIndex slot) const {
    return Fields().AddChanger(guid_).Add("slot", slot);
}

void Changer::NoteChange() {
    ++generation_;
    moved_.notify_all();
    changed_();
}

} // namespace simulator
