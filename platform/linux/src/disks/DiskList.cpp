#include "disks/DiskList.h"

#include <sys/sysmacros.h>

#include <algorithm>
#include <cstddef>
#include <map>
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

using Disks = std::vector<cf::Owned<Disk>>;

constexpr std::size_t kLongestDeviceName = 24; // leaves space for the ordinal

bool IsPlain(char character) {
    constexpr std::string_view kPlain = "0123456789+-._"
                                        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";
    return kPlain.find(character) != std::string_view::npos;
}

/*
 * "sr0" for the block device "/dev/sr0". A file system without a block device (major number 0), or
 * with an unusual device name, is named by its device numbers, as in "0:45".
 */
std::string DeviceName(const Volume& volume) {
    const std::string_view source = volume.source;
    const std::string_view name = source.substr(source.rfind('/') + 1);
    if (major(volume.device) != 0 && source.starts_with("/dev/") && !name.empty() &&
        name.size() <= kLongestDeviceName && std::ranges::all_of(name, IsPlain))
        return std::string(name);
    return std::to_string(major(volume.device)) + ':' + std::to_string(minor(volume.device));
}

// The names of the present disks. Several directories of one device are named like partitions:
// "sr0", "sr0s1", "sr0s2". A new disk gets the first free name. Names are only added, so the search
// for the next name of a device continues where the last search ended.
class DiskNames {
public:
    // Marks a name as taken.
    void Add(const std::string& name) {
        taken_.insert(name);
    }
    // Chooses a free name for a disk of the volume, and marks it as taken.
    std::string CreateFor(const Volume& volume) {
        const std::string device = DeviceName(volume);
        unsigned& ordinal = ordinals_[device];
        std::string name;
        do {
            name = ordinal == 0 ? device : device + 's' + std::to_string(ordinal);
            ++ordinal;
        } while (!taken_.insert(name).second);
        return name;
    }

private:
    std::set<std::string> taken_;
    std::map<std::string, unsigned> ordinals_; // the next ordinal to try, by device
};

// Orders disks and volumes by volume, so a set of disks can be searched for a volume.
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

bool IsWithinTimeout(const cf::Owned<Disk>& disk, cf::Nanoseconds now) noexcept {
    return now - disk->found < DiskList::kProbeTimeout;
}

bool IsProbeDone(const cf::Owned<Disk>& disk) noexcept {
    return disk->probe && disk->probe->done;
}

using DisksByVolume = std::set<Disk*, ByVolume>;

// Returns for each volume its disk in `former`, which it removes there; empty for a new volume.
Disks MatchExisting(const std::vector<Volume>& volumes, DisksByVolume& former) {
    Disks disks;
    for (const Volume& volume : volumes) {
        const auto stays = former.find(volume);
        disks.emplace_back();
        if (stays == former.end())
            continue;
        disks.back() = cf::Owned<Disk>::Share(*stays);
        former.erase(stays);
    }
    return disks;
}

// Creates the disks of the new volumes.
void AddNew(const std::vector<Volume>& volumes, cf::Nanoseconds now, Disks& disks) {
    DiskNames names;
    for (const auto& disk : disks)
        if (disk)
            names.Add(disk->name);
    for (std::size_t i = 0; i < volumes.size(); ++i)
        if (!disks[i])
            disks[i] =
                cf::Owned<Disk>::Adopt(new Disk(volumes[i], names.CreateFor(volumes[i]), now));
}

void MarkGone(Disk& disk) noexcept {
    disk.isPresent = false;
    if (disk.probe)
        disk.probe->cancelled = true;
}

} // namespace

DiskList::Order DiskList::OrderOf(const Disks& disks) const {
    Order order;
    order.repeatFrom = disks.size();
    for (std::size_t i = 0; i < disks.size(); ++i) {
        const auto& disk = disks[i];
        Positions& positions = disk->isReported ? order.reported : order.unreported;
        positions.insert(positions.end(), i);
        if (disk->isReported && disk->position >= order_.repeatFrom)
            order.repeatFrom = std::min(order.repeatFrom, i);
        if (!disk->isReported)
            order.lastFound = std::max(order.lastFound, disk->found);
    }
    return order;
}

void DiskList::Update(const std::vector<Volume>& volumes, cf::Nanoseconds now) {
    DisksByVolume gone;
    for (const auto& disk : present_)
        gone.insert(disk.Get());
    Disks present = MatchExisting(volumes, gone);
    AddNew(volumes, now, present);
    Order order = OrderOf(present);
    std::list<cf::Owned<Disk>> toReport;
    for (Disk* const disk : gone)
        if (disk->isReported)
            toReport.push_back(cf::Owned<Disk>::Share(disk));

    // No statement below allocates or throws: the list changes completely or not at all.
    for (Disk* const disk : gone)
        MarkGone(*disk);
    gone_.splice(gone_.end(), toReport);
    present_ = std::move(present);
    order_ = std::move(order);
    for (std::size_t i = 0; i < present_.size(); ++i)
        present_[i]->position = i;
}

void DiskList::StartProbes(VolumeProbes& probes) {
    for (; order_.probed < present_.size(); ++order_.probed) {
        const auto& disk = present_[order_.probed];
        if (!disk->isReported && !disk->probe)
            disk->probe = probes.Start(disk->volume.path);
    }
}

DiskEvent DiskList::NextEvent(cf::Nanoseconds now) noexcept {
    if (!gone_.empty()) {
        DiskEvent event = {std::move(gone_.front()), false};
        gone_.pop_front();
        return event;
    }
    const auto ready = FirstReady(now);
    const auto repeat = FirstRepeat();
    if (ready != order_.unreported.end() && (repeat == order_.reported.end() || *ready < *repeat))
        return ReportAppearance(*order_.reported.insert(order_.unreported.extract(ready)).position);
    return repeat != order_.reported.end() ? ReportAppearance(*repeat) : DiskEvent();
}

// The oldest unreported disk whose probe is done; the end if the list must wait for an older disk.
// Few disks are skipped, because probes start in this order and at most kMaximumThreads run at a
// time.
DiskList::Positions::const_iterator DiskList::FirstReady(cf::Nanoseconds now) const noexcept {
    auto position = order_.unreported.begin();
    for (; position != order_.unreported.end(); ++position) {
        const auto& disk = present_[*position];
        if (IsProbeDone(disk))
            return position;
        if (IsWithinTimeout(disk, now))
            break;
    }
    return order_.unreported.end();
}

DiskList::Positions::const_iterator DiskList::FirstRepeat() const noexcept {
    return order_.reported.lower_bound(order_.repeatFrom);
}

// The reported disks behind `position` appear again; there are none if the order was kept.
DiskEvent DiskList::ReportAppearance(std::size_t position) noexcept {
    const auto& disk = present_[position];
    disk->probe.reset();
    disk->isReported = true;
    order_.repeatFrom = position + 1;
    return {cf::Owned<Disk>::Share(disk.Get()), true};
}

bool DiskList::HasRepeats() const noexcept {
    return FirstRepeat() != order_.reported.end();
}

// Searches from the end: the youngest disk is usually the one found last.
bool DiskList::IsTimeoutPending(cf::Nanoseconds now) const noexcept {
    return now - order_.lastFound < kProbeTimeout &&
           std::any_of(
               order_.unreported.rbegin(), order_.unreported.rend(),
               [&](std::size_t position) { return IsWithinTimeout(present_[position], now); });
}

} // namespace disks
