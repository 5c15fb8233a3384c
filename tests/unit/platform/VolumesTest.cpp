#include "disks/Volumes.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

namespace disks {
namespace {

using namespace std::string_literals;

constexpr const char* kRootLine = "27 1 254:0 / / rw - ext4 /dev/vda rw\n";

std::vector<Volume> Volumes(const std::string& lines, const UniqueMountIds& ids = {}) {
    const auto mounts = ParseMountTable(kRootLine + lines);
    EXPECT_TRUE(mounts);
    auto volumes = mounts ? VolumesOf(*mounts, ids) : std::vector<Volume>();
    std::erase_if(volumes, [](const Volume& volume) { return volume.path == "/"; });
    return volumes;
}

std::vector<std::string> Paths(const std::string& lines) {
    std::vector<std::string> paths;
    for (const Volume& volume : Volumes(lines))
        paths.push_back(volume.path);
    return paths;
}

using Strings = std::vector<std::string>;

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

TEST(Volumes, AreOnePerDeviceAndRootAtTheFirstMount) {
    EXPECT_EQ(Paths("40 27 11:0 / /mnt/a rw - iso9660 /dev/sr0 ro\n"
                    "41 27 11:0 / /mnt/b rw - iso9660 /dev/sr0 ro\n"
                    "42 27 11:0 /sub /mnt/c rw - iso9660 /dev/sr0 ro\n"),
              (Strings{"/mnt/a", "/mnt/c"}));
}

TEST(Volumes, AreInTheOrderOfTheTableWhateverTheirIds) {
    const char* const lines = "41 27 0:45 / /mnt/b rw - tmpfs none rw\n"
                              "40 27 0:46 / /mnt/a rw - tmpfs none rw\n"
                              "42 27 0:44 / /mnt/c rw - tmpfs none rw\n";
    EXPECT_EQ(Paths(lines), (Strings{"/mnt/b", "/mnt/a", "/mnt/c"}));
}

TEST(Volumes, AreHiddenByAMountOverThem) {
    EXPECT_EQ(Paths("40 27 0:45 / /mnt/a rw - tmpfs none rw\n"
                    "41 40 0:46 / /mnt/a rw - tmpfs none rw\n"),
              Strings{"/mnt/a"});
    EXPECT_EQ(Volumes("40 27 0:45 / /mnt/a rw - tmpfs none rw\n"
                      "41 40 0:46 / /mnt/a rw - tmpfs none rw\n")[0]
                  .mount,
              41U);
}

TEST(Volumes, OfSeveralMountsOverEachOtherTheLastOneIsSeen) {
    const auto volumes = Volumes("43 42 0:48 / /mnt/a/b rw - tmpfs none rw\n"
                                 "44 40 0:49 / /mnt/a/c rw - tmpfs none rw\n"
                                 "41 40 0:46 / /mnt/a rw - tmpfs none rw\n"
                                 "42 41 0:47 / /mnt/a rw - tmpfs none rw\n"
                                 "40 27 0:45 / /mnt/a rw - tmpfs none rw\n"
                                 "45 42 0:50 / /mnt/a/d rw - tmpfs none rw\n");
    std::vector<std::uint64_t> mounts;
    for (const Volume& volume : volumes)
        mounts.push_back(volume.mount);
    EXPECT_EQ(mounts, (std::vector<std::uint64_t>{43, 42, 45}));
}

TEST(Volumes, AreHiddenByAMountOverADirectoryAboveThem) {
    EXPECT_EQ(Paths("40 27 0:45 / /mnt/deep/a rw - tmpfs none rw\n"
                    "41 27 0:46 / /mnt rw - tmpfs none rw\n"),
              Strings{"/mnt"});
}

TEST(Volumes, AreNotHiddenByANeighbourOfTheSamePrefix) {
    EXPECT_EQ(Paths("40 27 0:45 / /mnt/ab rw - tmpfs none rw\n"
                    "41 27 0:46 / /mnt/a rw - tmpfs none rw\n"),
              (Strings{"/mnt/ab", "/mnt/a"}));
}

TEST(Volumes, AreSeenBelowOthersAndThroughTheKernelsOwn) {
    EXPECT_EQ(Paths("40 27 0:5 / /dev rw - devtmpfs none rw\n"
                    "41 40 0:45 / /dev/shm rw - tmpfs none rw\n"
                    "42 41 0:46 / /dev/shm/x rw - tmpfs none rw\n"),
              (Strings{"/dev/shm", "/dev/shm/x"}));
}

TEST(Volumes, TakeTheirPathFromAMountThatIsNotHidden) {
    EXPECT_EQ(Paths("40 27 0:45 / /mnt/a rw - tmpfs none rw\n"
                    "41 27 0:45 / /mnt/b rw - tmpfs none rw\n"
                    "42 40 0:46 / /mnt/a rw - tmpfs none rw\n"),
              (Strings{"/mnt/b", "/mnt/a"}));
}

TEST(Volumes, HaveTheRootThatAMountOverItDoesNotCover) {
    const auto mounts = ParseMountTable(kRootLine + "40 27 0:45 / / rw - tmpfs none rw\n"s);
    ASSERT_TRUE(mounts);
    const std::vector<Volume> volumes = VolumesOf(*mounts, {});
    ASSERT_EQ(volumes.size(), 1U);
    EXPECT_EQ(volumes[0].mount, 27U);
}

TEST(Volumes, AreSeenFromARootThatIsNoMountItself) {
    const auto mounts = ParseMountTable("40 27 0:45 / /a rw - tmpfs none rw\n"
                                        "41 40 0:46 / /a/b rw - tmpfs none rw\n");
    ASSERT_TRUE(mounts);
    EXPECT_EQ(VolumesOf(*mounts, {}).size(), 2U);
}

TEST(Volumes, DifferByTheirUniqueMountIdWhenNothingElseDoes) {
    const char* const line = "40 27 0:45 / /mnt/a rw - tmpfs none rw\n";
    const auto before = Volumes(line, {{40, 0x80000001}});
    EXPECT_EQ(before, Volumes(line, {{40, 0x80000001}}));
    EXPECT_NE(before, Volumes(line, {{40, 0x80000002}}));
}

TEST(Volumes, DifferWhenMoved) {
    EXPECT_NE(Volumes("40 27 0:45 / /mnt/a rw - tmpfs none rw\n"),
              Volumes("40 27 0:45 / /mnt/b rw - tmpfs none rw\n"));
}

TEST(Volumes, StayTheSameWhenOptionsChange) {
    EXPECT_EQ(Volumes("40 27 0:45 / /mnt/a rw - tmpfs none rw\n"),
              Volumes("40 27 0:45 / /mnt/a ro,nosuid shared:7 - tmpfs none ro\n"));
}

TEST(Volumes, SurviveAMountThatCoversItself) {
    EXPECT_EQ(Paths("40 40 0:45 / /mnt/a rw - tmpfs none rw\n"), Strings());
}

TEST(Volumes, SurviveMountsThatCoverEachOther) {
    EXPECT_LE(Paths("40 27 0:45 / /mnt/a rw - tmpfs none rw\n"
                    "41 40 0:46 / /mnt/a rw - tmpfs none rw\n"
                    "40 41 0:47 / /mnt/a rw - tmpfs none rw\n")
                  .size(),
              2U);
}

TEST(Volumes, AreReadFromTheKernelWithUniqueIds) {
    const auto volumes = ReadVolumes("/proc/self/mountinfo");
    ASSERT_TRUE(volumes);
    const auto ids = ReadUniqueMountIds();
    ASSERT_TRUE(ids);
    if (ids->empty())
        GTEST_SKIP() << "this kernel tells no unique mount ids (Linux 6.8 does)";
    for (const Volume& volume : *volumes)
        EXPECT_GT(volume.mount, std::uint64_t{INT32_MAX}) << volume.path;
    // The table is in the order in which mounts came: these ids are given in that order.
    EXPECT_TRUE(std::ranges::is_sorted(*volumes, {}, &Volume::mount));
}

} // namespace
} // namespace disks
