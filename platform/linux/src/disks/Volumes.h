#ifndef PLATFORM_VOLUMES_H
#define PLATFORM_VOLUMES_H

/* The volumes among the mounts. All functions may be called from any thread. */

#include "disks/MountTable.h"
#include "disks/UniqueMountIds.h"

#include <sys/types.h>

#include <compare>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace disks {

/*
 * A device and a root directory of its file system, at its first mount that is not covered by
 * another mount. The path of a covered mount leads to the covering one. Two volumes are equal if
 * they are the same mount, unchanged.
 */
struct Volume {
    std::uint64_t mount; // the unique id, or the mount table's id on an older kernel
    dev_t device;
    std::string root;
    std::string path;
    std::string source;

    auto operator<=>(const Volume&) const = default;
};

/* The volumes of `mounts`, in the order of the mount table, which is the order of mounting.
   Excludes the kernel's own file systems, automatic mount points and network mounts. May throw
   std::bad_alloc. */
std::vector<Volume> VolumesOf(const MountTable& mounts, const UniqueMountIds& ids);

/* The present volumes, according to the mount table at that path; std::nullopt if the table or the
   unique ids cannot be read. May throw std::bad_alloc. */
std::optional<std::vector<Volume>> ReadVolumes(const char* mountTableFile);

} // namespace disks

#endif
