#include "simulator/DiscTree.h"

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

namespace simulator {
namespace {

std::vector<std::string> Describe(const DiscTree& tree) {
    std::vector<std::string> lines;
    for (EntryIndex index = 0; index < tree.Size(); ++index) {
        const TreeEntry& entry = tree.Entry(index);
        std::string line = tree.Path(index);
        line += ' ' + std::to_string(entry.mode) + ' ' + std::to_string(entry.size);
        lines.push_back(entry.IsDirectory() ? line : line + tree.Read(index, 0, 100));
    }
    return lines;
}

TEST(SyntheticTreeTest, EqualSeedsGiveEqualTrees) {
    const SyntheticTreeOptions options = {.seed = 7};
    EXPECT_EQ(Describe(*MakeSyntheticTree(options)), Describe(*MakeSyntheticTree(options)));
    EXPECT_NE(Describe(*MakeSyntheticTree(options)), Describe(*MakeSyntheticTree({.seed = 8})));
}

TEST(SyntheticTreeTest, SeedSevenGivesTheRecordedTree) {
    const auto tree = MakeSyntheticTree({.seed = 7, .directories = 2, .files = 1, .depth = 2});
    std::vector<std::string> paths;
    for (EntryIndex index = 0; index < tree->Size(); ++index)
        paths.push_back(tree->Path(index));
    EXPECT_EQ(paths,
              (std::vector<std::string>{"/", "/kitchen-1", "/kitchen-2", "/letters-1.jpg",
                                        "/kitchen-1/railway-1.mp3", "/kitchen-2/railway-1.mp3"}));
}

TEST(SyntheticTreeTest, TreeHasTheRequestedCountsAndDepth) {
    const auto tree = MakeSyntheticTree({.seed = 3, .directories = 200, .files = 4, .depth = 5});
    EXPECT_EQ(tree->Size(), 201u + 201u * 4u);
    unsigned directories = 0;
    std::ptrdiff_t deepest = 0;
    for (EntryIndex index = 0; index < tree->Size(); ++index) {
        if (!tree->Entry(index).IsDirectory())
            continue;
        ++directories;
        if (index != 0)
            deepest = std::max(deepest, std::ranges::count(tree->Path(index), '/'));
    }
    EXPECT_EQ(directories, 201u);
    EXPECT_EQ(deepest, 5);
}

TEST(SyntheticTreeTest, DepthZeroGivesOnlyTheRoot) {
    EXPECT_EQ(MakeSyntheticTree({.directories = 5, .files = 0, .depth = 0})->Size(), 1u);
}

TEST(DiscTreeTest, EveryEntryIsFoundByItsName) {
    const auto tree = MakeSyntheticTree({.seed = 5, .directories = 30, .files = 3, .depth = 3});
    for (EntryIndex index = 1; index < tree->Size(); ++index) {
        const TreeEntry& entry = tree->Entry(index);
        EXPECT_EQ(tree->FindChild(entry.parent, entry.name), index);
    }
    EXPECT_EQ(tree->FindChild(0, "nothing"), std::nullopt);
    EXPECT_EQ(tree->FindChild(0, ""), std::nullopt);
}

TEST(SyntheticTreeTest, PartialReadsEqualTheWholeFile) {
    const auto tree = MakeSyntheticTree({.seed = 1, .directories = 0, .files = 20, .depth = 0});
    for (EntryIndex index = 1; index < tree->Size(); ++index) {
        const std::uint64_t size = tree->Entry(index).size;
        const std::string whole = tree->Read(index, 0, 100'000);
        EXPECT_EQ(whole.size(), size);
        EXPECT_EQ(tree->Read(index, size / 2, 100'000), whole.substr(size / 2));
        EXPECT_EQ(tree->Read(index, size, 1), "");
        EXPECT_EQ(tree->Read(index, size + 10, 1), "");
    }
}

class FolderTreeTest : public testing::Test {
protected:
    FolderTreeTest() {
        std::string pattern = testing::TempDir() + "folder-XXXXXX";
        folder_ = mkdtemp(pattern.data());
    }
    ~FolderTreeTest() override {
        std::filesystem::remove_all(folder_);
    }

    std::filesystem::path folder_;
};

TEST_F(FolderTreeTest, EveryKindOfEntryIsListed) {
    std::filesystem::create_directories(folder_ / "sub" / "deep");
    std::ofstream(folder_ / "sub" / "file") << "content";
    std::filesystem::create_directory_symlink("/etc", folder_ / "link");
    ASSERT_EQ(mkfifo((folder_ / ".media_info.plist").c_str(), 0600), 0);
    std::ofstream(folder_ / "not-utf8-\xFF") << "x";

    const auto tree = ReadFolderTree(folder_);
    ASSERT_EQ(tree->Size(), 7u);
    const auto get = [&](EntryIndex directory, std::string_view name) -> const TreeEntry& {
        return tree->Entry(tree->FindChild(directory, name).value());
    };
    EXPECT_TRUE(get(0, "sub").IsDirectory());
    EXPECT_TRUE(S_ISLNK(get(0, "link").mode));
    EXPECT_EQ(get(0, "link").linkTarget, "/etc");
    EXPECT_TRUE(S_ISFIFO(get(0, ".media_info.plist").mode));
    EXPECT_TRUE(S_ISREG(get(0, "not-utf8-\xFF").mode));
    const EntryIndex file = tree->FindChild(*tree->FindChild(0, "sub"), "file").value();
    EXPECT_EQ(tree->Path(file), "/sub/file");
    EXPECT_EQ(tree->Read(file, 3, 3), "ten");
}

TEST_F(FolderTreeTest, MissingFolderOrFileThrows) {
    std::ofstream(folder_ / "file") << "x";
    EXPECT_THROW(ReadFolderTree(folder_ / "missing"), std::system_error);
    EXPECT_THROW(ReadFolderTree(folder_ / "file"), std::system_error);
}

} // namespace
} // namespace simulator
