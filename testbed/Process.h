#ifndef TESTBED_PROCESS_H
#define TESTBED_PROCESS_H

#include "testbed/Descriptor.h"
#include "testbed/OutputLog.h"

#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

namespace testbed {

struct Command {
    std::string program;                  // its path
    std::vector<std::string> arguments;   // from argv[0] on
    std::vector<std::string> environment; // NAME=value, nothing else is inherited
};

/* A child process whose output goes to the output log and can be spoken to. It is killed and reaped
   at the latest when this object goes. */
class Process {
public:
    Process(const Command& command, OutputLog& outputLog, Stream output, Stream errors);
    ~Process();
    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;

    pid_t Pid() const {
        return pid_;
    }
    void WriteLine(const std::string& line) const;
    // Tells it a line, and waits for its answer, which passes the test; returns nothing when the
    // process ends without one.
    std::optional<Line> WriteAndAwait(const std::string& line,
                                      const OutputLog::Test& isAnswer) const;
    void CloseInput() {
        input_.Close();
    }
    void Signal(int number) const;
    bool IsRunning() const;

    // By SIGSTOP and SIGCONT; after Stop it has stopped. AwaitStop waits for one that it does
    // itself.
    void Stop() const;
    void Continue() const;
    void AwaitStop() const;

    // Waits for the end and for the last of the output; returns the wait status.
    int AwaitEnd();

private:
    bool Write(const std::string& line) const;

    OutputLog& outputLog_;
    Descriptor input_;
    Descriptor pidDescriptor_;
    pid_t pid_ = -1;
    bool reaped_ = false;
    int status_ = 0;
    OutputLog::SourceId output_ = 0;
    OutputLog::SourceId errors_ = 0;
};

/* "exited with 1", "killed by signal 9". */
std::string DescribeEnd(int waitStatus);

/* The variables of this process's environment that a child of the build needs: the search path
   and what steers the sanitizers. */
std::vector<std::string> MinimalEnvironment();

} // namespace testbed

#endif
