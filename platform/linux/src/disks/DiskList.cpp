#include "disks/DiskList.h"

#include <sys/sysmacros.h>

#include <algorithm>
#include <cstddef>
#include <set>
#include <string_view>

namespace {

void DestroyDisk(cf::Object* object) noexcept {
    delete static_cast<__DADisk*>(object);
}

} // namespace

constinit const cf::Class __DADisk::kClass = {DestroyDisk, nullptr, nullptr};

namespace disks {

namespace {

constexpr std::size_t kLongestDeviceName = 24; // leaves room for the ordinal

bool IsPlain(char character) {
    constexpr std::string_view kPlain = "0123456789+-._"
                                        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";
    return kPlain.find(character) != std::string_view::npos;
}

/*
 * "sr0" for a block device's "/dev/sr0". A file system without one (its device's major number is
 * 0), or whose device has an unusual name, goes by its device numbers, as in "0:45".
 */
std::string DeviceName(const Volume& volume) {
    const std::string_view source = volume.source;
    const std::string_view name = source.substr(source.rfind('/') + 1);
    if (major(volume.device) != 0 && source.starts_with("/dev/") && !name.empty() &&
        name.size() <= kLongestDeviceName && std::ranges::all_of(name, IsPlain))
        return std::string(name);
    return std::to_string(major(volume.device)) + ':' + std::to_string(minor(volume.device));
}

// Further directories of one device are told apart as partitions are: "sr0", "sr0s1", "sr0s2".
std::string UniqueName(const Volume& volume, const std::set<std::string>& taken) {
    const std::string device = DeviceName(volume);
    std::string name = device;
    for (unsigned ordinal = 1; taken.contains(name); ++ordinal)
        name = device + 's' + std::to_string(ordinal);
    return name;
}

// Finds disks by their volumes.
struct ByVolume {
    using is_transparent = void;

    static const Volume& Of(const Volume& volume) {
        return volume;
    }
    static const Volume& Of(const Disk* disk) {
        return disk->volume;
    }
    template<typename First, typename Second>
    bool operator()(const First& first, const Second& second) const {
        return Of(first) < Of(second);
    }
};

bool MayStillAnswerInTime(const cf::Owned<Disk>& disk, cf::Nanoseconds now) noexcept {
    return !disk->isKnown && now - disk->found < DiskList::kPatience;
}

bool HasAnswered(const cf::Owned<Disk>& disk) noexcept {
    return disk->probe && disk->probe->answered;
}

} // namespace

void DiskList::Update(std::vector<Volume> volumes, cf::Nanoseconds now) {
    std::set<Disk*, ByVolume> gone;
    for (const auto& disk : present_)
        gone.insert(disk.Get());
    std::set<std::string> names;
    std::vector<cf::Owned<Disk>> present; // none: the volume is new
    for (const Volume& volume : volumes) {
        const auto stays = gone.find(volume);
        present.emplace_back();
        if (stays == gone.end())
            continue;
        present.back() = cf::Owned<Disk>::Share(*stays);
        names.insert((*stays)->name);
        gone.erase(stays);
    }
    for (std::size_t i = 0; i < volumes.size(); ++i) {
        if (present[i])
            continue;
        auto* const disk = new Disk(volumes[i], UniqueName(volumes[i], names), now);
        present[i] = cf::Owned<Disk>::Adopt(disk);
        names.insert(disk->name);
    }
    gone_.reserve(gone_.size() + gone.size());

    // From here on nothing fails.
    for (Disk* const disk : gone)
        Leave(cf::Owned<Disk>::Share(disk));
    present_ = std::move(present);
}

void DiskList::Leave(cf::Owned<Disk> disk) noexcept {
    disk->isPresent = false;
    if (disk->isKnown)
        gone_.push_back(std::move(disk));
    else if (disk->probe)
        disk->probe->unwanted = true;
}

void DiskList::StartProbes(VolumeProbes& probes) {
    for (const auto& disk : present_)
        if (!disk->isKnown && !disk->probe)
            disk->probe = probes.Start(disk->volume.path);
}

DiskEvent DiskList::TakeEvent(cf::Nanoseconds now) noexcept {
    if (!gone_.empty()) {
        DiskEvent event = {std::move(gone_.front()), false};
        gone_.erase(gone_.begin());
        return event;
    }
    bool isHeldBack = false;
    for (auto disk = present_.begin(); disk != present_.end(); ++disk) {
        if ((*disk)->appearsAgain || (!isHeldBack && HasAnswered(*disk)))
            return TellAppearance(disk);
        isHeldBack |= MayStillAnswerInTime(*disk, now);
    }
    return {};
}

DiskEvent DiskList::TellAppearance(Position disk) noexcept {
    (*disk)->probe.reset();
    (*disk)->isKnown = true;
    (*disk)->appearsAgain = false;
    for (auto younger = disk + 1; younger != present_.end(); ++younger)
        (*younger)->appearsAgain = (*younger)->isKnown;
    return {cf::Owned<Disk>::Share(disk->Get()), true};
}

bool DiskList::IsOutOfOrder() const noexcept {
    return std::ranges::any_of(present_, [](const auto& disk) { return disk->appearsAgain; });
}

bool DiskList::MayHoldBack(cf::Nanoseconds now) const noexcept {
    return std::ranges::any_of(present_,
                               [now](const auto& disk) { return MayStillAnswerInTime(disk, now); });
}

} // namespace disks
