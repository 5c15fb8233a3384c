#include "disks/Volumes.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

namespace disks {
namespace {

constexpr const char* kRootLine = "27 1 254:0 / / rw - ext4 /dev/vda rw\n";

using Strings = std::vector<std::string>;

// The line of a tmpfs in the mount table.
std::string Mount(int id, int parent, int device, const std::string& path) {
    return std::to_string(id) + " " + std::to_string(parent) + " 0:" + std::to_string(device) +
           " / " + path + " rw - tmpfs none rw\n";
}

// The volumes besides the root.
std::vector<Volume> Volumes(const std::string& lines, const UniqueMountIds& ids = {}) {
    const auto mounts = ParseMountTable(kRootLine + lines);
    EXPECT_TRUE(mounts);
    auto volumes = mounts ? VolumesOf(*mounts, ids) : std::vector<Volume>();
    std::erase_if(volumes, [](const Volume& volume) { return volume.path == "/"; });
    return volumes;
}

Strings Paths(const std::string& lines) {
    Strings paths;
    for (const Volume& volume : Volumes(lines))
        paths.push_back(volume.path);
    return paths;
}

class EveryType : public testing::TestWithParam<const char*> {};
class ExcludedType : public EveryType {};
class VolumeType : public EveryType {};

std::string MountOfType(const std::string& type) {
    return "40 27 0:45 / /mnt/a rw - " + type + " source rw\n";
}

TEST_P(ExcludedType, IsNoVolume) {
    EXPECT_EQ(Paths(MountOfType(GetParam())), Strings());
}
INSTANTIATE_TEST_SUITE_P(Types, ExcludedType,
                         testing::Values("binder", "binfmt_misc", "bpf", "cgroup", "cgroup2",
                                         "configfs", "cpuset", "debugfs", "devpts", "devtmpfs",
                                         "efivarfs", "functionfs", "fusectl", "hugetlbfs", "mqueue",
                                         "nfsd", "nsfs", "proc", "pstore", "resctrl", "rootfs",
                                         "rpc_pipefs", "securityfs", "selinuxfs", "smackfs",
                                         "spufs", "sysfs", "tracefs", "xenfs", "autofs", "9p",
                                         "afs", "ceph", "cifs", "coda", "lustre", "ncpfs", "nfs",
                                         "nfs4", "orangefs", "smb3", "smbfs"));

TEST_P(VolumeType, IsAVolume) {
    EXPECT_EQ(Paths(MountOfType(GetParam())), Strings{"/mnt/a"});
}
INSTANTIATE_TEST_SUITE_P(Types, VolumeType,
                         testing::Values("ext4", "iso9660", "udf", "tmpfs", "overlay", "fuse",
                                         "fuse.cdfs", "fuseblk", "squashfs"));

TEST(Volumes, AreOnePerDeviceAndRootDirectoryAtTheFirstMount) {
    EXPECT_EQ(Paths("40 27 11:0 / /mnt/a rw - iso9660 /dev/sr0 ro\n"
                    "41 27 11:0 / /mnt/b rw - iso9660 /dev/sr0 ro\n"
                    "42 27 11:0 /sub /mnt/c rw - iso9660 /dev/sr0 ro\n"),
              (Strings{"/mnt/a", "/mnt/c"}));
}

TEST(Volumes, AreInTheOrderOfTheTableWhateverTheirIds) {
    const std::string lines =
        Mount(41, 27, 45, "/mnt/b") + Mount(40, 27, 46, "/mnt/a") + Mount(42, 27, 44, "/mnt/c");
    EXPECT_EQ(Paths(lines), (Strings{"/mnt/b", "/mnt/a", "/mnt/c"}));
}

TEST(Volumes, AreHiddenByAMountOverThem) {
    const auto volumes = Volumes(Mount(40, 27, 45, "/mnt/a") + Mount(41, 40, 46, "/mnt/a"));
    ASSERT_EQ(volumes.size(), 1U);
    EXPECT_EQ(volumes[0].path, "/mnt/a");
    EXPECT_EQ(volumes[0].mount, 41U);
}

TEST(Volumes, OfMountsOverEachOtherOnlyTheTopmostIsVisible) {
    const auto volumes = Volumes(Mount(43, 42, 48, "/mnt/a/b") + Mount(44, 40, 49, "/mnt/a/c") +
                                 Mount(41, 40, 46, "/mnt/a") + Mount(42, 41, 47, "/mnt/a") +
                                 Mount(40, 27, 45, "/mnt/a") + Mount(45, 42, 50, "/mnt/a/d"));
    std::vector<std::uint64_t> mounts;
    for (const Volume& volume : volumes)
        mounts.push_back(volume.mount);
    EXPECT_EQ(mounts, (std::vector<std::uint64_t>{43, 42, 45}));
}

TEST(Volumes, AreHiddenByAMountOverADirectoryAboveThem) {
    EXPECT_EQ(Paths(Mount(40, 27, 45, "/mnt/deep/a") + Mount(41, 27, 46, "/mnt")), Strings{"/mnt"});
}

TEST(Volumes, AreNotHiddenByANeighbourOfTheSamePrefix) {
    EXPECT_EQ(Paths(Mount(40, 27, 45, "/mnt/ab") + Mount(41, 27, 46, "/mnt/a")),
              (Strings{"/mnt/ab", "/mnt/a"}));
}

TEST(Volumes, AreVisibleBelowOthersAndBelowExcludedMounts) {
    EXPECT_EQ(Paths("40 27 0:5 / /dev rw - devtmpfs none rw\n" + Mount(41, 40, 45, "/dev/shm") +
                    Mount(42, 41, 46, "/dev/shm/x")),
              (Strings{"/dev/shm", "/dev/shm/x"}));
}

TEST(Volumes, TakeTheirPathFromAMountThatIsNotHidden) {
    EXPECT_EQ(Paths(Mount(40, 27, 45, "/mnt/a") + Mount(41, 27, 45, "/mnt/b") +
                    Mount(42, 40, 46, "/mnt/a")),
              (Strings{"/mnt/b", "/mnt/a"}));
}

TEST(Volumes, RootIsNotHiddenByAMountOverIt) {
    const auto mounts = ParseMountTable(kRootLine + Mount(40, 27, 45, "/"));
    ASSERT_TRUE(mounts);
    const std::vector<Volume> volumes = VolumesOf(*mounts, {});
    ASSERT_EQ(volumes.size(), 1U);
    EXPECT_EQ(volumes[0].mount, 27U);
}

TEST(Volumes, AreVisibleBelowARootThatIsNoMount) {
    const auto mounts = ParseMountTable(Mount(40, 27, 45, "/a") + Mount(41, 40, 46, "/a/b"));
    ASSERT_TRUE(mounts);
    EXPECT_EQ(VolumesOf(*mounts, {}).size(), 2U);
}

TEST(Volumes, DifferByTheirUniqueMountIdWhenNothingElseDoes) {
    const std::string line = Mount(40, 27, 45, "/mnt/a");
    const auto before = Volumes(line, {{40, 0x80000001}});
    EXPECT_EQ(before, Volumes(line, {{40, 0x80000001}}));
    EXPECT_NE(before, Volumes(line, {{40, 0x80000002}}));
}

TEST(Volumes, DifferWhenMoved) {
    EXPECT_NE(Volumes(Mount(40, 27, 45, "/mnt/a")), Volumes(Mount(40, 27, 45, "/mnt/b")));
}

TEST(Volumes, StayTheSameWhenOptionsChange) {
    EXPECT_EQ(Volumes(Mount(40, 27, 45, "/mnt/a")),
              Volumes("40 27 0:45 / /mnt/a ro,nosuid shared:7 - tmpfs none ro\n"));
}

TEST(Volumes, MountThatIsItsOwnParentIsHidden) {
    EXPECT_EQ(Paths(Mount(40, 40, 45, "/mnt/a")), Strings());
}

TEST(Volumes, MountsThatCoverEachOtherEnd) {
    EXPECT_LE(Paths(Mount(40, 27, 45, "/mnt/a") + Mount(41, 40, 46, "/mnt/a") +
                    Mount(40, 41, 47, "/mnt/a"))
                  .size(),
              2U);
}

TEST(Volumes, OfTheKernelHaveUniqueIds) {
    const auto volumes = ReadVolumes("/proc/self/mountinfo");
    ASSERT_TRUE(volumes);
    const auto ids = ReadUniqueMountIds();
    ASSERT_TRUE(ids);
    if (ids->empty())
        GTEST_SKIP() << "this kernel has no unique mount ids (Linux 6.8 has)";
    for (const Volume& volume : *volumes)
        EXPECT_GT(volume.mount, std::uint64_t{INT32_MAX}) << volume.path;
    // The table is in the order of mounting, and so are the unique ids.
    EXPECT_TRUE(std::ranges::is_sorted(*volumes, {}, &Volume::mount));
}

} // namespace
} // namespace disks
