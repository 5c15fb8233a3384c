#include "changerctl/Changer.h"

#include "changerctl/ListValues.h"

#include <algorithm>

namespace changerctl {
namespace {

std::optional<std::size_t> CountMembers(CFArrayRef array) {
    if (array == nullptr)
        return std::nullopt;
    return static_cast<std::size_t>(CFArrayGetCount(array));
}

// Calls append(dictionary, index) for each dictionary of the array, which may be null.
template<typename Append>
void ForEachDictionary(CFArrayRef array, const Append& append) {
    const std::size_t count = CountMembers(array).value_or(0);
    for (std::size_t i = 0; i < count; ++i) {
        const void* value = CFArrayGetValueAtIndex(array, static_cast<CFIndex>(i));
        if (CFDictionaryRef dictionary = AsDictionary(value))
            append(dictionary, i);
    }
}

Slot ReadSlot(CFDictionaryRef media, std::size_t position) {
    const auto number = FindUInt16(media, CFSTR("Media Storage Element Index"));
    const auto partitions = CFDictionaryGetValue(media, CFSTR("Media Partition Info"));
    return {
        .number = number.value_or(static_cast<SlotNumber>(position)),
        .kind = FindUInt16(media, CFSTR("Media Kind")),
        .identifyTime = FindInt32(media, CFSTR("Media Identify Time")),
        .isWanted = FindBoolean(media, CFSTR("Media Request Identification")).value_or(false),
        .mountState = FindUInt32(media, CFSTR("Media Mount State")),
        .partitions = CountMembers(AsArray(partitions)),
    };
}

std::vector<Slot> ReadSlots(CFDictionaryRef info) {
    std::vector<Slot> slots;
    const auto media = AsArray(CFDictionaryGetValue(info, CFSTR("Changer Media Info")));
    ForEachDictionary(media, [&](CFDictionaryRef medium, std::size_t position) {
        slots.push_back(ReadSlot(medium, position));
    });
    return slots;
}

ClientStatus ReadStatus(const std::string& client, CFDictionaryRef status) {
    return {
        .client = client,
        .message = FindText(status, CFSTR("Message")),
        .currentStep = FindUInt16(status, CFSTR("Current Step")),
        .maximumStep = FindUInt16(status, CFSTR("Maximum Step")),
        .abortRequested = FindBoolean(status, CFSTR("Abort Requested")),
    };
}

std::vector<ClientStatus> ReadStatuses(CFDictionaryRef info) {
    std::vector<ClientStatus> statuses;
    const auto byClient = AsDictionary(CFDictionaryGetValue(info, CFSTR("Changer Client Status")));
    if (byClient == nullptr)
        return statuses;
    for (const Member& member : MembersOf(byClient))
        if (CFDictionaryRef status = AsDictionary(member.value))
            statuses.push_back(ReadStatus(member.key, status));
    return statuses;
}

Preferences ReadPreferences(CFDictionaryRef info) {
    const auto preferences = AsDictionary(CFDictionaryGetValue(info, CFSTR("Changer Preferences")));
    if (preferences == nullptr)
        return {};
    return {
        .identifyOnInsert = FindBoolean(preferences, CFSTR("IdentifyMediaOnInsert")),
        .buildOnIdentify = FindBoolean(preferences, CFSTR("BuildDirCacheOnIdentify")),
        .buildOnSchedule = FindBoolean(preferences, CFSTR("BuildDirCacheOnSchedule")),
        .buildHours = FindInt32(preferences, CFSTR("BuildDirCacheTimeHours")),
        .buildMinutes = FindInt32(preferences, CFSTR("BuildDirCacheTimeMinutes")),
    };
}

Changer ReadChanger(CFDictionaryRef info) {
    return {
        .guid = FindUInt64(info, CFSTR("GUID")),
        .isReady = FindBoolean(info, CFSTR("Changer Ready")),
        .drives = FindUInt16(info, CFSTR("Data Transfer Element Count")),
        .isWanted = FindBoolean(info, CFSTR("Changer Request Identification")).value_or(false),
        .slots = ReadSlots(info),
        .statuses = ReadStatuses(info),
        .preferences = ReadPreferences(info),
    };
}

} // namespace

std::optional<Place> Slot::DiscPlace() const {
    constexpr std::uint32_t kUnmounted = 0;
    constexpr std::uint32_t kUnmountedToo = 0x40; // uses no drive either
    if (!HasDisc() || !mountState)
        return std::nullopt;
    const bool isInSlot = *mountState == kUnmounted || *mountState == kUnmountedToo;
    return isInSlot ? Place::InSlot : Place::InDrive;
}

const Slot* Changer::FindSlot(SlotNumber number) const {
    if (number < slots.size() && slots[number].number == number)
        return &slots[number]; // servers list the slots in order
    const auto found = std::ranges::find(slots, number, &Slot::number);
    return found == slots.end() ? nullptr : &*found;
}

const ClientStatus* Changer::FindStatus(std::string_view client) const {
    const auto found = std::ranges::find(statuses, client, &ClientStatus::client);
    return found == statuses.end() ? nullptr : &*found;
}

std::vector<Changer> ReadChangers(CFTypeRef changerInfo) {
    std::vector<Changer> changers;
    ForEachDictionary(AsArray(changerInfo), [&](CFDictionaryRef info, std::size_t) {
        changers.push_back(ReadChanger(info));
    });
    return changers;
}

} // namespace changerctl
