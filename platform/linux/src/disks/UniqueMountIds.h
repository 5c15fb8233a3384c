#ifndef PLATFORM_UNIQUEMOUNTIDS_H
#define PLATFORM_UNIQUEMOUNTIDS_H

#include <cstdint>
#include <optional>
#include <unordered_map>

namespace disks {

/*
 * The ids of the mount table are given again at once when a mount goes, so that an unmount and a
 * new mount between two looks leave no trace there. Since Linux 6.8 a mount has a second id, never
 * given again; this maps the first kind to the second.
 */
using UniqueMountIds = std::unordered_map<int, std::uint64_t>;

/*
 * Empty on an older kernel, and where the calls are not allowed; nothing when the kernel was short
 * of memory. Touches no file system, so none that hangs can block it. May throw std::bad_alloc.
 */
std::optional<UniqueMountIds> ReadUniqueMountIds();

} // namespace disks

#endif
