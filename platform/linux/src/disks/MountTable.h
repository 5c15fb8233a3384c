#ifndef PLATFORM_MOUNTTABLE_H
#define PLATFORM_MOUNTTABLE_H

/* The kernel's table of mounts, as /proc/self/mountinfo shows it. */

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

namespace disks {

struct Mount {
    int id; // reused for another mount after this one has gone
    int parent;
    dev_t device;
    std::string root; // the mounted directory of the file system
    std::string path;
    std::string type;
    std::string source; // may be empty
};

using MountTable = std::vector<Mount>;

/* The whole table, in the order of `file` or `text`; empty if the file cannot be read to its end or
   a line is malformed. May throw std::bad_alloc. Any thread. */
std::optional<MountTable> ReadMountTable(const char* file);
std::optional<MountTable> ParseMountTable(std::string text);

} // namespace disks

#endif
