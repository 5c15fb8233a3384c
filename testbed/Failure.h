#ifndef TESTBED_FAILURE_H
#define TESTBED_FAILURE_H

#include <cerrno>
#include <chrono>
#include <cstring>
#include <stdexcept>
#include <string>

namespace testbed {

/* Thrown when the test bed cannot be set up, or when a wait times out. */
class Failure : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/* Throws Failure unless `good`; the message is `what` and the text of errno. */
inline void Require(bool good, const std::string& what) {
    if (!good)
        throw Failure(what + ": " + std::strerror(errno));
}

/* The time-out of every wait. It ends a failing test and is no requirement on speed; it is longer
   than the daemon's own time-outs of 30 seconds. */
inline constexpr std::chrono::seconds kTimeOut{90};

} // namespace testbed

#endif
