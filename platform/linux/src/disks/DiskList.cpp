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

// Further directories of one device are told apart as partitions are: "sr0", "sr0s1", "sr0s2". A
// new disk has the first of these names that is not taken. Names are only added, so that the search
// for the next one of the device goes on where the last one ended.
class DiskNames {
public:
    void Take(const std::string& name) {
        taken_.insert(name);
    }
    std::string MakeFor(const Volume& volume) {
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
    std::map<std::string, unsigned> ordinals_; // the next one to try for each device
};

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

bool IsInTime(const cf::Owned<Disk>& disk, cf::Nanoseconds now) noexcept {
    return now - disk->found < DiskList::kPatience;
}

bool HasAnswered(const cf::Owned<Disk>& disk) noexcept {
    return disk->probe && disk->probe->answered;
}

using DisksByVolume = std::set<Disk*, ByVolume>;

// The disks of the volumes that were there before, which leave `former`; none for a new volume.
Disks TakeStaying(const std::vector<Volume>& volumes, DisksByVolume& former) {
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

void AddNew(const std::vector<Volume>& volumes, cf::Nanoseconds now, Disks& disks) {
    DiskNames names;
    for (const auto& disk : disks)
        if (disk)
            names.Take(disk->name);
    for (std::size_t i = 0; i < volumes.size(); ++i)
        if (!disks[i])
            disks[i] = cf::Owned<Disk>::Adopt(new Disk(volumes[i], names.MakeFor(volumes[i]), now));
}

void Leave(Disk& disk) noexcept {
    disk.isPresent = false;
    if (disk.probe)
        disk.probe->unwanted = true;
}

} // namespace

DiskList::Order DiskList::OrderOf(const Disks& disks) const {
    Order order;
    order.again = disks.size();
    for (std::size_t i = 0; i < disks.size(); ++i) {
        const auto& disk = disks[i];
        Positions& positions = disk->isKnown ? order.known : order.unknown;
        positions.insert(positions.end(), i);
        if (disk->isKnown && disk->position >= order_.again)
            order.again = std::min(order.again, i);
        if (!disk->isKnown)
            order.latest = std::max(order.latest, disk->found);
    }
    return order;
}

void DiskList::Update(std::vector<Volume> volumes, cf::Nanoseconds now) {
    DisksByVolume gone;
    for (const auto& disk : present_)
        gone.insert(disk.Get());
    Disks present = TakeStaying(volumes, gone);
    AddNew(volumes, now, present);
    Order order = OrderOf(present);
    std::list<cf::Owned<Disk>> toTell;
    for (Disk* const disk : gone)
        if (disk->isKnown)
            toTell.push_back(cf::Owned<Disk>::Share(disk));

    // From here on nothing fails.
    for (Disk* const disk : gone)
        Leave(*disk);
    gone_.splice(gone_.end(), toTell);
    present_ = std::move(present);
    order_ = std::move(order);
    for (std::size_t i = 0; i < present_.size(); ++i)
        present_[i]->position = i;
}

void DiskList::StartProbes(VolumeProbes& probes) {
    for (; order_.probed < present_.size(); ++order_.probed) {
        const auto& disk = present_[order_.probed];
        if (!disk->isKnown && !disk->probe)
            disk->probe = probes.Start(disk->volume.path);
    }
}

DiskEvent DiskList::TakeEvent(cf::Nanoseconds now) noexcept {
    if (!gone_.empty()) {
        DiskEvent event = {std::move(gone_.front()), false};
        gone_.pop_front();
        return event;
    }
    const auto ready = FirstReady(now);
    const auto again = FirstAgain();
    if (ready != order_.unknown.end() && (again == order_.known.end() || *ready < *again))
        return TellAppearance(*order_.known.insert(order_.unknown.extract(ready)).position);
    return again != order_.known.end() ? TellAppearance(*again) : DiskEvent();
}

// The oldest disk that has answered, unless an older one holds it back. Those that are passed over
// are few: of the disks that have not answered in time, the younger ones have not been asked.
DiskList::Positions::const_iterator DiskList::FirstReady(cf::Nanoseconds now) const noexcept {
    auto position = order_.unknown.begin();
    for (; position != order_.unknown.end(); ++position) {
        const auto& disk = present_[*position];
        if (HasAnswered(disk))
            return position;
        if (IsInTime(disk, now))
            break;
    }
    return order_.unknown.end();
}

DiskList::Positions::const_iterator DiskList::FirstAgain() const noexcept {
    return order_.known.lower_bound(order_.again);
}

// The known disks behind it appear again: none, when it was told in the order of mounting.
DiskEvent DiskList::TellAppearance(std::size_t position) noexcept {
    const auto& disk = present_[position];
    disk->probe.reset();
    disk->isKnown = true;
    order_.again = position + 1;
    return {cf::Owned<Disk>::Share(disk.Get()), true};
}

bool DiskList::IsOutOfOrder() const noexcept {
    return FirstAgain() != order_.known.end();
}

// The last disk is mostly the one found last.
bool DiskList::MayHoldBack(cf::Nanoseconds now) const noexcept {
    return now - order_.latest < kPatience &&
           std::any_of(
               order_.unknown.rbegin(), order_.unknown.rend(),
               [&](std::size_t position) { return IsInTime(present_[position], now); });
}

} // namespace disks
