/* A walk deeper than the limit of open directories closes upper ones and reopens them on the way
   back. */

#include "MountedChanger.h"
#include "support/Matchers.h"
#include "trayprobed/DirectoryWalk.h"

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <filesystem>
#include <fstream>
#include <functional>
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
            ways_.push_back(path);
            others_.emplace_back(names.begin() + 1, names.end());
        }
    }

    // The listings of a walk that skips the other directories of levels [from, to).
    std::vector<std::string> ListedBut(std::size_t fromLevel, std::size_t toLevel) const {
        std::vector<std::string> listed = {"list ."};
        for (const std::string& way : ways_)
            listed.push_back("list " + way);
        for (std::size_t level = kLevels; level-- > 0;) {
            for (const std::string& other : others_[level])
                if (level < fromLevel || level >= toLevel)
                    listed.push_back("list " + other);
        }
        return listed;
    }
    static void AtTheListingOf(const std::string& path, const std::function<void()>& act) {
        FileSystemSeams::OnListing([path, act](const std::string& listed) {
            if (listed == path)
                act();
        });
    }
    std::string Logged(std::size_t level, int error) const {
        return "ChangerFSCacheThread:123, CacheFSDirectory: fail scandir on " +
               LoggedPath(ways_[level].substr(1).c_str()) + " (err = " + std::to_string(error) +
               ")";
    }

    std::vector<std::string> ways_; // by level
    std::vector<std::vector<std::string>> others_;
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
    Journal::Take();
}

TEST_F(DeepWalk, KeepsNoMoreThanSixtyFourDescriptors) {
    const std::size_t before = CountDescriptors();
    std::size_t most = 0;
    FileSystemSeams::OnOpening(
        [before, &most] { most = std::max(most, CountDescriptors() - before); });
    EXPECT_THAT(Walk(), IsEmpty());
    EXPECT_EQ(most, 64U);
    EXPECT_EQ(CountDescriptors(), before);
    Journal::Take();
}

// Siblings and upper levels are still walked.
TEST_F(DeepWalk, ADirectoryThatCannotBeReopenedIsLoggedAndLeft) {
    AtTheListingOf(ways_.back(), [this] { FileSystemSeams::FailOpening(ways_[kClosed], EMFILE); });
    EXPECT_THAT(Walk(), IsEmpty());
    EXPECT_EQ(Journal::Take(), ListedBut(kClosed + 1, kClosed + 2));
    EXPECT_THAT(log_.TakeWithoutLineNumbers(), ElementsAre(Logged(kClosed, EMFILE)));
}

// The remaining names are skipped, although a second attempt would succeed.
TEST_F(DeepWalk, ADirectoryThatFailedToReopenOnceIsLeftWithAllItsNames) {
    AtTheListingOf(ways_.back(),
                   [this] { FileSystemSeams::FailOpening(ways_[kClosed], EMFILE, 1); });
    EXPECT_THAT(Walk(), IsEmpty());
    EXPECT_EQ(Journal::Take(), ListedBut(kClosed + 1, kClosed + 2));
    EXPECT_THAT(log_.TakeWithoutLineNumbers(), ElementsAre(Logged(kClosed, EMFILE)));
}

TEST_F(DeepWalk, ADirectoryThatReplacedTheClosedOneIsNotEntered) {
    const std::string place = tree_.Path(ways_[kClosed]);
    AtTheListingOf(ways_.back(), [&] {
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

TEST_F(DeepWalk, ALinkThatReplacedTheClosedDirectoryIsNotFollowed) {
    const std::string place = tree_.Path(ways_[kClosed]);
    AtTheListingOf(ways_[kClosed + 1], [&] {
        fs::rename(place, tree_.Path("elsewhere"));
        fs::create_directory_symlink(tree_.Path("elsewhere"), place);
    });
    EXPECT_THAT(Walk(), IsEmpty());
    EXPECT_THAT(log_.TakeWithoutLineNumbers(), testing::Contains(Logged(kClosed, ENOTDIR)));
    Journal::Take();
}

TEST_F(DeepWalk, NamesBeyondTheBudgetFailTheListing) {
    for (int i = 0; i < 20; ++i)
        tree_.MakeDirectory("a/" + std::string(250, 'x') + std::to_string(i));
    constexpr std::size_t kRoom = 4096;
    DirectoryWalk walk;
    WalkedDirectory top;
    WalkedDirectory child;
    BeginWalk(&walk, tree_.Path("a").c_str(), ShouldCacheItem, &top);
    walk.nameBudget = kRoom;
    EnterDirectory(&walk, &top);
    EXPECT_EQ(top.error, ENOMEM);
    EXPECT_FALSE(FindSubdirectory(&walk, &top, &child));
    LeaveDirectory(&top);
    EXPECT_EQ(walk.nameBudget, kRoom);
    Journal::Take();
}

} // namespace
