#ifndef CHANGERCTL_FAILURE_H
#define CHANGERCTL_FAILURE_H

/* Exit statuses, and the exception that ends a command with one of them. */

#include <stdexcept>
#include <string>

namespace changerctl {

/* The exit statuses of the program. changerctl(1) lists them. */
enum class ExitStatus : int {
    Done = 0,
    Refused = 1,       // the server refused the request
    Usage = 2,         // wrong arguments
    NoServer = 3,      // no server runs, or it cannot be reached
    NotFound = 4,      // the changer or the slot does not exist
    TimedOut = 5,      // a time limit has passed
    EndedOtherwise = 6 // the work ended, but not as requested
};

/* Ends the command. what() is printed after the program's name; control characters in it are
   escaped then. */
class Failure : public std::runtime_error {
public:
    // `message` may contain text of the server.
    Failure(ExitStatus status, const std::string& message)
        : std::runtime_error(message), status_(status) {}

    // The exit status of the program.
    ExitStatus Status() const {
        return status_;
    }

private:
    ExitStatus status_;
};

} // namespace changerctl

#endif
