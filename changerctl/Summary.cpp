#include "changerctl/Summary.h"

#include "changerctl/PrintableText.h"

#include <algorithm>
#include <array>
#include <ctime>

namespace changerctl {
namespace {

constexpr const char* kAbsent = "-";

template<typename Number>
std::string DescribeNumber(std::optional<Number> number) {
    return number ? std::to_string(*number) : kAbsent;
}

std::string DescribeGuid(const Changer& changer) {
    return changer.guid ? FormatGuid(*changer.guid) : kAbsent;
}

Span Warning(const std::string& text, bool isWarning) {
    return {text, isWarning ? Style::Yellow : Style::Plain};
}

std::vector<Span> MakeChangerRow(const Changer& changer) {
    const DiscCounts counts = CountDiscs(changer);
    return {{DescribeGuid(changer)},
            Warning(DescribeBoolean(changer.isReady), changer.isReady == false),
            {DescribeNumber(changer.drives)},
            {std::to_string(counts.busy)},
            {std::to_string(changer.slots.size())},
            {std::to_string(counts.discs)},
            {std::to_string(counts.fresh)},
            {std::to_string(counts.wanted)},
            {DescribeActivity(changer)}};
}

std::vector<Span> MakeSlotRow(const Slot& slot) {
    const bool hasDisc = slot.HasDisc();
    return {{std::to_string(slot.number)},
            {DescribeDisc(slot)},
            {DescribePlace(slot)},
            {DescribeIdentifyTime(slot)},
            {hasDisc || slot.isWanted ? DescribeBoolean(slot.isWanted) : kAbsent},
            {slot.partitions.value_or(0) > 0 ? DescribeNumber(slot.partitions) : kAbsent}};
}

std::string DescribeStep(const ClientStatus& status) {
    return status.currentStep || status.maximumStep
               ? DescribeNumber(status.currentStep) + " of " + DescribeNumber(status.maximumStep)
               : kAbsent;
}

} // namespace

DiscCounts CountDiscs(const Changer& changer) {
    DiscCounts counts;
    for (const Slot& slot : changer.slots) {
        counts.discs += std::size_t{slot.HasDisc()};
        counts.busy += std::size_t{slot.DiscPlace() == Place::InDrive};
        counts.fresh += std::size_t{slot.IsNew()};
        counts.wanted += std::size_t{slot.isWanted};
    }
    return counts;
}

std::string DescribeStatus(const ClientStatus& status) {
    std::string text = Printable(status.client);
    if (!status.message.value_or("").empty())
        text += ": " + Printable(*status.message);
    if (const std::string step = DescribeStep(status); step != kAbsent)
        text += ", " + step;
    if (status.abortRequested.value_or(false))
        text += " (abort requested)";
    return text;
}

std::string DescribeActivity(const Changer& changer) {
    std::string activity;
    for (const ClientStatus& status : changer.statuses)
        activity += (activity.empty() ? "" : "; ") + DescribeStatus(status);
    if (changer.isWanted)
        activity += std::string(activity.empty() ? "" : "; ") + "build requested";
    return activity.empty() ? kAbsent : activity;
}

std::string DescribeBoolean(std::optional<bool> value) {
    return !value ? kAbsent : *value ? "yes" : "no";
}

std::string DescribePlace(const Slot& slot) {
    const auto place = slot.DiscPlace();
    return !place ? kAbsent : *place == Place::InSlot ? "slot" : "drive";
}

std::string DescribeDisc(const Slot& slot) {
    if (!slot.kind)
        return kAbsent;
    return *slot.kind == 0 ? "empty" : "kind " + std::to_string(*slot.kind);
}

std::string DescribeIdentifyTime(const Slot& slot) {
    if (!slot.HasDisc() || !slot.identifyTime)
        return kAbsent;
    const std::time_t time = *slot.identifyTime;
    std::tm local{};
    if (time == 0 || localtime_r(&time, &local) == nullptr)
        return "never";
    std::array<char, 32> text{};
    std::strftime(text.data(), text.size(), "%Y-%m-%d %H:%M:%S", &local);
    return text.data();
}

Table MakeChangerTable(const std::vector<Changer>& changers,
                       const std::vector<std::string>& chosen) {
    Table table({{"changer"},
                 {"ready"},
                 {"drives"},
                 {"busy"},
                 {"slots"},
                 {"discs"},
                 {"new"},
                 {"wanted"},
                 {"activity"}},
                chosen);
    for (const Changer& changer : changers)
        table.AddRow(MakeChangerRow(changer));
    return table;
}

Table MakeSlotTable(const Changer& changer, const std::vector<std::string>& chosen) {
    Table table({{"slot", Alignment::Right},
                 {"disc"},
                 {"place"},
                 {"identified"},
                 {"wanted"},
                 {"partitions"}},
                chosen);
    for (const Slot& slot : changer.slots)
        table.AddRow(MakeSlotRow(slot));
    return table;
}

Table MakePreferenceTable(const Changer& changer) {
    const Preferences& preferences = changer.preferences;
    Table table({{"preference"}, {"value"}}, {});
    table.AddRow({{"identify on insert"}, {DescribeBoolean(preferences.identifyOnInsert)}});
    table.AddRow({{"build on identify"}, {DescribeBoolean(preferences.buildOnIdentify)}});
    table.AddRow({{"build on schedule"}, {DescribeBoolean(preferences.buildOnSchedule)}});
    table.AddRow({{"build at hour"}, {DescribeNumber(preferences.buildHours)}});
    table.AddRow({{"build at minute"}, {DescribeNumber(preferences.buildMinutes)}});
    return table;
}

Table MakeStatusTable(const Changer& changer) {
    Table table({{"client"}, {"step"}, {"abort"}, {"message"}}, {});
    for (const ClientStatus& status : changer.statuses)
        table.AddRow({{Printable(status.client)},
                      {DescribeStep(status)},
                      {DescribeBoolean(status.abortRequested)},
                      {status.message ? Printable(*status.message) : kAbsent}});
    return table;
}

} // namespace changerctl
