#ifndef TESTS_UNIT_SUPPORT_LOGCAPTURE_H
#define TESTS_UNIT_SUPPORT_LOGCAPTURE_H

/*
 * Captures what the process writes to the system log. A line that is not taken before the capture
 * ends, or that is written without a capture, fails the test.
 *
 * Any thread may log. Capturing a line allocates nothing, so it works while memory is short.
 */

#include "support/NotCopyable.h"

#include <string>
#include <vector>

class LogCapture : NotCopyable {
public:
    LogCapture();
    ~LogCapture();

    // True if Take would return lines.
    bool HasLines() const;
    // The lines logged since the last Take. "(priority N) " precedes a line of any priority but
    // alert.
    std::vector<std::string> Take();
    // The same, with each line number in "file:77, function: message" replaced by 123.
    std::vector<std::string> TakeWithoutLineNumbers();
};

#endif
