#ifndef CHANGERCTL_OPTIONS_H
#define CHANGERCTL_OPTIONS_H

/* The command line, parsed. */

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace changerctl {

enum class ColourChoice { Auto, Always, Never };

struct Options {
    std::string command;                // the name of the subcommand
    std::vector<std::string> arguments; // what is no option: a changer, slots
    bool isVerbose = false;
    ColourChoice colour = ColourChoice::Auto;
    std::optional<std::chrono::seconds> timeLimit;

    // list, show, watch
    bool asJson = false;
    bool hasHeader = true;
    std::vector<std::string> columns; // empty: all

    // identify, build, abort
    bool isWithdrawal = false;
    bool waits = false;
    bool onlyNew = false; // identify

    std::optional<std::uint16_t> drive; // mount
    bool isForced = false;              // eject

    // The limit for the first notification.
    std::chrono::seconds FirstNotificationLimit() const {
        return timeLimit.value_or(std::chrono::seconds(5));
    }
};

} // namespace changerctl

#endif
