#ifndef TESTS_SYSTEM_PROGRAMRUN_H
#define TESTS_SYSTEM_PROGRAMRUN_H

#include <functional>
#include <string>
#include <vector>

struct ProgramEnd {
    int exitStatus;     // 128 and the signal's number if a signal ended it
    std::string errors; // what it wrote to standard error
};

/* Runs a program of this build to its end, in a mount namespace of its own that prepare has changed
   for it; prepare may change the root and the standard descriptors, too. The caller has no threads.
   A failure of prepare is the program's: told on its standard error, with exit status 127. */
ProgramEnd RunProgram(const std::vector<std::string>& arguments,
                      const std::function<void()>& prepare);

#endif
