#ifndef TESTBED_EVENT_H
#define TESTBED_EVENT_H

#include <map>
#include <optional>
#include <string>

namespace testbed {

using Values = std::map<std::string, std::string>;

/*
 * "event 12 request connection=3 command="mount disc" ..." of the simulator, or a "model ..." line.
 */
struct Event {
    int number = 0; // of an event
    std::string kind;
    Values values;

    // Empty when the key is not there.
    std::string operator[](const std::string& key) const;
    bool Has(const Values& wanted) const;
};

/* Nothing for lines of another kind. */
std::optional<Event> ParseEvent(const std::string& line);

} // namespace testbed

#endif
