#ifndef PLATFORM_UNIQUEMOUNTIDS_H
#define PLATFORM_UNIQUEMOUNTIDS_H

#include <cstdint>
#include <optional>
#include <unordered_map>

namespace disks {

/*
 * Maps the ids of the mount table to unique mount ids. The kernel reuses an id of the mount table
 * at once after an unmount, so an unmount and a new mount between two readings of the table are
 * invisible there. Since Linux 6.8 a mount also has a unique id, which is never reused.
 */
using UniqueMountIds = std::unordered_map<int, std::uint64_t>;

/*
 * Reads the unique ids of all mounts. An empty map on an older kernel and where the system calls
 * are not permitted; std::nullopt if the kernel was short of memory. Accesses no file system, so a
 * dead one cannot block the call. May throw std::bad_alloc. Any thread.
 */
std::optional<UniqueMountIds> ReadUniqueMountIds();

} // namespace disks

#endif
