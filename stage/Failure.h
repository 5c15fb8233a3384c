#ifndef STAGE_FAILURE_H
#define STAGE_FAILURE_H

#include <cerrno>
#include <chrono>
#include <cstring>
#include <stdexcept>
#include <string>

namespace stage {

/* What the stage cannot do, or waited for in vain. */
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
inline constexpr std::chrono::seconds kPatience{90};

} // namespace stage

#endif
