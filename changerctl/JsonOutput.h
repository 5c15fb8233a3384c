#ifndef CHANGERCTL_JSONOUTPUT_H
#define CHANGERCTL_JSONOUTPUT_H

/* JSON of what the server shows; changerctl(1) describes the keys. Keys are only ever added. */

#include "changerctl/Changer.h"

#include <ctime>
#include <nlohmann/json.hpp>
#include <string>

namespace changerctl {

/* Keeps the order of the keys. */
using Json = nlohmann::ordered_json;

/* Objects of a changer: its line of the list; all of it; one slot; one client's status. */
Json SummaryToJson(const Changer& changer);
Json ChangerToJson(const Changer& changer);
Json SlotToJson(const Slot& slot);
Json StatusToJson(const ClientStatus& status);

/* The time in UTC as of RFC 3339: "2026-11-21T22:10:04Z". */
std::string FormatUtc(std::time_t time);

/* The JSON as ASCII text without a newline at the end; `indented` on several lines. Control
   characters of texts are escaped, as are all others beyond ASCII; bytes that are not UTF-8 are
   replaced. */
std::string Dump(const Json& json, bool indented);

} // namespace changerctl

#endif
