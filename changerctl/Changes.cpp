#include "changerctl/Changes.h"

#include "changerctl/PrintableText.h"
#include "changerctl/Summary.h"
#include "changerctl/Target.h"

#include <utility>

namespace changerctl {
namespace {

// Collects the changes of one changer.
class ChangeList {
public:
    ChangeList(ChangerGuid changer, std::vector<Change>& changes)
        : changer_(changer), changes_(changes) {}

    void Add(const char* event, const std::string& text, const Json& values = Json::object()) {
        Json details{{"event", event}};
        details.update(values);
        changes_.push_back({changer_, text, std::move(details)});
    }

private:
    ChangerGuid changer_;
    std::vector<Change>& changes_;
};

std::string DescribeSteps(const ClientStatus& status) {
    const auto number = [](std::optional<std::uint16_t> step) {
        return step ? std::to_string(*step) : "?";
    };
    return status.currentStep || status.maximumStep
               ? " " + number(status.currentStep) + "/" + number(status.maximumStep)
               : "";
}

std::string DescribeStatusChange(const ClientStatus& status) {
    std::string text = "status " + Printable(status.client) + DescribeSteps(status);
    if (status.message)
        text += " \"" + Printable(*status.message) + "\"";
    if (status.abortRequested.value_or(false))
        text += " abort requested";
    return text;
}

void CompareStatuses(const Changer& former, const Changer& present, ChangeList& list) {
    for (const ClientStatus& status : former.statuses)
        if (present.FindStatus(status.client) == nullptr)
            list.Add("status_gone", "status " + Printable(status.client) + " gone",
                     {{"client", status.client}});
    for (const ClientStatus& status : present.statuses) {
        const ClientStatus* known = former.FindStatus(status.client);
        if (known == nullptr || *known != status)
            list.Add("status", DescribeStatusChange(status), StatusToJson(status));
    }
}

// One line for each value of the slot that is another one than before.
void CompareSlot(const Slot& former, const Slot& present, ChangeList& list) {
    if (former == present)
        return;
    const Json values = SlotToJson(present);
    const std::string slot = "slot " + std::to_string(present.number) + " ";
    const auto compare = [&](const std::string& before, const std::string& after,
                             const std::string& name) {
        if (before != after)
            list.Add("slot", slot + name + after, values);
    };
    compare(DescribeDisc(former), DescribeDisc(present), "");
    compare(DescribePlace(former), DescribePlace(present), "");
    compare(DescribeIdentifyTime(former), DescribeIdentifyTime(present), "identified ");
    compare(DescribeBoolean(former.isWanted), DescribeBoolean(present.isWanted), "wanted ");
}

void CompareSlots(const Changer& former, const Changer& present, ChangeList& list) {
    const Slot unknown;
    for (const Slot& slot : present.slots) {
        const Slot* known = former.FindSlot(slot.number);
        CompareSlot(known != nullptr ? *known : unknown, slot, list);
    }
}

void CompareChanger(const Changer& former, const Changer& present, ChangeList& list) {
    if (former.isReady != present.isReady)
        list.Add("ready", "ready " + DescribeBoolean(present.isReady),
                 {{"ready", present.isReady ? Json(*present.isReady) : Json(nullptr)}});
    if (former.isWanted != present.isWanted)
        list.Add("build_wanted", "build wanted " + DescribeBoolean(present.isWanted),
                 {{"build_wanted", present.isWanted}});
    if (former.preferences != present.preferences)
        list.Add("preferences", "preferences changed",
                 {{"preferences", ChangerToJson(present)["preferences"]}});
    CompareSlots(former, present, list);
    CompareStatuses(former, present, list);
}

} // namespace

std::vector<Change> FindChanges(const std::vector<Changer>& former,
                                const std::vector<Changer>& present) {
    std::vector<Change> changes;
    for (const Changer& changer : former)
        if (changer.guid && FindChanger(present, *changer.guid) == nullptr)
            ChangeList(*changer.guid, changes).Add("removed", "removed");
    for (const Changer& changer : present) {
        if (!changer.guid)
            continue;
        ChangeList list(*changer.guid, changes);
        const Changer* known = FindChanger(former, *changer.guid);
        if (known != nullptr)
            CompareChanger(*known, changer, list);
        else
            list.Add("added", "added", SummaryToJson(changer));
    }
    return changes;
}

Change ServerChange(bool isConnected) {
    const char* event = isConnected ? "server_back" : "server_gone";
    return {std::nullopt, isConnected ? "server back" : "server gone", {{"event", event}}};
}

} // namespace changerctl
