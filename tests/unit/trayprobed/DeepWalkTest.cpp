/* A walk deeper than the limit of open directories closes upper ones and reopens them on the way
   back. */

#include "MountedChanger.h"
#include "support/Matchers.h"
#include "trayprobed/DirectoryWalk.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstddef>
#include <filesystem>
#include <iterator>
#include <string>
#include <vector>

namespace fs = std::filesystem;

namespace {

constexpr std::size_t kLevels = 100;
constexpr std::size_t kClosed = 80; // a level that is closed while the walk is at the deepest

std::size_t CountDescriptors() {
    const fs::directory_iterator all("/proc/self/fd");
    return static_cast<std::size_t>(std::distance(begin(all), end(all)));
}

// Three directories per level. The walk descends into the first one listed down to the deepest
// level, and into the others on the way back.
class DeepWalk : public MountedChanger {
protected:
    DeepWalk() {
        std::string path = ".";
        for (std::size_t level = 0; level < kLevels; ++level) {
            for (const char* name : {"/a", "/b", "/c"})
                tree_.MakeDirectory(path + name);
            std::vector<std::string> names;
            for (const fs::directory_entry& entry : fs::directory_iterator(tree_.Path(path)))
                names.push_back(path + "/" + entry.path().filename().string());
            path = names.front();
            firsts_.push_back(path);
            others_.emplace_back(names.begin() + 1, names.end());
        }
    }

    // The listings of a walk that skips the other directories of levels [from, to).
    std::vector<std::string> ListedBut(std::size_t fromLevel, std::size_t toLevel) const {
        std::vector<std::string> listed = {"list ."};
        for (const std::string& first : firsts_)
            listed.push_back("list " + first);
        for (std::size_t level = kLevels; level-- > 0;) {
            if (level >= fromLevel && level < toLevel)
                continue;
            for (const std::string& other : others_[level])
                listed.push_back("list " + other);
        }
        return listed;
    }
    std::string Logged(std::size_t level, int error) const {
        return ListingFailure(firsts_[level].substr(1), error);
    }

    std::vector<std::string> firsts_; // by level: the directory that the walk enters first
    std::vector<std::vector<std::string>> others_; // by level
};

TEST_F(DeepWalk, ReopensClosedDirectoriesOnTheWayBack) {
    EXPECT_THAT(Walk(), IsEmpty());
    EXPECT_EQ(Journal::Take(), ListedBut(0, 0));
    EXPECT_THAT(log_.TakeWithoutLineNumbers(), IsEmpty());
}

TEST_F(DeepWalk, CountsMediaRootsInReopenedDirectories) {
    for (const std::vector<std::string>& others : others_)
        for (const std::string& other : others)
            MakeMediaRoot(other);
    UInt16 count = 0;
    EXPECT_THAT(TakeChain(CountMediaRootDirectories(tree_.Root().c_str(), &count)), IsEmpty());
    EXPECT_EQ(count, 2 * kLevels);
}

TEST_F(DeepWalk, KeepsNoMoreThanSixtyFourDescriptors) {
    const std::size_t before = CountDescriptors();
    std::size_t most = 0;
    seams_.onOpening = [before, &most] { most = std::max(most, CountDescriptors() - before); };
    EXPECT_THAT(Walk(), IsEmpty());
    EXPECT_EQ(most, 64U);
    EXPECT_EQ(CountDescriptors(), before);
}

// Siblings and upper levels are still walked. The names that the directory itself has left are
// skipped, although a second attempt to open the directory would succeed.
TEST_F(DeepWalk, DirectoryThatCannotBeReopenedIsLoggedAndLeftWithAllItsNames) {
    for (const int failures : {INT_MAX, 1}) {
        AtListingOf(firsts_.back(), [&] {
            seams_.openingErrors[firsts_[kClosed]] = EMFILE;
            seams_.openingFailures = failures;
        });
        EXPECT_THAT(Walk(), IsEmpty());
        EXPECT_EQ(Journal::Take(), ListedBut(kClosed + 1, kClosed + 2));
        EXPECT_THAT(log_.TakeWithoutLineNumbers(), ElementsAre(Logged(kClosed, EMFILE)));
        seams_.openingErrors.clear();
    }
}

TEST_F(DeepWalk, DirectoryThatReplacedAClosedOneIsNotEntered) {
    const std::string place = tree_.Path(firsts_[kClosed]);
    AtListingOf(firsts_.back(), [&] {
        fs::rename(place, tree_.Path("elsewhere"));
        fs::create_directories(place + "/a");
        fs::create_directories(place + "/b");
    });
    EXPECT_THAT(Walk(), IsEmpty());
    EXPECT_EQ(Journal::Take(), ListedBut(kClosed + 1, kLevels));
    std::vector<std::string> logged;
    for (std::size_t level = kLevels - 1; --level >= kClosed;)
        logged.push_back(Logged(level, ENOENT));
    EXPECT_EQ(log_.TakeWithoutLineNumbers(), logged);
}

TEST_F(DeepWalk, LinkThatReplacedAClosedDirectoryIsNotFollowed) {
    const std::string place = tree_.Path(firsts_[kClosed]);
    AtListingOf(firsts_[kClosed + 1], [&] {
        fs::rename(place, tree_.Path("elsewhere"));
        fs::create_directory_symlink(tree_.Path("elsewhere"), place);
    });
    EXPECT_THAT(Walk(), IsEmpty());
    EXPECT_THAT(log_.TakeWithoutLineNumbers(), Contains(Logged(kClosed, ENOTDIR)));
}

TEST_F(DeepWalk, NamesBeyondTheBudgetFailTheListing) {
    for (int i = 0; i < 20; ++i)
        tree_.MakeDirectory("a/" + std::string(250, 'x') + std::to_string(i));
    constexpr std::size_t kBudget = 4096;
    DirectoryWalk walk;
    WalkedDirectory top;
    WalkedDirectory child;
    BeginWalk(&walk, tree_.Path("a").c_str(), ShouldCacheItem, &top);
    walk.nameBudget = kBudget;
    EnterDirectory(&walk, &top);
    EXPECT_EQ(top.error, ENOMEM);
    EXPECT_FALSE(FindSubdirectory(&walk, &top, &child));
    LeaveDirectory(&top);
    EXPECT_EQ(walk.nameBudget, kBudget);
}

} // namespace
