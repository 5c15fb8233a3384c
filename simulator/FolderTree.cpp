#include "simulator/Descriptor.h"
#include "simulator/DiscTree.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

namespace simulator {

namespace {

[[noreturn]] void ThrowErrno(const std::string& what) {
    throw std::system_error(errno, std::generic_category(), what);
}

std::string ReadLinkTarget(const std::string& path) {
    char target[4096];
    const ssize_t length = readlink(path.c_str(), target, sizeof target);
    return length < 0 ? std::string() : std::string(target, static_cast<std::size_t>(length));
}

TreeEntry MakeEntry(const std::string& path, std::string name) {
    struct stat status = {};
    if (lstat(path.c_str(), &status) != 0)
        ThrowErrno(path);
    return {.name = std::move(name),
            .mode = status.st_mode,
            .size = static_cast<std::uint64_t>(status.st_size),
            .linkTarget = S_ISLNK(status.st_mode) ? ReadLinkTarget(path) : std::string()};
}

std::vector<TreeEntry> ListFolder(const std::string& path) {
    std::vector<TreeEntry> entries;
    const std::unique_ptr<DIR, int (*)(DIR*)> directory(opendir(path.c_str()), &closedir);
    if (!directory)
        return entries;
    while (const dirent* item = readdir(directory.get())) {
        const std::string name = item->d_name;
        if (name != "." && name != "..")
            entries.push_back(MakeEntry(path + '/' + name, name));
    }
    return entries;
}

class FolderTree final : public DiscTree {
public:
    explicit FolderTree(const std::string& path) : DiscTree(MakeEntry(path, {})), folder_(path) {
        if (!Entry(0).IsDirectory()) {
            errno = ENOTDIR;
            ThrowErrno(path);
        }
        for (EntryIndex index = 0; index < Size(); ++index)
            if (Entry(index).IsDirectory())
                AppendChildren(index, ListFolder(folder_ + Path(index)));
    }

    std::string Read(EntryIndex file, std::uint64_t offset, std::size_t size) const override {
        const std::string path = folder_ + Path(file);
        const Descriptor descriptor(
            open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
        std::string content(size, '\0');
        const ssize_t length =
            pread(descriptor.Get(), content.data(), size, static_cast<off_t>(offset));
        if (length < 0)
            ThrowErrno(path);
        content.resize(static_cast<std::size_t>(length));
        return content;
    }

private:
    const std::string folder_;
};

} // namespace

std::shared_ptr<const DiscTree> ReadFolderTree(const std::string& path) {
    return std::make_shared<FolderTree>(std::filesystem::canonical(path));
}

} // namespace simulator
