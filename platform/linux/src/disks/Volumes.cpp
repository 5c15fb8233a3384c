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

// Views of the kernel's own state: no files of anybody's lie there, and reading may have effects.
constexpr auto kKernelTypes = std::to_array({
    "binder"sv,  "binfmt_misc"sv, "bpf"sv,    "cgroup"sv,     "cgroup2"sv,    "configfs"sv,
    "cpuset"sv,  "debugfs"sv,     "devpts"sv, "devtmpfs"sv,   "efivarfs"sv,   "functionfs"sv,
    "fusectl"sv, "hugetlbfs"sv,   "mqueue"sv, "nfsd"sv,       "nsfs"sv,       "proc"sv,
    "pstore"sv,  "resctrl"sv,     "rootfs"sv, "rpc_pipefs"sv, "securityfs"sv, "selinuxfs"sv,
    "smackfs"sv, "spufs"sv,       "sysfs"sv,  "tracefs"sv,    "xenfs"sv,
});

// Looking into one of these mounts something.
constexpr auto kAutomaticTypes = std::to_array({"autofs"sv});

// Their server may be out of reach, and whoever looks into one then waits until it is back. User
// space file systems are not here, whatever they stand for: most of them are volumes.
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

// A path inside a mount, and a hash of the path, which is made character by character: that of all
// directories on the way costs no more than that of the whole path.
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
 * Where a path leads, by the mount table alone: the kernel itself could only be asked by a look-up
 * that any dead file system on the way would block.
 */
class PathWalk {
public:
    explicit PathWalk(const MountTable& mounts) : root_(RootOf(mounts)) {
        for (const Mount& mount : mounts)
            children_.emplace(Location{mount.parent, HashPath(mount.path), mount.path}, mount.id);
    }

    // The id of the mount that the absolute path ends in.
    int MountAt(std::string_view path) {
        int mount = root_;
        PathHasher hasher;
        std::size_t begin = 0;
        // Nothing covers "/" itself: every look-up starts inside it.
        for (std::size_t end = 1; end < path.size(); begin = end) {
            end = std::min(path.find('/', end + 1), path.size());
            hasher.Add(path.substr(begin, end - begin));
            mount = Cross({mount, hasher.Value(), path.substr(0, end)});
        }
        return mount;
    }

private:
    // The mount that is seen at a path inside a mount: the last one of those stacked there.
    int Cross(Location location) {
        const int first = location.mount;
        for (std::size_t crossed = 0; crossed < children_.size(); ++crossed) {
            const auto child = children_.find(location);
            if (child == children_.end() || child->second == location.mount)
                break;
            location.mount = child->second;
        }
        const int last = location.mount;
        // From each of them one step leads there the next time.
        for (location.mount = first; location.mount != last;)
            location.mount = std::exchange(children_.find(location)->second, last);
        return last;
    }

    // A process whose root is a plain directory does not see the mount that this lies in, but as
    // the parent of others, of which the oldest comes first.
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
    // Read second: a mount that came in between is then rather seen as new once too often.
    const auto ids = mounts ? ReadUniqueMountIds() : std::nullopt;
    return ids ? std::optional(VolumesOf(*mounts, *ids)) : std::nullopt;
}

} // namespace disks
