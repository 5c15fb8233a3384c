/*
 * puppet-volume --awake|--asleep|--stops-at-info=N PLACE GUID FOLDER...
 *
 * Serves a changer's file system with one disc, "disc", which has these folders, until it is
 * killed. Writes "volume mounted" after the mount, and "volume read PATH" for each file that is
 * opened. With
 * --asleep the process stops itself (SIGSTOP) before its first answer, with --stops-at-info before
 * the changer's info file is opened for the Nth time. The beginning of a folder's name defines how
 * it is listed:
 *
 *   stop       the process stops itself before it answers
 *   forbidden  fails with EACCES
 *   broken     fails with EIO after the first name
 *   maze       has folders "a" and "b", and so has each of these, without end
 */

#define FUSE_USE_VERSION 312

#include <fuse.h>

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstdlib>
#include <iostream>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace {

constexpr std::string_view kDisc = "/disc";
constexpr std::string_view kChangerInfo = "/.changer_info.plist";
constexpr std::string_view kStopsAtInfo = "--stops-at-info=";

std::string g_guid;
int g_infoOpeningsUntilStop = 0;
std::vector<std::string> g_folders;

std::string PropertyList(const std::string& content) {
    return "<plist version=\"1.0\"><dict><key>Changer GUID</key><integer>" + g_guid + "</integer>" +
           content + "</dict></plist>\n";
}

std::optional<std::string> FindFile(std::string_view path) {
    if (path == kChangerInfo)
        return PropertyList("");
    if (path == "/disc/.media_info.plist") {
        return PropertyList("<key>Storage Element Index</key><integer>0</integer>"
                            "<key>Partition Id</key><string>1</string>"
                            "<key>Writable</key><false/>");
    }
    return std::nullopt;
}

// Splits a path below the disc into the name of the disc's folder and the rest.
std::pair<std::string, std::string> SplitBelowDisc(std::string_view path) {
    if (!path.starts_with(std::string(kDisc) + "/"))
        return {};
    const std::string below(path.substr(kDisc.size() + 1));
    const std::size_t slash = std::min(below.find('/'), below.size());
    return {below.substr(0, slash), below.substr(slash)};
}

// "/a/b/b/a" and the like.
bool IsInMaze(std::string_view rest) {
    while (rest.starts_with("/a") || rest.starts_with("/b"))
        rest.remove_prefix(2);
    return rest.empty();
}

bool IsDirectory(std::string_view path) {
    if (path == "/" || path == kDisc)
        return true;
    const auto [folder, rest] = SplitBelowDisc(path);
    const bool isThere = std::count(g_folders.begin(), g_folders.end(), folder) > 0;
    return isThere && (rest.empty() || (folder.starts_with("maze") && IsInMaze(rest)));
}

int ReadAttributes(const char* path, struct stat* status, fuse_file_info*) {
    *status = {};
    if (IsDirectory(path)) {
        status->st_mode = S_IFDIR | 0755;
        return 0;
    }
    const auto file = FindFile(path);
    if (!file)
        return -ENOENT;
    status->st_mode = S_IFREG | 0644;
    status->st_size = static_cast<off_t>(file->size());
    return 0;
}

int OpenDirectory(const char* path, fuse_file_info*) {
    const std::string folder = SplitBelowDisc(path).first;
    if (folder.starts_with("stop"))
        raise(SIGSTOP);
    return folder.starts_with("forbidden") ? -EACCES : 0;
}

std::vector<std::string> NamesIn(std::string_view path) {
    if (path == "/")
        return {".changer_info.plist", "disc"};
    if (path == kDisc) {
        std::vector<std::string> names = g_folders;
        names.emplace_back(".media_info.plist");
        return names;
    }
    const bool isMaze = SplitBelowDisc(path).first.starts_with("maze");
    return isMaze ? std::vector<std::string>{"a", "b"} : std::vector<std::string>{};
}

// Returns one name per call, so a listing takes several calls.
int ReadDirectory(const char* path, void* buffer, fuse_fill_dir_t fill, off_t offset,
                  fuse_file_info*, fuse_readdir_flags) {
    const bool isBroken = SplitBelowDisc(path).first.starts_with("broken");
    std::vector<std::string> names = NamesIn(path);
    names.insert(names.begin(), {".", ".."});
    if (isBroken && offset > 0)
        return -EIO;
    const auto index = static_cast<std::size_t>(offset);
    if (index < names.size())
        fill(buffer, names[index].c_str(), nullptr, offset + 1, fuse_fill_dir_flags{});
    return 0;
}

int Open(const char* path, fuse_file_info*) {
    if (path == kChangerInfo && --g_infoOpeningsUntilStop == 0)
        raise(SIGSTOP);
    std::cout << "volume read " << path << std::endl;
    return 0;
}

int Read(const char* path, char* buffer, std::size_t size, off_t offset, fuse_file_info*) {
    const std::string content = FindFile(path).value_or("");
    const std::size_t start = std::min(static_cast<std::size_t>(offset), content.size());
    return static_cast<int>(content.copy(buffer, size, start));
}

int Serve(const char* place, bool isAsleep) {
    fuse_operations operations = {};
    operations.getattr = ReadAttributes;
    operations.opendir = OpenDirectory;
    operations.readdir = ReadDirectory;
    operations.open = Open;
    operations.read = Read;
    const char* arguments[] = {"puppet-volume", "-oro,allow_other"};
    fuse_args parsed = FUSE_ARGS_INIT(2, const_cast<char**>(arguments));
    fuse* volume = fuse_new(&parsed, &operations, sizeof operations, nullptr);
    if (volume == nullptr || fuse_mount(volume, place) != 0)
        return 1;
    std::cout << "volume mounted" << std::endl;
    if (isAsleep)
        raise(SIGSTOP);
    return fuse_loop(volume);
}

} // namespace

int main(int, char** argv) {
    const std::string option = argv[1];
    if (option.starts_with(kStopsAtInfo))
        g_infoOpeningsUntilStop = std::stoi(option.substr(kStopsAtInfo.size()));
    g_guid = argv[3];
    for (char** folder = argv + 4; *folder != nullptr; ++folder)
        g_folders.emplace_back(*folder);
    // Tests unmount this program's file system and kill it at once. A leak check at its exit that
    // is killed in the middle reports "Unable to get registers", so exit without one.
    std::_Exit(Serve(argv[2], option == "--asleep"));
}
