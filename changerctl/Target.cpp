#include "changerctl/Target.h"

#include "changerctl/Failure.h"

#include <algorithm>
#include <span>

namespace changerctl {
namespace {

using Arguments = std::span<const std::string>;

constexpr std::size_t kAllGuidDigits = 16;

const Changer& RequireChanger(const std::vector<Changer>& changers, const std::string& argument) {
    const auto guid = ParseGuid(argument);
    if (!guid)
        throw Failure(ExitStatus::Usage,
                      argument + " is no changer: write its GUID in hexadecimal");
    const Changer* found = FindChanger(changers, *guid);
    if (found == nullptr)
        throw Failure(ExitStatus::NotFound, "the server has no changer " + FormatGuid(*guid));
    return *found;
}

std::string ListGuids(const std::vector<Changer>& changers) {
    std::string list;
    for (const Changer& changer : changers)
        list += (list.empty() ? "" : ", ") + FormatGuid(changer.guid.value_or(0));
    return list;
}

const Changer& OnlyChanger(const std::vector<Changer>& changers) {
    if (changers.empty())
        throw Failure(ExitStatus::NotFound, "the server has no changer");
    if (changers.size() > 1)
        throw Failure(ExitStatus::Usage,
                      "the server has several changers, name one of them: " + ListGuids(changers));
    return changers.front();
}

bool IsUnmistakablyGuid(const std::string& argument) {
    return argument.starts_with("0x") || argument.starts_with("0X") ||
           argument.size() == kAllGuidDigits;
}

// True if the first argument is a changer. The last one is a slot: without any, nothing is left to
// identify.
bool BeginsWithChanger(const std::vector<Changer>& changers, Arguments arguments) {
    if (arguments.size() < 2)
        return false;
    const std::string& first = arguments.front();
    const auto guid = ParseGuid(first);
    if (!ParseSlots(first) || IsUnmistakablyGuid(first))
        return guid.has_value();
    if (!guid || FindChanger(changers, *guid) == nullptr)
        return false;
    throw Failure(ExitStatus::Usage, first + " is a changer and a slot: write 0x" + first +
                                         " for the changer, or join the slots with commas");
}

std::vector<SlotNumber> ParseAllSlots(Arguments arguments) {
    std::string joined;
    for (const std::string& argument : arguments) {
        if (!ParseSlots(argument))
            throw Failure(ExitStatus::Usage, argument + " is no slot: write a number or a range");
        joined += (joined.empty() ? "" : ",") + argument;
    }
    const auto slots = ParseSlots(joined);
    if (!slots)
        throw Failure(ExitStatus::Usage, "no slot is named");
    return *slots;
}

std::string DescribeSlots(const Changer& changer) {
    if (changer.slots.empty())
        return "it shows none";
    const auto [first, last] = std::ranges::minmax(changer.slots, {}, &Slot::number);
    return std::to_string(first.number) + " to " + std::to_string(last.number);
}

void RequireSlot(const Changer& changer, SlotNumber slot) {
    if (changer.FindSlot(slot) == nullptr)
        throw Failure(ExitStatus::NotFound, FormatGuid(changer.guid.value()) + " has no slot " +
                                                std::to_string(slot) + " (" +
                                                DescribeSlots(changer) + ")");
}

} // namespace

const Changer* FindChanger(const std::vector<Changer>& changers, ChangerGuid guid) {
    const auto found = std::ranges::find(changers, guid, &Changer::guid);
    return found == changers.end() ? nullptr : &*found;
}

const Changer& SelectChanger(const std::vector<Changer>& changers,
                             const std::vector<std::string>& arguments) {
    if (arguments.size() > 1)
        throw Failure(ExitStatus::Usage, "one changer at most, not " + arguments[1] + " too");
    const Changer& changer =
        arguments.empty() ? OnlyChanger(changers) : RequireChanger(changers, arguments.front());
    if (!changer.guid)
        throw Failure(ExitStatus::NotFound, "the server shows no GUID of its changer");
    return changer;
}

Target SelectSlots(const std::vector<Changer>& changers,
                   const std::vector<std::string>& arguments) {
    const Arguments all = arguments;
    const std::size_t split = BeginsWithChanger(changers, all) ? 1 : 0;
    const Arguments slots = all.subspan(split);
    const std::vector<std::string> beforeSlots(all.begin(), slots.begin());
    const Changer& changer = SelectChanger(changers, beforeSlots);
    Target target{changer.guid.value(), ParseAllSlots(slots)};
    for (const SlotNumber slot : target.slots)
        RequireSlot(changer, slot);
    return target;
}

} // namespace changerctl
