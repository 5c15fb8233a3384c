#ifndef TESTBED_SIMULATOR_H
#define TESTBED_SIMULATOR_H

#include "testbed/Event.h"
#include "testbed/Process.h"

#include <sys/types.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace testbed {

/* The simulated changer server as a child process, controlled by lines on its standard input.
   docs/simulator.md describes its commands and events. Functions throw Failure after kTimeOut. */
class Simulator {
public:
    // Starts the simulator. The output log must outlive this object.
    explicit Simulator(OutputLog& outputLog);

    // The process id.
    pid_t Pid() const {
        return process_.Pid();
    }

    // Executes a command and returns the model lines of its answer. Throws Failure with the
    // simulator's error text, or with its exit status and standard error if it ends.
    std::vector<Event> Do(const std::string& command);

    // Waits for an event of this kind that has these values, or for which holds(event) is true.
    // Returns the first such event that is not taken yet, and marks it as taken.
    Event Await(const std::string& kind, const Values& values = {});
    Event Await(const std::string& kind, const std::function<bool(const Event&)>& holds);

    // Returns all events of this kind with these values so far, taken or not.
    std::vector<Event> AllSoFar(const std::string& kind, const Values& values = {}) const;

    // Stop() suspends all threads by SIGSTOP, those of the simulated file systems too; Continue()
    // resumes them.
    void Stop() {
        process_.Stop();
    }
    void Continue() {
        process_.Continue();
    }

    // Kills the simulator, like a crash: its sockets and mounts remain.
    void Kill();
    // Ends the simulator by its command "quit"; throws Failure if it does not exit with 0.
    void Quit();

private:
    std::string DescribeUnexpectedEnd();

    OutputLog& outputLog_;
    std::size_t firstLine_;
    Process process_;
};

} // namespace testbed

#endif
