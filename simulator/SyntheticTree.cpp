#include "simulator/DiscTree.h"

#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <random>
#include <string>
#include <utility>
#include <vector>

namespace simulator {

namespace {

constexpr std::array kNouns = {"letters", "holiday", "garden", "concert", "harbour", "archive",
                               "kitchen", "journal", "summer", "railway", "orchard", "museum"};
constexpr std::array kSuffixes = {".txt", ".jpg", ".mp3", ".dat"};
constexpr std::uint64_t kMaximumFileSize = 4096;

TreeEntry MakeDirectoryEntry(std::string name) {
    return {.name = std::move(name), .mode = S_IFDIR | 0555};
}

// First assigns a parent to each directory, then makes the entries breadth first.
class SyntheticTree final : public DiscTree {
public:
    explicit SyntheticTree(const SyntheticTreeOptions& options)
        : DiscTree(MakeDirectoryEntry({})), options_(options), random_(options.seed) {
        const auto childrenOf = DistributeDirectories();
        std::vector<std::uint32_t> numberOf = {0}; // by entry: the number of the directory
        for (EntryIndex index = 0; index < Size(); ++index)
            if (Entry(index).IsDirectory())
                LayOut(index, childrenOf[numberOf[index]], numberOf);
    }

    std::string Read(EntryIndex file, std::uint64_t offset, std::size_t size) const override {
        const std::string line = Path(file) + '\n';
        const std::uint64_t end = std::min<std::uint64_t>(Entry(file).size, offset + size);
        std::string content;
        for (std::uint64_t at = offset; at < end; ++at)
            content += line[at % line.size()];
        return content;
    }

private:
    // Distributions of the standard library differ between implementations; the engine does not.
    std::uint64_t Draw(std::uint64_t bound) {
        return random_() % bound;
    }

    std::vector<std::vector<std::uint32_t>> DistributeDirectories() {
        std::vector<std::vector<std::uint32_t>> childrenOf(options_.directories + 1u);
        std::vector<std::uint32_t> depthOf = {0};
        std::vector<std::uint32_t> parents = {0}; // directories above the greatest depth
        if (options_.depth == 0)
            return childrenOf;
        for (std::uint32_t number = 1; number <= options_.directories; ++number) {
            const std::uint32_t parent = parents[Draw(parents.size())];
            childrenOf[parent].push_back(number);
            depthOf.push_back(depthOf[parent] + 1);
            if (depthOf[number] < options_.depth)
                parents.push_back(number);
        }
        return childrenOf;
    }

    void LayOut(EntryIndex directory, const std::vector<std::uint32_t>& subdirectories,
                std::vector<std::uint32_t>& numberOf) {
        std::vector<TreeEntry> children;
        for (const std::uint32_t number : subdirectories)
            children.push_back(MakeDirectoryEntry(MakeName(number)));
        for (std::uint32_t number = 1; number <= options_.files; ++number) {
            // In a statement of its own: the order of evaluation within one is not specified.
            const char* const suffix = kSuffixes[Draw(kSuffixes.size())];
            children.push_back({.name = MakeName(number) + suffix,
                                .mode = S_IFREG | 0444,
                                .size = Draw(kMaximumFileSize)});
        }
        AppendChildren(directory, std::move(children));
        for (const TreeEntry& child : Children(directory))
            numberOf.push_back(child.IsDirectory() ? ParseNumber(child.name) : 0);
    }

    std::string MakeName(std::uint32_t number) {
        return kNouns[Draw(kNouns.size())] + ("-" + std::to_string(number));
    }

    static std::uint32_t ParseNumber(const std::string& name) {
        return static_cast<std::uint32_t>(std::stoul(name.substr(name.find('-') + 1)));
    }

    const SyntheticTreeOptions options_;
    std::mt19937_64 random_;
};

} // namespace

std::shared_ptr<const DiscTree> MakeSyntheticTree(const SyntheticTreeOptions& options) {
    return std::make_shared<SyntheticTree>(options);
}

} // namespace simulator
