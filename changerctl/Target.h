#ifndef CHANGERCTL_TARGET_H
#define CHANGERCTL_TARGET_H

/* The changer and the slots that the arguments of a command name. */

#include "changerctl/Changer.h"
#include "changerctl/Options.h"

#include <string>
#include <vector>

namespace changerctl {

/* The changer that the arguments name, or the only one if they are empty. Throws Failure: Usage for
   an argument too many, for what is no GUID, and without an argument if there are several changers;
   NotFound if there is no such changer. */
const Changer& SelectChanger(const std::vector<Changer>& changers,
                             const std::vector<std::string>& arguments);

/* The changer of that GUID, or null. */
const Changer* FindChanger(const std::vector<Changer>& changers, ChangerGuid guid);

/* A changer and some of its slots. */
struct Target {
    ChangerGuid changer = 0;
    std::vector<SlotNumber> slots; // in the order of the arguments, each once
};

/*
 * The slots that the arguments name, which may follow a changer. Nothing is known then but that the
 * server lists them; they may be empty.
 *
 * The first of several arguments may be a changer and a slot: "10 11" where a changer 0x10 exists.
 * That is an error: the user must write 0x10 or 10,11. A GUID of 16 digits and one behind 0x is
 * always a changer.
 *
 * Throws Failure as SelectChanger() does; Usage without a slot; NotFound if the changer has no such
 * slot.
 */
Target SelectSlots(const std::vector<Changer>& changers, const std::vector<std::string>& arguments);

} // namespace changerctl

#endif
