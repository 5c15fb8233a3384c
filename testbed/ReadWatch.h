#ifndef TESTBED_READWATCH_H
#define TESTBED_READWATCH_H

#include "testbed/Descriptor.h"

#include <string>

namespace testbed {

/* Tells how often a file has been opened and closed again since the watch was set. The daemon reads
   a volume's info file twice when it takes the volume up, and tells so in no other way. */
class ReadWatch {
public:
    explicit ReadWatch(const std::string& path);

    void AwaitReads(int count);
    int CountReadsSoFar();

private:
    int CountNewReads() const;

    Descriptor inotify_;
    std::string path_;
    int reads_ = 0;
};

} // namespace testbed

#endif
