#ifndef TESTBED_EVENT_H
#define TESTBED_EVENT_H

#include <map>
#include <optional>
#include <string>

namespace testbed {

using Values = std::map<std::string, std::string>;

/*
 * A parsed output line of the simulator: `event 12 request connection=3 command="mount disc" ...`
 * or `model KIND KEY=VALUE ...`. docs/simulator.md describes the kinds.
 */
struct Event {
    int number = 0; // of an event line; 0 for a model line
    std::string kind;
    Values values;

    // Returns the value of the key, an empty string if there is none.
    std::string operator[](const std::string& key) const;
    // True if the event has all these keys with these values.
    bool Has(const Values& expected) const;
};

/* Parses an "event" or a "model" line; returns nothing for other lines. */
std::optional<Event> ParseEvent(const std::string& line);

} // namespace testbed

#endif
