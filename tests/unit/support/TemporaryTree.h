#ifndef TESTS_UNIT_SUPPORT_TEMPORARYTREE_H
#define TESTS_UNIT_SUPPORT_TEMPORARYTREE_H

/* A temporary directory, removed with its content at the end, and the info files of changer file
   systems. Paths are relative to the directory. */

#include "support/NotCopyable.h"
#include "support/PropertyLists.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>
#include <system_error>

class TemporaryTree : NotCopyable {
public:
    TemporaryTree() {
        std::string pattern = testing::TempDir() + "trayprobed-XXXXXX";
        EXPECT_NE(mkdtemp(pattern.data()), nullptr);
        root_ = std::filesystem::canonical(pattern).string();
    }
    ~TemporaryTree() {
        std::error_code ignored;
        std::filesystem::remove_all(root_, ignored);
    }

    const std::string& Root() const {
        return root_;
    }
    std::string Path(std::string_view relative) const {
        return root_ + "/" + std::string(relative);
    }

    void MakeDirectory(std::string_view relative) const {
        std::filesystem::create_directories(Path(relative));
    }
    void Write(std::string_view relative, std::string_view content) const {
        std::ofstream file(Path(relative), std::ios::binary);
        file << content;
        EXPECT_TRUE(file.good()) << relative;
    }
    void Link(const std::string& target, std::string_view relative) const {
        std::filesystem::create_symlink(target, Path(relative));
    }

    // Both create the directory if it does not exist.
    void MakeChangerRoot(std::string_view directory, std::uint64_t changerGUID) const {
        MakeDirectory(directory);
        Write(std::string(directory) + "/.changer_info.plist",
              XmlOf(Dictionary({{"Changer GUID", changerGUID}})));
    }
    void MakeMediaRoot(std::string_view directory, std::uint64_t changerGUID, int storageElem,
                       const char* partitionId = "p") const {
        MakeDirectory(directory);
        Write(std::string(directory) + "/.media_info.plist",
              XmlOf(Dictionary({{"Changer GUID", changerGUID},
                                {"Storage Element Index", storageElem},
                                {"Partition Id", partitionId},
                                {"Writable", false}})));
    }

private:
    std::string root_;
};

#endif
