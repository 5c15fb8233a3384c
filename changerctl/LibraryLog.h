#ifndef CHANGERCTL_LIBRARYLOG_H
#define CHANGERCTL_LIBRARYLOG_H

/* The messages of the connection library: a daemon's go to the system log, a command's do not. */

#include <thread>

namespace changerctl {

/* While an object exists, the library's messages are printed to standard error, with control
   characters escaped, if `isVerbose` is true, and dropped otherwise. Create one object, before the
   library is used. Throws std::system_error without descriptors or threads. */
class LibraryLog {
public:
    // Redirects the messages.
    explicit LibraryLog(bool isVerbose);
    // Prints what is left, and waits for that.
    ~LibraryLog();
    LibraryLog(const LibraryLog&) = delete;
    LibraryLog& operator=(const LibraryLog&) = delete;

private:
    int writer_ = -1; // of the pipe to which the library appends its messages
    std::thread printer_;
};

} // namespace changerctl

#endif
