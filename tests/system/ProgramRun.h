#ifndef TESTS_SYSTEM_PROGRAMRUN_H
#define TESTS_SYSTEM_PROGRAMRUN_H

#include <gmock/gmock.h>

#include <functional>
#include <string>
#include <vector>

struct ProgramEnd {
    int exitStatus;     // 128 + the signal's number if a signal ended the program
    std::string errors; // the program's standard error
};

/* Runs a program of this build in a mount namespace of its own, and waits for its end. prepare()
   is called in the new process and may change the mounts, the root and the standard descriptors; if
   it throws, the message is written to standard error and the exit status is 127. Precondition: the
   caller has one thread. */
ProgramEnd RunProgram(const std::vector<std::string>& arguments,
                      const std::function<void()>& prepare);

/* Matches a ProgramEnd with this exit status whose errors contain the text. */
inline auto HasEnded(int exitStatus, const char* text) {
    return testing::AllOf(testing::Field("exitStatus", &ProgramEnd::exitStatus, exitStatus),
                          testing::Field("errors", &ProgramEnd::errors, testing::HasSubstr(text)));
}

#endif
