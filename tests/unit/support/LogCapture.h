#ifndef TESTS_UNIT_SUPPORT_LOGCAPTURE_H
#define TESTS_UNIT_SUPPORT_LOGCAPTURE_H

/*
 * The system log, caught before it leaves the process. Every line must be asked for: one that is
 * left at the end of the capture, or written while there is none, fails the test.
 *
 * Any thread may log. Catching a line allocates nothing, so it works while memory is short.
 */

#include "support/NotCopyable.h"

#include <string>
#include <vector>

class LogCapture : NotCopyable {
public:
    LogCapture();
    ~LogCapture();

    // Whether Take would give anything.
    bool HasLines() const;
    // What was logged since the last Take. A line whose priority is not alert says so in front.
    std::vector<std::string> Take();
    // The same, with "123" for the line number in "file:123, function: message".
    std::vector<std::string> TakeWithoutLineNumbers();
};

#endif
