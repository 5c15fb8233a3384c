#ifndef PLATFORM_VOLUMES_H
#define PLATFORM_VOLUMES_H

/* Which mounts are volumes, and where each is found. */

#include "disks/MountTable.h"
#include "disks/UniqueMountIds.h"

#include <compare>
#include <cstdint>
#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

namespace disks {

/*
 * One device and root directory of a file system, at its first mount. A mount that is covered by
 * another one does not count: its path leads elsewhere. Two volumes are equal when nothing has
 * happened to that mount in between.
 */
struct Volume {
    std::uint64_t mount; // unique id, or the mount table's where there is none
    dev_t device;
    std::string root;
    std::string path;
    std::string source;

    auto operator<=>(const Volume&) const = default;
};

/* In the order of mounting, which is the kernel's table's own. Left out are the kernel's own file
   systems, automatic mount points and network mounts. May throw std::bad_alloc, as may the next. */
std::vector<Volume> VolumesOf(const MountTable& mounts, const UniqueMountIds& ids);

/* The volumes there are now, or nothing when they cannot be told. */
std::optional<std::vector<Volume>> ReadVolumes(const char* mountTableFile);

} // namespace disks

#endif
