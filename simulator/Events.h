#ifndef SIMULATOR_EVENTS_H
#define SIMULATOR_EVENTS_H

/* The output of the program: lines, in the order of the events. */

#include "simulator/Words.h"

#include <functional>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <string_view>

namespace simulator {

/* Any thread may call. Each call writes its line before it returns, and blocks while the reader is
   slow. Events that are reported under one lock are therefore printed in the order of that lock. */
class Events {
public:
    // `descriptor` is not owned; -1 prints nothing.
    explicit Events(int descriptor) : descriptor_(descriptor) {}

    // Prints "event N KIND fields", unless the kind is disabled.
    void Report(std::string_view kind, const Fields& fields);

    // Prints `line` and a newline.
    void Print(const std::string& line);

    // Enables only these kinds of events; all if there is no set.
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
