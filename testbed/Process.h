#ifndef TESTBED_PROCESS_H
#define TESTBED_PROCESS_H

#include "testbed/Descriptor.h"
#include "testbed/OutputLog.h"
#include "testbed/Terminal.h"

#include <sys/types.h>

#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace testbed {

/* A program to start. */
struct Command {
    std::string program;                  // a path
    std::vector<std::string> arguments;   // from argv[0] on
    std::vector<std::string> environment; // the whole environment, as NAME=value
};

/* A child process. Its standard input is a pipe from this process; its output goes to an output
   log. The destructor kills and reaps the process if it still exists. Functions throw Failure on
   errors and after kTimeOut. */
class Process {
public:
    // Starts the program. Standard output and standard error are read as the streams `output` and
    // `errors` of the output log, which must outlive this object.
    Process(const Command& command, OutputLog& outputLog, Stream output, Stream errors);
    // The same with a terminal for its standard output.
    Process(const Command& command, OutputLog& outputLog, Stream output, Stream errors,
            const Terminal& terminal);
    ~Process();
    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;

    // The process id, valid until AwaitEnd() returns.
    pid_t Pid() const {
        return pid_;
    }
    // Writes the line and a newline to the process's standard input.
    void WriteLine(const std::string& line) const;
    // Writes a line and waits for a line of output that passes the test `isAnswer`. Returns nothing
    // if the process ends without such a line.
    std::optional<Line> WriteAndAwait(const std::string& line,
                                      const OutputLog::Test& isAnswer) const;
    // Closes this end of the process's standard input.
    void CloseInput() {
        input_.Close();
    }
    // Sends a signal.
    void Signal(int number) const;
    // True until the process has ended. Does not block.
    bool IsRunning() const;

    // Sends SIGSTOP and waits until the process has stopped.
    void Stop() const;
    // Sends SIGCONT.
    void Continue() const;
    // Waits until the process has stopped, for a process that stops itself.
    void AwaitStop() const;

    // Waits for the end of the process and of its output, and reaps it; returns the wait status.
    // May be called again.
    int AwaitEnd();

private:
    struct Pipe {
        Pipe();
        Pipe(Descriptor from, Descriptor to) : reader(std::move(from)), writer(std::move(to)) {}

        Descriptor reader;
        Descriptor writer;
    };

    Process(const Command& command, OutputLog& outputLog, Stream output, Stream errors, Pipe out);
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

/* Formats a wait status: "exited with 1" or "killed by signal 9". */
std::string DescribeEnd(int waitStatus);

/* Returns those variables of this process's environment that its children need, as NAME=value: PATH
   and the options of the sanitizers. */
std::vector<std::string> MinimalEnvironment();

} // namespace testbed

#endif
