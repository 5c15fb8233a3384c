#include "simulator/Changer.h"

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
    for (const auto& callback : callbacks)
        callback();
}

Changer::Changer(const ChangerConfig& config, Events& events, std::function<void()> changed,
                 Clock clock)
    : guid_(config.guid), events_(events), changed_(std::move(changed)), clock_(std::move(clock)),
      ready_(config.ready), slots_(config.slots), mechanics_(config.drives) {}

// ---- Commands of the user ----

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

ChangerTiming Changer::CurrentTiming() const {
    const std::lock_guard guard(lock_);
    return timing_;
}

void Changer::SetPreferences(const Preferences& preferences) {
    const Section section(*this);
    preferences_ = preferences;
    NoteChange();
}

Preferences Changer::CurrentPreferences() const {
    const std::lock_guard guard(lock_);
    return preferences_;
}

void Changer::Put(NewDisc newDisc) {
    const Section section(*this);
    if (newDisc.slot >= slots_.size() || slots_[newDisc.slot])
        throw CommandError("no such slot, or the slot is not empty");
    const SlotIndex slot = newDisc.slot;
    Disc disc = MakeDisc(std::move(newDisc));
    for (const auto& volume : disc.volumes)
        volumes_.emplace(volume->id, volume);
    slots_[slot] = std::move(disc);
    NoteChange();
}

Changer::Disc Changer::MakeDisc(NewDisc newDisc) {
    Disc disc;
    disc.kind = newDisc.kind;
    for (NewPartition& partition : newDisc.partitions) {
        disc.partitionsWithFileSystem.push_back(partition.hasFileSystem);
        const std::string number = std::to_string(disc.partitionsWithFileSystem.size());
        const std::string name = number == "1" ? newDisc.name : newDisc.name + '-' + number;
        if (HasMediaRoot(name))
            throw CommandError("another disc has the name " + name);
        if (partition.hasFileSystem) {
            disc.volumes.push_back(std::make_shared<Volume>(
                Volume{++lastVolume_, newDisc.slot, name, number, std::move(partition.tree), {}}));
        }
    }
    if (newDisc.identified) {
        disc.identifyTime = static_cast<std::int32_t>(std::time(nullptr));
        disc.appearance = clock_();
    }
    return disc;
}

bool Changer::HasMediaRoot(const std::string& name) const {
    return std::ranges::any_of(volumes_,
                               [&](const auto& volume) { return volume.second->name == name; });
}

void Changer::Take(SlotIndex slot) {
    const Section section(*this);
    Disc& disc = RequiredDisc(slot);
    FailWaitersOf(disc);
    for (const auto& volume : disc.volumes)
        volumes_.erase(volume->id);
    mechanics_.Drop(slot);
    CancelLoad(slot);
    slots_[slot].reset();
    NoteChange();
}

void Changer::Forget(SlotIndex slot) {
    const Section section(*this);
    for (const auto& volume : RequiredDisc(slot).volumes)
        for (auto& [entry, directory] : volume->directories)
            directory.cached = false;
}

void Changer::RequestAbort(const std::string& client, bool create) {
    const Section section(*this);
    if (!create && !statuses_.contains(client))
        throw CommandError("client has no status: " + client);
    ClientStatus& status = statuses_[client];
    status.abortRequested = true;
    events_.Report("status", Describe(client, status));
    NoteChange();
}

// ---- Requests of clients ----

MountOutcome Changer::Mount(const MountRequest& request) {
    const Section section(*this);
    Disc* disc = FindDisc(request.slot);
    Outcome outcome = CheckMount(request, disc);
    if (outcome.code == ReplyCode::Success)
        outcome = BeginMount(request, *disc);
    if (outcome.code != ReplyCode::Success)
        return {outcome, {}, 0};
    return DescribeMount(request, *disc);
}

Outcome Changer::CheckMount(const MountRequest& request, const Disc* disc) const {
    if (!disc)
        return {ReplyCode::NotFound, "no disc in that slot"};
    const auto hasId = [&](const auto& volume) {
        return volume->partitionId == request.partitionId;
    };
    if (!request.partitionId.empty() && std::ranges::none_of(disc->volumes, hasId))
        return {ReplyCode::NotFound, "no such partition"};
    if (request.drive && *request.drive >= mechanics_.DriveCount())
        return {ReplyCode::NotFound, "no such drive"};
    if (disc->holder && disc->holder->user != request.user) {
        if (disc->holder->user.isPrivate)
            return {ReplyCode::Private, "the disc is mounted privately"};
        return {ReplyCode::Busy, "the disc is in use"};
    }
    return {};
}

Outcome Changer::BeginMount(const MountRequest& request, Disc& disc) {
    const Phase phase = mechanics_.PhaseOf(request.slot);
    if (phase == Phase::Unloading)
        return {ReplyCode::Busy, "the disc is on its way to its slot"};
    if (phase == Phase::InSlot && !IsLoadQueued(request.slot)) {
        if (!request.mayStart)
            return {ReplyCode::NotMounted, "the disc is not mounted"};
        if (!mechanics_.IsRobotIdle() || !ChooseDrive(request.drive))
            return {ReplyCode::Busy, "the robot or the drives are busy"};
        EnqueueLoad(request.slot, request.drive);
    }
    if (!disc.holder) {
        disc.holder = Holder{request.user};
        disc.lastUse = ++lastUse_;
    }
    SettleLocked();
    if (mechanics_.PhaseOf(request.slot) != Phase::Readable)
        return {ReplyCode::UnderWay, "the disc is on its way to a drive"};
    if (disc.holder->user.isPrivate && !disc.holder->identified)
        IdentifyDisc(request.slot, disc);
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
    if (!disc)
        return {ReplyCode::NotFound, "no disc in that slot"};
    const bool isPrivateOfOther =
        disc->holder && disc->holder->user.isPrivate && disc->holder->user != request.user;
    if (isPrivateOfOther && !request.overridePrivate)
        return {ReplyCode::Private, "the disc is mounted privately"};
    return BeginEject(request);
}

Outcome Changer::BeginEject(const EjectRequest& request) {
    Disc& disc = *FindDisc(request.slot);
    Phase phase = mechanics_.PhaseOf(request.slot);
    if (phase == Phase::Readable && mechanics_.IsRobotIdle()) {
        disc.holder.reset();
        BeginUnload(request.slot);
        SettleLocked();
        phase = mechanics_.PhaseOf(request.slot);
        if (phase == Phase::Unloading)
            return {ReplyCode::UnderWay, "the disc is on its way to its slot"};
    } else if (phase == Phase::InSlot) {
        disc.holder.reset();
        if (disc.waiters.empty())
            CancelLoad(request.slot);
    }
    if (phase != Phase::InSlot)
        return {ReplyCode::Busy, "the robot or the drive is busy"};
    return {};
}

Outcome Changer::RequestDiscIdentification(SlotIndex slot, bool request) {
    const Section section(*this);
    Disc* disc = FindDisc(slot);
    if (!disc)
        return {ReplyCode::NotFound, "no disc in that slot"};
    if (std::exchange(disc->requested, request) != request)
        NoteChange();
    return {};
}

void Changer::RequestChangerIdentification(bool request) {
    const Section section(*this);
    if (std::exchange(identificationRequested_, request) != request)
        NoteChange();
}

void Changer::SetClientStatus(const std::string& client, const ClientStatus& status) {
    const Section section(*this);
    events_.Report("status", Describe(client, status));
    if (status.message.empty())
        statuses_.erase(client);
    else
        statuses_[client] = status;
    NoteChange();
}

std::uint64_t Changer::Generation() const {
    const std::lock_guard guard(lock_);
    return generation_;
}

bool Changer::WaitForChange(std::uint64_t generation, TimePoint deadline, std::stop_token stop) {
    std::unique_lock guard(lock_);
    return moved_.wait_until(guard, stop, deadline, [&] {
        return closed_ || generation_ != generation;
    }) && !closed_;
}

// ---- Functions for the file system ----

std::vector<std::shared_ptr<const Volume>> Changer::MediaRoots() {
    const Section section(*this);
    std::vector<std::shared_ptr<const Volume>> roots;
    for (const auto& disc : slots_)
        if (disc && disc->appeared)
            roots.insert(roots.end(), disc->volumes.begin(), disc->volumes.end());
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

void Changer::List(std::uint32_t id, EntryIndex directory, Callback callback) {
    const Section section(*this);
    const auto volume = FindVolumeOrFail(id, callback);
    if (!volume)
        return;
    Volume::Directory& state = volume->directories[directory];
    ++state.listings;
    events_.Report("listing", Describe(*volume, directory).Add("cached", state.cached));
    if (state.cached)
        callbacks_.push_back([callback] { callback(0); });
    else
        WaitForDisc(volume, directory, std::move(callback));
}

void Changer::Open(std::uint32_t id, EntryIndex file, Callback callback) {
    const Section section(*this);
    const auto volume = FindVolumeOrFail(id, callback);
    if (!volume)
        return;
    events_.Report("open", Describe(*volume, file));
    WaitForDisc(volume, file, std::move(callback));
}

std::shared_ptr<Volume> Changer::FindVolumeOrFail(std::uint32_t id, const Callback& callback) {
    auto volume = FindVolumeLocked(id);
    if (!volume)
        callbacks_.push_back([callback] { callback(ESTALE); });
    return volume;
}

void Changer::WaitForDisc(const std::shared_ptr<Volume>& volume, EntryIndex entry,
                          Callback callback) {
    FindDisc(volume->slot)->waiters.push_back({volume->id, entry, std::move(callback)});
}

// ---- Helpers ----

Changer::Disc* Changer::FindDisc(SlotIndex slot) {
    return const_cast<Disc*>(std::as_const(*this).FindDisc(slot));
}

const Changer::Disc* Changer::FindDisc(SlotIndex slot) const {
    return slot < slots_.size() && slots_[slot] ? &*slots_[slot] : nullptr;
}

Changer::Disc& Changer::RequiredDisc(SlotIndex slot) {
    Disc* disc = FindDisc(slot);
    if (!disc)
        throw CommandError("no disc in that slot");
    return *disc;
}

Fields Changer::Describe(SlotIndex slot) const {
    return Fields().AddChanger(guid_).Add("slot", slot);
}

Fields Changer::Describe(const Volume& volume, EntryIndex entry) const {
    return Describe(volume.slot)
        .Add("partition", volume.partitionId)
        .Add("path", volume.tree->Path(entry));
}

Fields Changer::Describe(const std::string& client, const ClientStatus& status) const {
    return Fields()
        .AddChanger(guid_)
        .Add("client", client)
        .Add("message", status.message)
        .Add("current", status.currentStep)
        .Add("maximum", status.maximumStep)
        .Add("abort", status.abortRequested);
}

void Changer::NoteChange() {
    ++generation_;
    moved_.notify_all();
    changed_();
}

} // namespace simulator
