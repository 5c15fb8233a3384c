#ifndef TOOLS_WATCH_H
#define TOOLS_WATCH_H

#include "Screen.h"
#include "testbed/OutputLog.h"
#include "testbed/Process.h"

#include <optional>
#include <string>
#include <vector>

/* A running "changerctl watch". On a terminal its table is shown below all other lines, as the
   command itself draws it; otherwise each line of it is shown among them. */
class Watch {
public:
    // Starts the command. Both arguments must outlive this object.
    Watch(testbed::OutputLog& outputLog, Screen& screen);

    // Shows this line of the command, and those that have arrived meanwhile; shows only the latter.
    void Show(const testbed::Line& line);
    void ShowArrived();
    // Ends the command; shows what it has written.
    void End();

private:
    void Add(const std::string& line);

    testbed::OutputLog& outputLog_;
    Screen& screen_;
    std::optional<testbed::Process> command_;
    std::vector<std::string> table_;
};

/* Starts changerctl with these arguments. Everything that it writes is of the stream
   CommandErrors. */
testbed::Process StartChangerctl(testbed::OutputLog& outputLog,
                                 const std::vector<std::string>& arguments);

#endif
