#include "simulator/DiscTree.h"

#include <algorithm>

namespace simulator {

std::span<const TreeEntry> DiscTree::Children(EntryIndex directory) const {
    const TreeEntry& entry = entries_[directory];
    return std::span(entries_).subspan(entry.firstChild, entry.childCount);
}

std::optional<EntryIndex> DiscTree::FindChild(EntryIndex directory, std::string_view name) const {
    const auto children = Children(directory);
    const auto found = std::ranges::lower_bound(
        children, name, {}, [](const TreeEntry& entry) { return std::string_view(entry.name); });
    if (found == children.end() || found->name != name)
        return {};
    return static_cast<EntryIndex>(entries_[directory].firstChild + (found - children.begin()));
}

std::string DiscTree::Path(EntryIndex index) const {
    std::string path;
    for (; index != 0; index = entries_[index].parent)
        path.insert(0, "/" + entries_[index].name);
    return path.empty() ? "/" : path;
}

void DiscTree::AppendChildren(EntryIndex directory, std::vector<TreeEntry> children) {
    std::ranges::sort(children, {}, &TreeEntry::name);
    entries_[directory].firstChild = static_cast<EntryIndex>(entries_.size());
    entries_[directory].childCount = static_cast<EntryIndex>(children.size());
    for (TreeEntry& child : children) {
        child.parent = directory;
        entries_.push_back(std::move(child));
    }
}

} // namespace simulator
