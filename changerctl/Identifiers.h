#ifndef CHANGERCTL_IDENTIFIERS_H
#define CHANGERCTL_IDENTIFIERS_H

/* Changers and slots as a user writes them. */

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace changerctl {

/* The identity of a changer: its GUID. */
using ChangerGuid = std::uint64_t;

/* The number of a slot, its storage element index. 0xFFFF is no slot: the server takes it for the
   whole changer. */
using SlotNumber = std::uint16_t;
inline constexpr SlotNumber kLastSlot = 0xFFFE;

/* The GUID as 16 hexadecimal digits in upper case. */
std::string FormatGuid(ChangerGuid guid);

/* Reads up to 16 hexadecimal digits, which may follow "0x". Nothing if the text is anything else.
 */
std::optional<ChangerGuid> ParseGuid(std::string_view text);

/* Reads slots: decimal numbers and ranges, separated by commas, such as "3-7,9". Returns them in
   the order given, each once. Nothing if the text is anything else, or a number is above
   kLastSlot. */
std::optional<std::vector<SlotNumber>> ParseSlots(std::string_view text);

} // namespace changerctl

#endif
