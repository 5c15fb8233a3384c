#include "disks/DiskList.h"

#include <sys/sysmacros.h>

#include <algorithm>
#include <iterator>
#include <set>
#include <string_view>

namespace {

void DestroyDisk(cf::Object* object) noexcept {
    delete static_cast<__DADisk*>(object);
}

} // namespace

constinit const cf::Class __DADisk::kClass = {"disk", DestroyDisk, nullptr, nullptr};

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

} // namespace

void DiskList::Update(std::vector<Volume> volumes) {
    const auto volumeOf = [](const cf::Owned<Disk>& disk) -> const Volume& { return disk->volume; };
    const auto stays = [&](const cf::Owned<Disk>& disk) {
        return std::ranges::binary_search(volumes, disk->volume);
    };
    std::set<std::string> names;
    for (const auto& disk : present_)
        if (stays(disk))
            names.insert(disk->name);

    std::vector<cf::Owned<Disk>> come;
    for (const Volume& volume : volumes) {
        if (std::ranges::binary_search(present_, volume, {}, volumeOf))
            continue;
        come.push_back(cf::Owned<Disk>::Adopt(new Disk(volume, UniqueName(volume, names))));
        names.insert(come.back()->name);
    }
    gone_.reserve(gone_.size() + present_.size());
    present_.reserve(present_.size() + come.size());

    // From here on nothing fails.
    for (auto& disk : present_)
        if (!stays(disk))
            Leave(std::move(disk));
    std::erase_if(present_, [](const cf::Owned<Disk>& disk) { return !disk; });
    std::ranges::move(come, std::back_inserter(present_));
    std::ranges::sort(present_, {}, volumeOf);
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

DiskEvent DiskList::TakeEvent() noexcept {
    if (!gone_.empty()) {
        DiskEvent event = {std::move(gone_.front()), false};
        gone_.erase(gone_.begin());
        return event;
    }
    const auto hasAnswered = [](const cf::Owned<Disk>& disk) {
        return disk->probe && disk->probe->answered;
    };
    const auto disk = std::ranges::find_if(present_, hasAnswered);
    if (disk == present_.end())
        return {};
    (*disk)->probe.reset();
    (*disk)->isKnown = true;
    return {cf::Owned<Disk>::Share(disk->Get()), true};
}

} // namespace disks
