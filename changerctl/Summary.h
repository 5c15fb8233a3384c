#ifndef CHANGERCTL_SUMMARY_H
#define CHANGERCTL_SUMMARY_H

/* A changer in one line of a table, and its slots in one line each. */

#include "changerctl/Changer.h"
#include "changerctl/Table.h"

#include <cstddef>
#include <string>
#include <vector>

namespace changerctl {

/* The numbers of discs in some state. */
struct DiscCounts {
    std::size_t discs = 0;
    std::size_t busy = 0;   // with a drive
    std::size_t fresh = 0;  // never identified
    std::size_t wanted = 0; // their identification is requested
};

/* Counts the discs of the changer. */
DiscCounts CountDiscs(const Changer& changer);

/* What the clients of a changer do: "trayprobed: Building..., 4 of 10", or "-". Printable. */
std::string DescribeActivity(const Changer& changer);
/* The same of one client; what the server does not show is left out. */
std::string DescribeStatus(const ClientStatus& status);

/* "yes", "no", or "-" for an absent value. */
std::string DescribeBoolean(std::optional<bool> value);

/* "slot", "drive", or "-". */
std::string DescribePlace(const Slot& slot);
/* "kind 1", "empty", or "-". */
std::string DescribeDisc(const Slot& slot);
/* The local time "2026-11-21 14:03:11", "never", or "-". */
std::string DescribeIdentifyTime(const Slot& slot);

/* The table of changers, of the changers' slots, of their preferences and of their clients.
   `chosen` names the columns, see Table. */
Table MakeChangerTable(const std::vector<Changer>& changers,
                       const std::vector<std::string>& chosen);
Table MakeSlotTable(const Changer& changer, const std::vector<std::string>& chosen);
Table MakePreferenceTable(const Changer& changer);
Table MakeStatusTable(const Changer& changer);

} // namespace changerctl

#endif
