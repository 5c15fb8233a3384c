#ifndef CHANGERCTL_CHANGER_H
#define CHANGERCTL_CHANGER_H

/*
 * The state of a changer, as the server's "changer info" shows it.
 *
 * A value that is missing or has another type than expected is absent; unknown keys are ignored.
 * Texts are as the server sent them: print them with Printable().
 */

#include "changerctl/Identifiers.h"

#include <CoreFoundation/CoreFoundation.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace changerctl {

/* Where a disc is. The server's numbers say more, but only these two are certain. */
enum class Place { InSlot, InDrive };

struct Slot {
    SlotNumber number = 0; // as the server shows it; without a number, the position in the list
    std::optional<std::uint16_t> kind{};        // of the disc; 0: the slot has none
    std::optional<std::int32_t> identifyTime{}; // in seconds since 1970; 0: never identified
    bool isWanted = false;                      // its identification is requested
    std::optional<std::uint32_t> mountState{};
    std::optional<std::size_t> partitions{};

    // False if the slot is known to be empty.
    bool HasDisc() const {
        return kind.value_or(1) != 0;
    }
    // True if the disc has never been identified.
    bool IsNew() const {
        return HasDisc() && identifyTime == 0;
    }
    // Nothing if the slot is empty or the server shows no state.
    std::optional<Place> DiscPlace() const;

    bool operator==(const Slot&) const = default;
};

struct ClientStatus {
    std::string client;
    std::optional<std::string> message{};
    std::optional<std::uint16_t> currentStep{};
    std::optional<std::uint16_t> maximumStep{};
    std::optional<bool> abortRequested{};

    bool operator==(const ClientStatus&) const = default;
};

struct Preferences {
    std::optional<bool> identifyOnInsert{};
    std::optional<bool> buildOnIdentify{};
    std::optional<bool> buildOnSchedule{};
    std::optional<std::int32_t> buildHours{};
    std::optional<std::int32_t> buildMinutes{};

    bool operator==(const Preferences&) const = default;
};

struct Changer {
    std::optional<ChangerGuid> guid{};
    std::optional<bool> isReady{};
    std::optional<std::uint16_t> drives{};
    bool isWanted = false; // the identification of the changer as a whole is requested: a build
    std::vector<Slot> slots{};
    std::vector<ClientStatus> statuses{}; // in the order of the clients' names
    Preferences preferences{};

    // The slot of that number, or null.
    const Slot* FindSlot(SlotNumber number) const;
    // The status of that client, or null.
    const ClientStatus* FindStatus(std::string_view client) const;

    bool operator==(const Changer&) const = default;
};

/* Reads the value of "changer info", borrowed; what is no changer in it is left out. Throws
   std::bad_alloc. */
std::vector<Changer> ReadChangers(CFTypeRef changerInfo);

/* The client name of the daemon's builds. */
inline constexpr const char* kBuildClient = "trayprobed";

} // namespace changerctl

#endif
