#ifndef SIMULATOR_DISCTREE_H
#define SIMULATOR_DISCTREE_H

/* The content of a disc: an immutable tree of directories and files. */

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace simulator {

using EntryIndex = std::uint32_t;

struct TreeEntry {
    std::string name;
    mode_t mode = 0; // type and permissions, like st_mode
    std::uint64_t size = 0;
    std::string linkTarget{};
    EntryIndex parent = 0;
    EntryIndex firstChild = 0; // children are contiguous, sorted by name
    EntryIndex childCount = 0;

    // True if `mode` is that of a directory.
    bool IsDirectory() const {
        return (mode & 0170000u) == 0040000u;
    }
};

struct SyntheticTreeOptions {
    std::uint64_t seed = 1;
    std::uint32_t directories = 20; // below the root
    std::uint32_t files = 5;        // in each directory
    std::uint32_t depth = 3;        // greatest depth of a directory; the root has 0
};

/* Entry 0 is the root. Indices must be less than Size(). Any thread may call. */
class DiscTree {
public:
    virtual ~DiscTree() = default;

    // The number of entries, the root included.
    std::size_t Size() const {
        return entries_.size();
    }
    // An entry, valid as long as the tree.
    const TreeEntry& Entry(EntryIndex index) const {
        return entries_[index];
    }
    // The children, sorted by name, valid as long as the tree.
    std::span<const TreeEntry> Children(EntryIndex directory) const;
    // The child of this name; none if there is no such child.
    std::optional<EntryIndex> FindChild(EntryIndex directory, std::string_view name) const;

    // The path from the root of the tree, with "/" at its beginning; "/" for the root.
    std::string Path(EntryIndex index) const;

    // Reads up to `size` bytes of a file from `offset`; fewer only at the end of the file. Throws
    // std::system_error.
    virtual std::string Read(EntryIndex file, std::uint64_t offset, std::size_t size) const = 0;

protected:
    explicit DiscTree(TreeEntry root) {
        entries_.push_back(std::move(root));
    }

    // Appends all children of a directory; call it once per directory, in ascending order of the
    // directories.
    void AppendChildren(EntryIndex directory, std::vector<TreeEntry> children);

private:
    std::vector<TreeEntry> entries_;
};

/* Makes a tree. Equal options give equal names, sizes and contents on every machine. */
std::shared_ptr<const DiscTree> MakeSyntheticTree(const SyntheticTreeOptions& options);

/* Reads the names and attributes of a folder now; contents of files are read from it later. A
   subdirectory that cannot be listed is empty. Throws std::system_error if `path` is no directory,
   or if an entry disappears meanwhile. */
std::shared_ptr<const DiscTree> ReadFolderTree(const std::string& path);

} // namespace simulator

#endif
