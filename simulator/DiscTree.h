#ifndef SIMULATOR_DISCTREE_H
#define SIMULATOR_DISCTREE_H

/* What is on a disc: a tree of names that never changes once it is made. */

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <sys/types.h>

namespace simulator {

using EntryIndex = std::uint32_t;

struct TreeEntry {
    std::string name;
    mode_t mode = 0; // type and permissions, as of stat
    std::uint64_t size = 0;
    std::string linkTarget{};
    EntryIndex parent = 0;
    EntryIndex firstChild = 0; // the children lie side by side, sorted by name
    EntryIndex childCount = 0;

    bool IsDirectory() const {
        return (mode & 0170000u) == 0040000u;
    }
};

struct SyntheticTreeOptions {
    std::uint64_t seed = 1;
    std::uint32_t directories = 20; // below the root
    std::uint32_t files = 5;        // in each directory
    std::uint32_t depth = 3;        // of the deepest directory; the root has 0
};

/* Entry 0 is the root. */
class DiscTree {
public:
    virtual ~DiscTree() = default;

    std::size_t Size() const {
        return entries_.size();
    }
    const TreeEntry& Entry(EntryIndex index) const {
        return entries_[index];
    }
    std::span<const TreeEntry> Children(EntryIndex directory) const;
    std::optional<EntryIndex> FindChild(EntryIndex directory, std::string_view name) const;

    // Begins with "/", which is the root's own path.
    std::string Path(EntryIndex index) const;

    // At most so many bytes of a file's content; fewer only at its end. Throws std::system_error.
    virtual std::string Read(EntryIndex file, std::uint64_t offset, std::size_t size) const = 0;

protected:
    explicit DiscTree(TreeEntry root) {
        entries_.push_back(std::move(root));
    }

    // Appends the children of a directory that has none yet; with their parents in ascending
    // order, each directory's children come to lie side by side.
    void AppendChildren(EntryIndex directory, std::vector<TreeEntry> children);

private:
    std::vector<TreeEntry> entries_;
};

/* The same shape gives the same tree, names, sizes and contents, everywhere. */
std::shared_ptr<const DiscTree> MakeSyntheticTree(const SyntheticTreeOptions& options);

/* The folder's names as of now; contents are read from it later. What cannot be listed is an empty
   directory. Throws std::system_error when the folder itself is no directory. */
std::shared_ptr<const DiscTree> ReadFolderTree(const std::string& path);

} // namespace simulator

#endif
