#ifndef TESTBED_READWATCH_H
#define TESTBED_READWATCH_H

#include "testbed/Descriptor.h"

#include <string>

namespace testbed {

/* Counts how often a file was opened and closed since the construction. The daemon reads the info
   file of a volume twice when the volume appears; this is the only sign that it has accepted the
   volume. */
class ReadWatch {
public:
    // Starts to watch the file, which must exist; throws Failure otherwise.
    explicit ReadWatch(const std::string& path);

    // Waits until the file was read `count` times in total. Throws Failure after kTimeOut.
    void AwaitReads(int count);
    // Returns the number of reads so far. Does not block.
    int CountReadsSoFar();

private:
    int CountNewReads() const;

    Descriptor inotify_;
    std::string path_;
    int reads_ = 0;
};

} // namespace testbed

#endif
