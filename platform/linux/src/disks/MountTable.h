#ifndef PLATFORM_MOUNTTABLE_H
#define PLATFORM_MOUNTTABLE_H

/* The kernel's table of mounts, as /proc/self/mountinfo shows it. */

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

namespace disks {

struct Mount {
    int id; // given again to another mount once this one has gone
    int parent;
    dev_t device;
    std::string root; // the directory of the file system that is mounted
    std::string path;
    std::string type;
    std::string source; // may be empty
};

using MountTable = std::vector<Mount>;

/* The whole table in its own order, or nothing when it could not be read to its end, or a line of
   it makes no sense. May throw std::bad_alloc. */
std::optional<MountTable> ReadMountTable(const char* file);
std::optional<MountTable> ParseMountTable(std::string text);

} // namespace disks

#endif
