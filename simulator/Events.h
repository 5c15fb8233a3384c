#ifndef SIMULATOR_EVENTS_H
#define SIMULATOR_EVENTS_H

/* What the program prints: one line at a time, in the order in which things happened. */

#include "simulator/Words.h"

#include <functional>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <string_view>

namespace simulator {

/* Thread-safe. A line is on its way when the call returns, so that a caller who reports while it
   holds a lock puts the events of that lock in order. */
class Events {
public:
    explicit Events(int descriptor) : descriptor_(descriptor) {}

    // Prints "event N KIND fields", unless the kind is switched off.
    void Report(std::string_view kind, const Fields& fields);

    // Prints any other line.
    void Print(const std::string& line);

    // Only these kinds are reported from now on; without a set, all.
    void SetKinds(std::optional<std::set<std::string, std::less<>>> kinds);

private:
    void Write(std::string line);

    const int descriptor_;
    std::mutex lock_;
    std::optional<std::set<std::string, std::less<>>> kinds_;
    unsigned long long count_ = 0;
};

} // namespace simulator

#endif
