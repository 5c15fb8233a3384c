#ifndef PLATFORM_FILECONTENTS_H
#define PLATFORM_FILECONTENTS_H

/*
 * Reading a whole file. Only regular files and directories are opened: opening a FIFO may wait, and
 * opening a device may have an effect. A directory cannot be read. Links are followed within a file
 * system. All functions are safe on any thread.
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
    bool isShortage = false; // not opened because of a shortage of descriptors, threads or memory
    std::vector<std::uint8_t> bytes; // from the beginning of the file, at most `maximum`
};

/* Reads at most `maximum` bytes. Blocks as long as the file system does, which may be for ever.
   Throws std::bad_alloc. */
FileContents ReadFile(const std::string& path, std::size_t maximum);

/*
 * The same on a detached thread. Blocks for at most `timeOut`; a file that is not read by then
 * counts as one that cannot be opened. The thread ends when the file system replies. While
 * kMaximumPendingReads threads exist, no file is opened. After a shortage, the read is repeated
 * until the time-out. Throws std::bad_alloc.
 */
FileContents ReadFileWithin(std::chrono::milliseconds timeOut, const std::string& path,
                            std::size_t maximum);

inline constexpr int kMaximumPendingReads = 32;

} // namespace cf

#endif
