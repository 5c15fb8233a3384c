// The command identify.

#include "changerctl/Commands.h"
#include "changerctl/Failure.h"
#include "changerctl/Notifications.h"
#include "changerctl/ProgressDisplay.h"
#include "changerctl/Requests.h"
#include "changerctl/Target.h"

#include <algorithm>
#include <utility>

namespace changerctl {
namespace {

// A disc whose identification was requested.
struct Pending {
    SlotNumber slot;
    std::optional<std::int32_t> formerTime;
};

Target SelectNewDiscs(const std::vector<Changer>& changers, const Options& options) {
    const Changer& changer = SelectChanger(changers, options.arguments);
    Target target{changer.guid.value(), {}};
    for (const Slot& slot : changer.slots)
        if (slot.IsNew())
            target.slots.push_back(slot.number);
    return target;
}

Target Select(const std::vector<Changer>& changers, const Options& options) {
    return options.onlyNew ? SelectNewDiscs(changers, options)
                           : SelectSlots(changers, options.arguments);
}

std::vector<Pending> ReadPending(const Changer& changer, const Target& target) {
    std::vector<Pending> pending;
    for (const SlotNumber number : target.slots)
        if (const Slot* slot = changer.FindSlot(number))
            pending.push_back({number, slot->identifyTime});
    return pending;
}

// The disc is done when it is identified anew, no request for it is left and it is back.
bool IsDone(const Changer& changer, const Pending& disc) {
    const Slot* slot = changer.FindSlot(disc.slot);
    if (slot == nullptr || !slot->HasDisc())
        throw Failure(ExitStatus::EndedOtherwise,
                      "the disc of slot " + std::to_string(disc.slot) + " was removed");
    return slot->identifyTime != disc.formerTime && !slot->isWanted &&
           slot->DiscPlace() == Place::InSlot;
}

TextLine MakeLine(ChangerGuid changer, std::size_t done, std::size_t count) {
    TextLine line{{FormatGuid(changer) + "  "}};
    std::ranges::copy(MakeBar(done, count, "discs identified"), std::back_inserter(line));
    return line;
}

void AwaitIdentification(Notifications& notifications, const Target& target,
                         std::vector<Pending> pending, const Options& options) {
    ProgressDisplay display(options.colour);
    const std::size_t count = pending.size();
    const auto areDone = [&] {
        const Changer* changer = FindChanger(notifications.Changers(), target.changer);
        if (changer == nullptr)
            return false; // a restarted server may list its changers later
        std::erase_if(pending, [&](const Pending& disc) { return IsDone(*changer, disc); });
        display.Show(MakeLine(target.changer, count - pending.size(), count));
        return pending.empty();
    };
    if (!notifications.WaitUntil(areDone, options.timeLimit))
        throw Failure(ExitStatus::TimedOut, std::to_string(pending.size()) + " of " +
                                                std::to_string(count) +
                                                " discs were not identified in time");
}

} // namespace

void Identify(const Options& options) {
    if (options.isWithdrawal && options.waits)
        throw Failure(ExitStatus::Usage, "--withdraw has nothing to wait for");
    if (options.onlyNew && options.arguments.size() > 1)
        throw Failure(ExitStatus::Usage, "--new selects the slots: name none");
    if (!options.onlyNew && options.arguments.empty())
        throw Failure(ExitStatus::Usage, "no slot is named");
    Notifications notifications;
    notifications.AwaitFirst(options.FirstNotificationLimit());
    const Target target = Select(notifications.Changers(), options);
    std::vector<Pending> pending =
        ReadPending(*FindChanger(notifications.Changers(), target.changer), target);
    for (const SlotNumber slot : target.slots)
        RequestIdentification(target.changer, slot, !options.isWithdrawal);
    if (options.waits)
        AwaitIdentification(notifications, target, std::move(pending), options);
}

} // namespace changerctl
