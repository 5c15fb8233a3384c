#ifndef TESTBED_FAILURE_H
#define TESTBED_FAILURE_H

#include <cerrno>
#include <chrono>
#include <cstring>
#include <stdexcept>
#include <string>

namespace testbed {

/* Thrown when the test bed cannot be set up, or when what it waits for does not come. */
class Failure : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/* Throws unless good; the reason is the system's, from errno. */
inline void Require(bool good, const std::string& what) {
    if (!good)
        throw Failure(what + ": " + std::strerror(errno));
}

/* How long anything is waited for before it counts as failed. It bounds a failing test, and says
   nothing about how fast a thing should be: the daemon's own time-outs are 30 seconds. */
inline constexpr std::chrono::seconds kTimeOut{90};

} // namespace testbed

#endif
