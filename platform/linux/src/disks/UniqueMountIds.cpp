#include "disks/UniqueMountIds.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstddef>

namespace disks {

namespace {

// From linux/mount.h of Linux 6.8. The headers of the build may be older.
constexpr long kStatMount = 457;
constexpr long kListMount = 458;
constexpr std::uint64_t kRootOfNamespace = UINT64_MAX;
constexpr std::uint64_t kMountBasics = 2;

struct MountRequest {
    std::uint32_t size = sizeof(MountRequest);
    std::uint32_t spare = 0;
    std::uint64_t mount = 0;
    std::uint64_t parameter =
        0; // statmount: the requested fields; listmount: the last mount listed
};
static_assert(sizeof(MountRequest) == 24);

// The beginning of the kernel's structure; the kernel fills no more than the size passed.
struct MountStatus {
    std::uint32_t size;
    std::uint32_t options;
    std::uint64_t mask;
    std::uint64_t superblock[3];
    std::uint64_t id;
    std::uint64_t parent;
    std::uint32_t reusedId;
    std::uint32_t reusedParent;
};
static_assert(offsetof(MountStatus, reusedId) == 56);

} // namespace

std::optional<UniqueMountIds> ReadUniqueMountIds() {
    UniqueMountIds ids;
    std::array<std::uint64_t, 256> mounts = {};
    MountRequest list{.mount = kRootOfNamespace};
    long count = 0;
    while ((count = syscall(kListMount, &list, mounts.data(), mounts.size(), 0)) > 0) {
        for (std::size_t i = 0; i < static_cast<std::size_t>(count); ++i) {
            const MountRequest request{.mount = mounts[i], .parameter = kMountBasics};
            MountStatus status = {};
            if (syscall(kStatMount, &request, &status, sizeof status, 0) == 0)
                ids[static_cast<int>(status.reusedId)] = mounts[i];
            else if (errno == ENOMEM)
                return std::nullopt;
            list.parameter = mounts[i];
        }
    }
    if (count < 0 && errno == ENOMEM)
        return std::nullopt;
    return ids;
}

} // namespace disks
