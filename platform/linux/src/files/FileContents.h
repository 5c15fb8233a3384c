#ifndef PLATFORM_FILECONTENTS_H
#define PLATFORM_FILECONTENTS_H

/*
 * What is in a file, read in one go. Only files and directories are opened, and never so that
 * opening waits or acts; a directory cannot be read. Links are followed within a file system.
 */

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace cf {

struct FileContents {
    bool isOpened = false;
    bool isRead = false;
    bool isShortage = false;         // not opened for want of a descriptor, a thread or memory
    std::vector<std::uint8_t> bytes; // from the beginning, at most as many as were asked for
};

/* Waits as long as the file system does, which may be for ever. Throws std::bad_alloc. */
FileContents ReadFile(const std::string& path, std::size_t maximum);

/*
 * The same on a thread of its own, which is left alone when it is not through in time: a file whose
 * file system does not answer counts as one that cannot be opened. Threads left alone end when they
 * are answered; while there are many of them, nothing is opened. A shortage is waited out in that
 * time. Throws std::bad_alloc.
 */
FileContents ReadFileWithin(std::chrono::milliseconds timeOut, const std::string& path,
                            std::size_t maximum);

inline constexpr int kMaximumPendingReads = 32;

} // namespace cf

#endif
