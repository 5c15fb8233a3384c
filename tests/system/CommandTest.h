#ifndef TESTS_SYSTEM_COMMANDTEST_H
#define TESTS_SYSTEM_COMMANDTEST_H

#include "SystemTest.h"
#include "testbed/Process.h"
#include "testbed/Terminal.h"

#include <gmock/gmock.h>

#include <ostream>
#include <string>
#include <vector>

/* How changerctl ended, and all that it wrote. */
struct CommandEnd {
    int status = 0; // the exit status; 128 + the signal's number if a signal ended the program
    std::string output;
    std::string errors;
};

/* For the messages of GoogleTest. */
inline void PrintTo(const CommandEnd& end, std::ostream* out) {
    *out << "status " << end.status << "\noutput:\n" << end.output << "errors:\n" << end.errors;
}

/* Matches a CommandEnd with this exit status, this output and these errors: texts or matchers. */
template<typename Output, typename Errors>
auto Ends(int status, const Output& output, const Errors& errors) {
    return testing::AllOf(testing::Field("status", &CommandEnd::status, status),
                          testing::Field("output", &CommandEnd::output, output),
                          testing::Field("errors", &CommandEnd::errors, errors));
}

/* Matches a CommandEnd with exit status 0, this output and no errors. */
template<typename Output>
auto Prints(const Output& output) {
    return Ends(0, output, "");
}

/* Matches a CommandEnd with this exit status, no output, and one line of errors that contains the
   text. */
inline auto Fails(int status, const std::string& text) {
    return Ends(status, "",
                testing::AllOf(testing::StartsWith("changerctl: "), testing::HasSubstr(text),
                               testing::EndsWith("\n")));
}

/* changerctl beside the simulated server, with or without the daemon. */
class CommandTest : public SystemTest {
protected:
    // Starts the server and the daemon, as SystemTest does, and takes the daemon's subscription.
    void BeginWithDaemon();

    // Starts changerctl. Its input is a pipe; so is its output, unless it is given a terminal.
    testbed::Process Start(const std::vector<std::string>& arguments);
    testbed::Process StartOn(const testbed::Terminal& terminal,
                             const std::vector<std::string>& arguments);
    // Waits for the end, and takes all output that is not taken yet.
    CommandEnd AwaitEnd(testbed::Process& command);

    // Runs changerctl to its end.
    CommandEnd Run(const std::vector<std::string>& arguments);
    CommandEnd RunOn(const testbed::Terminal& terminal, const std::vector<std::string>& arguments);
    // Runs a command line of the shell, in which $changerctl is the program's path.
    CommandEnd RunShell(const std::string& commandLine);
    // Runs jq on the text: "true" means that the filter's last result is neither false nor null.
    CommandEnd RunJq(const std::string& filter, const std::string& text);

    // For a test in which the server ends: the connection library keeps the run loop source of each
    // lost connection, which the leak checker reports when the command exits.
    void PermitKeptConnections();

    // Waits for a line of changerctl's output; `pattern` matches the whole line.
    std::string AwaitOutput(const std::string& pattern);

    // Waits until the next client of the server has subscribed.
    void AwaitSubscription();
    // Sends the text as a "changer info" with that one changer: the elements of its dictionary.
    void NotifyAboutChanger(const std::string& members);
    // The client statuses that the simulator has now: "trayprobed 1/2 yes", the last word being
    // "Abort Requested".
    std::vector<std::string> Statuses();

    // Puts identified discs into the first slots, of which none arrives in its drive: a build waits
    // for the first one, and after TakeBlockingDisc() for the next one. Precondition of
    // TakeBlockingDisc(): the build waits.
    void PutBlockingDiscs(int count);
    void AwaitBlockedBuild();
    void TakeBlockingDisc();
    // Waits until the daemon has handled all notifications so far. Adds two changers.
    void AwaitHandledNotifications();
    // Waits until the status of a build shows this step of discs, which is 0 at the first one.
    void AwaitStep(int step);

    // The environment of the commands, before that of all child processes.
    std::vector<std::string> environment_{"TERM=xterm"};

private:
    int blockingSlot_ = 0;

    testbed::Command CommandOf(const std::vector<std::string>& arguments) const;
    std::string TakeAll(testbed::Stream stream);
    CommandEnd RunProgram(const std::string& program, const std::vector<std::string>& arguments,
                          const std::string& input);
};

#endif
