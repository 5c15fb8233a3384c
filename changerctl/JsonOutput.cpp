#include "changerctl/JsonOutput.h"

#include "changerctl/Summary.h"

#include <array>
#include <optional>

namespace changerctl {
namespace {

template<typename Value>
Json OrNull(const std::optional<Value>& value) {
    return value ? Json(*value) : Json(nullptr);
}

Json PlaceToJson(const Slot& slot) {
    const auto place = slot.DiscPlace();
    return !place ? Json(nullptr) : Json(*place == Place::InSlot ? "slot" : "drive");
}

// A disc that was never identified has no time.
Json IdentifyTimeToJson(const Slot& slot) {
    const bool hasTime = slot.HasDisc() && slot.identifyTime.value_or(0) != 0;
    return hasTime ? Json(FormatUtc(*slot.identifyTime)) : Json(nullptr);
}

Json StatusesToJson(const Changer& changer) {
    Json statuses = Json::array();
    for (const ClientStatus& status : changer.statuses)
        statuses.push_back(StatusToJson(status));
    return statuses;
}

Json PreferencesToJson(const Preferences& preferences) {
    return {{"identify_on_insert", OrNull(preferences.identifyOnInsert)},
            {"build_on_identify", OrNull(preferences.buildOnIdentify)},
            {"build_on_schedule", OrNull(preferences.buildOnSchedule)},
            {"build_hour", OrNull(preferences.buildHours)},
            {"build_minute", OrNull(preferences.buildMinutes)}};
}

} // namespace

Json SummaryToJson(const Changer& changer) {
    const DiscCounts counts = CountDiscs(changer);
    return {{"changer", changer.guid ? Json(FormatGuid(*changer.guid)) : Json(nullptr)},
            {"ready", OrNull(changer.isReady)},
            {"drives", OrNull(changer.drives)},
            {"busy", counts.busy},
            {"slots", changer.slots.size()},
            {"discs", counts.discs},
            {"new", counts.fresh},
            {"wanted", counts.wanted},
            {"build_wanted", changer.isWanted},
            {"clients", StatusesToJson(changer)}};
}

Json ChangerToJson(const Changer& changer) {
    Json json = SummaryToJson(changer);
    json["preferences"] = PreferencesToJson(changer.preferences);
    Json& slots = json["slot_list"] = Json::array();
    for (const Slot& slot : changer.slots)
        slots.push_back(SlotToJson(slot));
    return json;
}

Json SlotToJson(const Slot& slot) {
    return {{"slot", slot.number},
            {"kind", OrNull(slot.kind)},
            {"place", PlaceToJson(slot)},
            {"mount_state", OrNull(slot.mountState)},
            {"identified", IdentifyTimeToJson(slot)},
            {"wanted", slot.isWanted},
            {"partitions", OrNull(slot.partitions)}};
}

Json StatusToJson(const ClientStatus& status) {
    return {{"client", status.client},
            {"message", OrNull(status.message)},
            {"current_step", OrNull(status.currentStep)},
            {"maximum_step", OrNull(status.maximumStep)},
            {"abort_requested", OrNull(status.abortRequested)}};
}

std::string FormatUtc(std::time_t time) {
    std::tm utc{};
    gmtime_r(&time, &utc);
    std::array<char, 32> text{};
    std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%SZ", &utc);
    return text.data();
}

std::string Dump(const Json& json, bool indented) {
    return json.dump(indented ? 2 : -1, ' ', true, Json::error_handler_t::replace);
}

} // namespace changerctl
