#ifndef CHANGERCTL_CHANGES_H
#define CHANGERCTL_CHANGES_H

/* What has changed between two states that the server showed. */

#include "changerctl/Changer.h"
#include "changerctl/JsonOutput.h"

#include <string>
#include <vector>

namespace changerctl {

/* One change, for a line of output. */
struct Change {
    std::optional<ChangerGuid> changer; // nothing: of the server
    std::string text;                   // printable: "slot 7 drive"
    Json details;                       // "event" and the new values
};

/* The changes from one state to the next, changer by changer, in the order of the new state;
   removed changers are first. Changers without a GUID are left out. */
std::vector<Change> FindChanges(const std::vector<Changer>& former,
                                const std::vector<Changer>& present);

/* The connection to the server has ended, or exists again. */
Change ServerChange(bool isConnected);

} // namespace changerctl

#endif
