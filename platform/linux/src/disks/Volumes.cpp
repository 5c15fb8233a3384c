#include "disks/Volumes.h"

#include "objects/Hash.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <set>
#include <string_view>
#include <unordered_map>
#include <utility>

namespace disks {

namespace {

using namespace std::string_view_literals;

// File systems that show the kernel's own state: they hold no user files, and reading may have side
// effects.
constexpr auto kKernelTypes = std::to_array({
    "binder"sv,  "binfmt_misc"sv, "bpf"sv,    "cgroup"sv,     "cgroup2"sv,    "configfs"sv,
    "cpuset"sv,  "debugfs"sv,     "devpts"sv, "devtmpfs"sv,   "efivarfs"sv,   "functionfs"sv,
    "fusectl"sv, "hugetlbfs"sv,   "mqueue"sv, "nfsd"sv,       "nsfs"sv,       "proc"sv,
    "pstore"sv,  "resctrl"sv,     "rootfs"sv, "rpc_pipefs"sv, "securityfs"sv, "selinuxfs"sv,
    "smackfs"sv, "spufs"sv,       "sysfs"sv,  "tracefs"sv,    "xenfs"sv,
});

// Access to one of these may mount a file system.
constexpr auto kAutomaticTypes = std::to_array({"autofs"sv});

// Network file systems: access blocks while the server is unreachable. User space file systems are
// not listed, because most of them are volumes.
constexpr auto kNetworkTypes = std::to_array({
    "9p"sv,
    "afs"sv,
    "ceph"sv,
    "cifs"sv,
    "coda"sv,
    "lustre"sv,
    "ncpfs"sv,
    "nfs"sv,
    "nfs4"sv,
    "orangefs"sv,
    "smb3"sv,
    "smbfs"sv,
});

bool IsVolumeType(std::string_view type) {
    const auto lists = [&](const auto& types) { return std::ranges::count(types, type) > 0; };
    return !lists(kKernelTypes) && !lists(kAutomaticTypes) && !lists(kNetworkTypes);
}

// A path inside a mount, with a hash of the path. The hash is computed character by character, so
// the hashes of all parent directories cost no more than the hash of the whole path.
struct Location {
    int mount;
    std::uint32_t hash;
    std::string_view path;

    bool operator==(const Location&) const = default;
};

struct LocationHash {
    std::size_t operator()(const Location& location) const noexcept {
        return cf::HashWord(static_cast<std::uint64_t>(location.mount) << 32 | location.hash);
    }
};

class PathHasher {
public:
    void Add(std::string_view characters) noexcept {
        for (const char character : characters)
            hasher_.Add(static_cast<unsigned char>(character));
    }
    std::uint32_t Value() const noexcept {
        return hasher_.Value();
    }

private:
    cf::WordHasher hasher_;
};

std::uint32_t HashPath(std::string_view path) noexcept {
    PathHasher hasher;
    hasher.Add(path);
    return hasher.Value();
}

/*
 * Resolves a path to a mount by the mount table alone. A look-up by the kernel would block on any
 * dead file system on the way.
 */
class PathWalk {
public:
    explicit PathWalk(const MountTable& mounts) : root_(RootOf(mounts)) {
        for (const Mount& mount : mounts)
            children_.emplace(Location{mount.parent, HashPath(mount.path), mount.path}, mount.id);
    }

    // The id of the mount to which the absolute path leads.
    int MountAt(std::string_view path) {
        int mount = root_;
        PathHasher hasher;
        std::size_t begin = 0;
        // No mount covers "/" itself: every look-up starts inside the root mount.
        for (std::size_t end = 1; end < path.size(); begin = end) {
            end = std::min(path.find('/', end + 1), path.size());
            hasher.Add(path.substr(begin, end - begin));
            mount = Cross({mount, hasher.Value(), path.substr(0, end)});
        }
        return mount;
    }

private:
    // The mount that is visible at a location: the last one of those stacked there.
    int Cross(Location location) {
        const int first = location.mount;
        for (std::size_t crossed = 0; crossed < children_.size(); ++crossed) {
            const auto child = children_.find(location);
            if (child == children_.end() || child->second == location.mount)
                break;
            location.mount = child->second;
        }
        const int last = location.mount;
        // Path compression: the next look-up reaches the last mount in one step.
        for (location.mount = first; location.mount != last;)
            location.mount = std::exchange(children_.find(location)->second, last);
        return last;
    }

    // If the root directory of the process is no mount point, its mount is not in the table, but is
    // the parent of the first mount listed.
    static int RootOf(const MountTable& mounts) {
        const auto root = std::ranges::find(mounts, "/", &Mount::path);
        if (root != mounts.end())
            return root->id;
        return mounts.empty() ? 0 : mounts.front().parent;
    }

    int root_;
    std::unordered_map<Location, int, LocationHash> children_;
};

} // namespace

std::vector<Volume> VolumesOf(const MountTable& mounts, const UniqueMountIds& ids) {
    PathWalk walk(mounts);
    std::set<std::pair<dev_t, std::string_view>> seen;
    std::vector<Volume> volumes;
    for (const Mount& mount : mounts) {
        if (!IsVolumeType(mount.type) || walk.MountAt(mount.path) != mount.id ||
            !seen.emplace(mount.device, mount.root).second)
            continue;
        const auto unique = ids.find(mount.id);
        const auto id = unique != ids.end() ? unique->second : static_cast<std::uint64_t>(mount.id);
        volumes.push_back({id, mount.device, mount.root, mount.path, mount.source});
    }
    return volumes;
}

std::optional<std::vector<Volume>> ReadVolumes(const char* mountTableFile) {
    const auto mounts = ReadMountTable(mountTableFile);
    // The table is read first: a mount that is replaced between the two readings is then reported
    // as new twice. In the other order, its replacement could be missed.
    const auto ids = mounts ? ReadUniqueMountIds() : std::nullopt;
    return ids ? std::optional(VolumesOf(*mounts, *ids)) : std::nullopt;
}

} // namespace disks
