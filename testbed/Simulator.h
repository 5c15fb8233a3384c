#ifndef TESTBED_SIMULATOR_H
#define TESTBED_SIMULATOR_H

#include "testbed/Event.h"
#include "testbed/Process.h"

#include <functional>
#include <memory>
#include <string>
#include <sys/types.h>
#include <vector>

namespace testbed {

/* The simulated changer server as a child process, told what to do line by line. Its commands and
   events are described in docs/simulator.md. */
class Simulator {
public:
    explicit Simulator(OutputLog& outputLog);

    pid_t Pid() const {
        return process_.Pid();
    }

    // Carries out a command; returns the model lines of its answer. Throws what the server objects,
    // or how it ended and what it wrote to standard error when it ends instead of answering.
    std::vector<Event> Do(const std::string& command);

    // Takes the first event of that kind, with these values or of which this holds, that was not
    // taken yet.
    Event Await(const std::string& kind, const Values& values = {});
    Event Await(const std::string& kind, const std::function<bool(const Event&)>& holds);

    // Those that this server has told so far, taken or not.
    std::vector<Event> AllSoFar(const std::string& kind, const Values& values = {}) const;

    // Suspends it between any two instructions of its threads, its file systems too.
    void Stop() {
        process_.Stop();
    }
    void Continue() {
        process_.Continue();
    }

    // As a server dies that crashes: sockets and mounts stay behind.
    void Kill();
    // Ends in good order; throws when it does not.
    void Quit();

private:
    std::string DescribeUnexpectedEnd();

    OutputLog& outputLog_;
    std::size_t firstLine_;
    Process process_;
};

} // namespace testbed

#endif
