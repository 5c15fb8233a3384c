#include "DiscFolder.h"

#include "testbed/Failure.h"

#include <cstddef>
#include <filesystem>
#include <fstream>
#include <system_error>
#include <utility>
#include <vector>

namespace bench {
namespace {

namespace fs = std::filesystem;

constexpr int kSubdirectories = 3; // per directory; this gives six levels

void WriteFile(const fs::path& path, const std::string& text) {
    std::ofstream file(path);
    file << text;
    file.close();
    testbed::Require(file.good(), "cannot write " + path.string());
}

void MakeDirectory(const fs::path& path) {
    fs::create_directory(path);
    for (int file = 0; file < DiscFolder::kFilesPerDirectory; ++file)
        WriteFile(path / ("IMG_" + std::to_string(4000 + file) + ".JPG"), "");
}

void MakeDisc(const fs::path& root) {
    std::vector<fs::path> directories = {root};
    MakeDirectory(root);
    for (int i = 1; i < DiscFolder::kDirectoriesPerDisc; ++i) {
        const fs::path& parent = directories[static_cast<std::size_t>((i - 1) / kSubdirectories)];
        directories.push_back(parent / ("Holiday " + std::to_string(i)));
        MakeDirectory(directories.back());
    }
}

void WriteMediaInfo(const fs::path& root, std::uint64_t changerGuid, int slot) {
    WriteFile(root / ".media_info.plist",
              "<plist version=\"1.0\"><dict><key>Changer GUID</key><integer>" +
                  std::to_string(changerGuid) +
                  "</integer><key>Storage Element Index</key><integer>" + std::to_string(slot) +
                  "</integer><key>Partition Id</key><string>1</string>"
                  "<key>Writable</key><false/></dict></plist>");
}

} // namespace

DiscFolder::DiscFolder(std::string path, std::uint64_t changerGuid) : path_(std::move(path)) {
    fs::remove_all(path_);
    fs::create_directory(path_);
    for (int slot = 0; slot < kDiscs; ++slot) {
        const fs::path root = fs::path(path_) / ("disc-" + std::to_string(slot));
        MakeDisc(root);
        WriteMediaInfo(root, changerGuid, slot);
    }
}

DiscFolder::~DiscFolder() {
    std::error_code ignored;
    fs::remove_all(path_, ignored);
}

} // namespace bench
