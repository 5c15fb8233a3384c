#include "disks/MountTable.h"

#include "support/TemporaryTree.h"

#include <gtest/gtest.h>

#include <sys/sysmacros.h>

#include <cstdio>
#include <fstream>
#include <string>

namespace disks {
namespace {

bool g_readingFails = false;

constexpr const char* kTable =
    "27 1 254:0 / / rw,relatime - ext4 /dev/vda rw,discard\n"
    "40 27 0:45 /a\\040b /mnt/two\\040words\\011tab\\134slash rw shared:3 - fuse.cdfs cdfs rw\n"
    "41 27 11:0 / /mnt/caf\xc3\xa9\xff ro,nosuid - iso9660 /dev/sr0 ro\n";

TEST(MountTable, LineGivesIdsDeviceRootTypeAndSource) {
    const auto mounts = ParseMountTable(kTable);
    ASSERT_TRUE(mounts);
    ASSERT_EQ(mounts->size(), 3U);
    const Mount& disc = (*mounts)[2];
    EXPECT_EQ(disc.id, 41);
    EXPECT_EQ(disc.parent, 27);
    EXPECT_EQ(disc.device, makedev(11, 0));
    EXPECT_EQ(disc.root, "/");
    EXPECT_EQ(disc.type, "iso9660");
    EXPECT_EQ(disc.source, "/dev/sr0");
}

TEST(MountTable, OctalEscapesInPathAndRootAreDecoded) {
    const auto mounts = ParseMountTable(kTable);
    ASSERT_TRUE(mounts);
    EXPECT_EQ((*mounts)[1].root, "/a b");
    EXPECT_EQ((*mounts)[1].path, "/mnt/two words\ttab\\slash");
}

TEST(MountTable, PathKeepsBytesThatAreNotUtf8) {
    const auto mounts = ParseMountTable(kTable);
    ASSERT_TRUE(mounts);
    EXPECT_EQ((*mounts)[2].path, "/mnt/caf\xc3\xa9\xff");
}

// libmount takes LABEL=... for a tag, not for a path.
TEST(MountTable, SourceThatIsNoPathIsEmpty) {
    const auto mounts = ParseMountTable("41 27 11:0 / /mnt ro - iso9660 LABEL=disc ro\n");
    ASSERT_TRUE(mounts);
    ASSERT_EQ(mounts->size(), 1U);
    EXPECT_EQ(mounts->front().source, "");
    EXPECT_EQ(mounts->front().type, "iso9660");
}

TEST(MountTable, TruncatedTableIsRefused) {
    const std::string whole = kTable;
    EXPECT_FALSE(ParseMountTable(""));
    EXPECT_FALSE(ParseMountTable(whole.substr(0, whole.size() - 1)));
    EXPECT_FALSE(ParseMountTable(whole.substr(0, whole.size() / 2)));
}

TEST(MountTable, TableWithMalformedLineIsRefused) {
    EXPECT_FALSE(ParseMountTable(std::string(kTable) + "rubbish\n"));
    EXPECT_FALSE(ParseMountTable("rubbish\n" + std::string(kTable)));
    EXPECT_FALSE(ParseMountTable("27 1 254:0 / / rw,relatime\n"));
}

class MountTableFile : public testing::Test {
protected:
    ~MountTableFile() override {
        g_readingFails = false;
    }

    const TemporaryTree tree_;
    const std::string path_ = tree_.Path("mountinfo");
};

TEST_F(MountTableFile, LargerThanOneReadIsReadWhole) {
    constexpr int kLines = 5000; // several times one read
    std::ofstream text(path_);
    for (int i = 0; i < kLines; ++i)
        text << 100 + i << " 27 0:" << i << " / /mnt/volume" << i << " rw - tmpfs none rw\n";
    text.close();
    const auto mounts = ReadMountTable(path_.c_str());
    ASSERT_TRUE(mounts);
    ASSERT_EQ(mounts->size(), static_cast<std::size_t>(kLines));
    EXPECT_EQ(mounts->back().path, "/mnt/volume4999");
}

TEST_F(MountTableFile, ReadErrorAfterWholeLineFails) {
    tree_.Write("mountinfo", kTable);
    EXPECT_TRUE(ReadMountTable(path_.c_str()));
    g_readingFails = true;
    EXPECT_FALSE(ReadMountTable(path_.c_str()));
}

TEST(MountTable, UnreadableFileFails) {
    EXPECT_FALSE(ReadMountTable("/nonexistent/mountinfo"));
    EXPECT_FALSE(ReadMountTable("/proc")); // opens, and cannot be read
}

TEST(MountTable, KernelsTableIsRead) {
    const auto mounts = ReadMountTable("/proc/self/mountinfo");
    ASSERT_TRUE(mounts);
    EXPECT_FALSE(mounts->empty());
}

} // namespace
} // namespace disks

extern "C" {
int __real_ferror(FILE* stream);

int __wrap_ferror(FILE* stream) {
    return disks::g_readingFails ? 1 : __real_ferror(stream);
}
}
