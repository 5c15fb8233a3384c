#include "TracedCall.h"

#include <cstddef>
#include <cstdlib>
#include <utility>

namespace bench {
namespace {

// The time follows the thread id.
double TimeOf(const std::string& line) {
    return std::stod(line.substr(line.find(' ')));
}

// The duration that -T appends, "<0.000123>"; 0 if there is none.
double DurationOf(const std::string& line) {
    const std::size_t bracket = line.rfind(" <");
    return bracket == line.npos ? 0 : std::strtod(line.c_str() + bracket + 2, nullptr);
}

} // namespace

TracedCall::TracedCall(std::string text)
    : line(std::move(text)), begin(TimeOf(line)),
      end(line.find(" resumed>") == line.npos ? begin + DurationOf(line) : begin) {}

bool HasReturned(const std::string& line) {
    return !line.ends_with("detached ...>") && !line.ends_with("<unfinished ...>");
}

} // namespace bench
