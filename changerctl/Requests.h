#ifndef CHANGERCTL_REQUESTS_H
#define CHANGERCTL_REQUESTS_H

/*
 * The requests to the server.
 *
 * Each waits up to 30 seconds for its reply; the run loop delivers notifications meanwhile. Each
 * throws Failure: Refused with the server's text and number, NoServer, TimedOut, or EndedOtherwise
 * for a reply that lacks something.
 */

#include "changerctl/Identifiers.h"

#include <chrono>
#include <optional>
#include <string>

namespace changerctl {

/* Requests the identification of the disc in the slot if `request` is true, and else withdraws the
   request. */
void RequestIdentification(ChangerGuid changer, SlotNumber slot, bool request);

/* The same for the changer as a whole, which is a build of its directory cache. */
void RequestBuild(ChangerGuid changer, bool request);

/* What a client does with a changer, as the server shows it. An empty message removes it. */
struct StatusReport {
    std::string client;
    std::string message;
    std::uint16_t currentStep = 0;
    std::uint16_t maximumStep = 0;
    bool abortRequested = false;
};

/* Replaces the status of the client. */
void SetClientStatus(ChangerGuid changer, const StatusReport& report);

/* Mounts the disc, in that drive if one is given. Repeats the request while the server is busy, up
   to `limit`. Returns the path of the mounted disc; an empty one if the server names none. */
std::string MountDisc(ChangerGuid changer, SlotNumber slot, std::optional<std::uint16_t> drive,
                      std::chrono::seconds limit);

/* Ejects the disc, with `force` even if another process has it mounted for itself alone. Repeats
   the request while the server is busy, up to `limit`. */
void EjectDisc(ChangerGuid changer, SlotNumber slot, bool force, std::chrono::seconds limit);

} // namespace changerctl

#endif
