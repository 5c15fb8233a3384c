#ifndef STAGE_EVENT_H
#define STAGE_EVENT_H

#include <map>
#include <optional>
#include <string>

namespace stage {

// "event 12 request connection=3 command="mount disc" ..." of the simulator, or a "model ..." line.
struct Event {
    std::string kind;
    std::map<std::string, std::string> values;

    // Empty when the key is not there.
    std::string operator[](const std::string& key) const;
    bool Has(const std::map<std::string, std::string>& wanted) const;
};

// Nothing for lines of another kind.
std::optional<Event> ParseEvent(const std::string& line);

} // namespace stage

#endif
