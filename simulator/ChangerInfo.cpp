// The state of a changer as a notification and as output.

#include "simulator/Changer.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>

namespace simulator {

namespace {

// Indices of 16 bits are sent as signed integers, as clients send them.
std::int16_t ToWire(std::size_t index) {
    return static_cast<std::int16_t>(static_cast<std::uint16_t>(index));
}

} // namespace

Value Changer::MakeInfo() {
    const Section section(*this);
    Value media = Value::MakeArray();
    for (std::size_t slot = 0; slot < slots_.size(); ++slot)
        media.Append(MakeMediaInfo(static_cast<SlotIndex>(slot)));
    Value info = Value::MakeDictionary();
    info.Set("GUID", guid_)
        .Set("Changer Ready", ready_)
        .Set("Changer Preferences", MakePreferencesInfo())
        .Set("Changer Media Info", std::move(media))
        .Set("Data Transfer Element Count", ToWire(mechanics_.DriveCount()))
        .Set("Changer Request Identification", identificationRequested_)
        .Set("Changer Client Status", MakeStatusInfo());
    return info;
}

Value Changer::MakeMediaInfo(SlotIndex slot) const {
    static const Disc kNoDisc = [] {
        Disc disc;
        disc.kind = 0;
        return disc;
    }();
    const Disc* found = FindDisc(slot);
    const Disc& disc = found ? *found : kNoDisc;
    Value partitions = Value::MakeArray();
    for (const bool hasFileSystem : disc.partitionsWithFileSystem) {
        if (disc.identifyTime != 0) {
            Value partition = Value::MakeDictionary();
            partition.Set("Partition Has File System", hasFileSystem);
            partitions.Append(std::move(partition));
        }
    }
    Value media = Value::MakeDictionary();
    media.Set("Media Kind", ToWire(disc.kind))
        .Set("Media Request Identification", disc.requested)
        .Set("Media Storage Element Index", ToWire(slot))
        .Set("Media Identify Time", disc.identifyTime)
        .Set("Media Mount State", MountState(slot))
        .Set("Media Partition Info", std::move(partitions));
    return media;
}

std::uint32_t Changer::MountState(SlotIndex slot) const {
    constexpr std::uint32_t kWaitsForRobot = 0x40; // the disc is in its slot, so not mounted
    switch (mechanics_.PhaseOf(slot)) {
    case Phase::InSlot:
        return IsLoadQueued(slot) ? kWaitsForRobot : 0;
    case Phase::Readable:
        return 2;
    case Phase::Unloading:
        return 3;
    default:
        return 1;
    }
}

Value Changer::MakePreferencesInfo() const {
    Value info = Value::MakeDictionary();
    const auto setIfPresent = [&](const char* key, const auto& preference) {
        if (preference)
            info.Set(key, *preference);
    };
    setIfPresent("IdentifyMediaOnInsert", preferences_.identifyOnInsert);
    setIfPresent("BuildDirCacheOnIdentify", preferences_.buildOnIdentify);
    setIfPresent("BuildDirCacheOnSchedule", preferences_.buildOnSchedule);
    setIfPresent("BuildDirCacheTimeHours", preferences_.hours);
    setIfPresent("BuildDirCacheTimeMinutes", preferences_.minutes);
    return info;
}

Value Changer::MakeStatusInfo() const {
    Value info = Value::MakeDictionary();
    for (const auto& [client, status] : statuses_) {
        Value entry = Value::MakeDictionary();
        entry.Set("Message", status.message)
            .Set("Current Step", ToWire(status.currentStep))
            .Set("Maximum Step", ToWire(status.maximumStep))
            .Set("Abort Requested", status.abortRequested);
        info.Set(client.c_str(), std::move(entry));
    }
    return info;
}

void Changer::Print(std::optional<SlotIndex> only, bool withDirectories) {
    const Section section(*this);
    const auto line = [&](const char* kind, const Fields& fields) {
        events_.Print("model " + std::string(kind) + fields.Text());
    };
    line("changer", Fields()
                        .AddChanger(guid_)
                        .Add("ready", ready_)
                        .Add("slots", slots_.size())
                        .Add("drives", mechanics_.DriveCount())
                        .Add("robot", mechanics_.IsRobotIdle() ? "idle" : "moving")
                        .Add("requested", identificationRequested_));
    for (const auto& [client, status] : statuses_)
        line("status", Describe(client, status));
    for (DriveIndex drive = 0; drive < mechanics_.DriveCount(); ++drive) {
        const auto slot = mechanics_.FindSlotIn(drive);
        line("drive", Fields()
                          .AddChanger(guid_)
                          .Add("drive", drive)
                          .Add("slot", slot ? std::to_string(*slot) : "none"));
    }
    for (std::size_t slot = 0; slot < slots_.size(); ++slot)
        if (slots_[slot] && (!only || *only == slot))
            PrintSlot(static_cast<SlotIndex>(slot), *slots_[slot], withDirectories || only);
}

void Changer::PrintSlot(SlotIndex slot, const Disc& disc, bool withDirectories) const {
    const auto print = [&](const char* kind, const Fields& fields) {
        events_.Print("model " + std::string(kind) + fields.Text());
    };
    print("slot", Describe(slot)
                      .Add("kind", disc.kind)
                      .Add("state", MountState(slot))
                      .Add("identified", disc.identifyTime != 0)
                      .Add("identify-time", disc.identifyTime)
                      .Add("times-identified", disc.timesIdentified)
                      .Add("times-mounted", disc.timesMounted)
                      .Add("requested", disc.requested)
                      .Add("private", disc.holder && disc.holder->user.isPrivate)
                      .Add("held", disc.holder.has_value())
                      .Add("appeared", disc.appeared)
                      .Add("partitions", disc.partitionsWithFileSystem.size()));
    if (!withDirectories)
        return;
    for (const auto& volume : disc.volumes) {
        for (EntryIndex index = 0; index < volume->tree->Size(); ++index) {
            if (volume->tree->Entry(index).IsDirectory()) {
                const auto found = volume->directories.find(index);
                const auto state =
                    found == volume->directories.end() ? Volume::Directory{} : found->second;
                print("directory", Describe(*volume, index)
                                       .Add("cached", state.cached)
                                       .Add("listings", state.listings));
            }
        }
    }
}

} // namespace simulator
