/* The walk over a tree of directories, and the count of the media roots in it. */

#include "MountedChanger.h"
#include "support/Matchers.h"
#include "trayprobed/DirectoryWalk.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <set>
#include <string>
#include <vector>

namespace {

class Walking : public MountedChanger {
protected:
    UInt16 Count(UInt16 count = 0) const {
        EXPECT_EQ(TakeChain(CountMediaRootDirectories(tree_.Root().c_str(), &count)), Chain());
        return count;
    }

    // Walks with success. Returns the journal.
    std::vector<std::string> Listed() const {
        EXPECT_THAT(Walk(), IsEmpty());
        return Journal::Take();
    }
    // Creates a directory in `parent`, which is closed. Returns the new directory's descriptor.
    static int MakeChild(int parent, const char* name) {
        EXPECT_EQ(mkdirat(parent, name, 0700), 0);
        const int child = openat(parent, name, O_RDONLY | O_DIRECTORY);
        close(parent);
        return child;
    }
    // Creates nested directories up to a path of `length` bytes. Returns the last one's descriptor.
    int MakePathOf(std::size_t length) const {
        int directory = open(tree_.Root().c_str(), O_RDONLY | O_DIRECTORY);
        std::size_t remaining = length - tree_.Root().size();
        while (remaining > 0) {
            // No component may be empty.
            std::size_t size = std::min<std::size_t>(remaining, 101);
            if (remaining - size == 1)
                --size;
            directory = MakeChild(directory, std::string(size - 1, 'd').c_str());
            remaining -= size;
        }
        return directory;
    }
};

// Openings in these directories, which inotify records.
class Openings : NotCopyable {
public:
    explicit Openings(const std::vector<std::string>& directories) {
        EXPECT_GE(watcher_, 0);
        for (const std::string& directory : directories)
            EXPECT_GE(inotify_add_watch(watcher_, directory.c_str(), IN_OPEN), 0);
    }
    ~Openings() {
        close(watcher_);
    }

    struct Result {
        std::set<std::string> files; // the names of those opened
        int listings = 0;            // openings of the directories themselves
    };
    // The openings since the last Take.
    Result Take() const {
        Result result;
        alignas(struct inotify_event) char events[16384];
        const ssize_t size = read(watcher_, events, sizeof events);
        for (ssize_t at = 0; at < size;) {
            const auto* event = reinterpret_cast<const struct inotify_event*>(events + at);
            const bool isWatchedDirectory = event->len == 0;
            if ((event->mask & IN_ISDIR) == 0)
                result.files.insert(event->name);
            else if (isWatchedDirectory)
                ++result.listings;
            at += static_cast<ssize_t>(sizeof *event + event->len);
        }
        return result;
    }

private:
    const int watcher_ = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
};

RaisedLink Raised(const char* message, VErrCode code = kVErrCodeDefault) {
    return {message, "CacheFSDirectory", kWalkSource, code};
}

// ---- listed directories ----

TEST(WalkFilter, AllNamesButDotAndDotDotPass) {
    struct Case {
        const char* name;
        bool passes;
    };
    for (const Case& each : {Case{".", false}, Case{"..", false}, Case{"...", true},
                             Case{".hidden", true}, Case{"..x", true}, Case{"a", true}}) {
        struct dirent entry = {};
        snprintf(entry.d_name, sizeof entry.d_name, "%s", each.name);
        EXPECT_EQ(ShouldCacheItem(&entry) != 0, each.passes) << each.name;
    }
}

TEST_F(Walking, WithoutDescendOnlyTheDirectoryItselfIsListed) {
    tree_.MakeDirectory("a/b");
    EXPECT_THAT(Walk(0), IsEmpty());
    EXPECT_THAT(Journal::Take(), ElementsAre("list ."));
}

TEST_F(Walking, WithDescendEveryDirectoryIsListedOnceWithoutTheLock) {
    tree_.MakeDirectory("a/b/c");
    tree_.MakeDirectory("a/d");
    tree_.MakeDirectory(".hidden");
    tree_.Write("file", "");
    tree_.Write("a/file", "");
    EXPECT_THAT(Listed(), UnorderedElementsAre("list .", "list ./a", "list ./a/b", "list ./a/b/c",
                                               "list ./a/d", "list ./.hidden"));
}

TEST_F(Walking, EmptyRootIsListed) {
    EXPECT_THAT(Listed(), ElementsAre("list ."));
}

TEST_F(Walking, LinksAndSpecialFilesAreNotEntered) {
    tree_.MakeDirectory("a");
    tree_.Link("a", "link");
    tree_.Link("/", "root");
    tree_.Link("nowhere", "broken");
    ASSERT_EQ(mkfifo(tree_.Path("fifo").c_str(), 0600), 0);
    EXPECT_THAT(Listed(), ElementsAre("list .", "list ./a"));
}

// The link replaces the directory between fstatat() and openat().
TEST_F(Walking, LinkThatReplacedADirectoryIsNotFollowed) {
    tree_.MakeDirectory("a");
    tree_.MakeDirectory("b");
    seams_.onStatus = [this](const std::string& path) {
        if (path == "./a") {
            std::filesystem::remove(tree_.Path("a"));
            tree_.Link("/", "a");
        }
    };
    EXPECT_THAT(Listed(), ElementsAre("list .", "list ./b"));
    EXPECT_THAT(log_.TakeWithoutLineNumbers(), ElementsAre(ListingFailure("/a", ENOTDIR)));
}

TEST_F(Walking, NamesOfAnyBytesAreListed) {
    const std::string names[] = {"with blank", "line\nbreak", "100%n%s", "\xFF\xFE", "-", "\\"};
    std::set<std::string> expected = {"list ."};
    for (const std::string& name : names) {
        tree_.MakeDirectory(name + "/below");
        expected.insert({"list ./" + name, "list ./" + name + "/below"});
    }
    EXPECT_THAT(Listed(), UnorderedElementsAreArray(expected));
}

TEST_F(Walking, SlashAtTheEndOfThePathIsNotDoubled) {
    tree_.MakeDirectory("a/b");
    EXPECT_EQ(CacheFSDirectory(kChanger, tree_.Path("").c_str(), 1, nullptr), nullptr);
    EXPECT_THAT(Journal::Take(), ElementsAre("list ./", "list ./a", "list ./a/b"));
}

TEST_F(Walking, DirectoryThatCannotBeListedIsLoggedAndSkipped) {
    tree_.MakeDirectory("a");
    tree_.MakeDirectory("b/c");
    tree_.MakeDirectory("d");
    seams_.listingErrors["./b"] = EACCES;
    EXPECT_THAT(Listed(), UnorderedElementsAre("list .", "list ./a", "list ./b", "list ./d"));
    EXPECT_THAT(log_.TakeWithoutLineNumbers(), ElementsAre(ListingFailure("/b", EACCES)));
}

TEST_F(Walking, AbsentRootIsLoggedAndTheWalkSucceeds) {
    EXPECT_EQ(CacheFSDirectory(kChanger, "/no/such", 1, nullptr), nullptr);
    EXPECT_THAT(log_.TakeWithoutLineNumbers(),
                ElementsAre("ChangerFSCacheThread:123, CacheFSDirectory: fail scandir on "
                            "\"/no/such\" (err = 2)"));
}

TEST_F(Walking, EntryWhoseStatusCannotBeReadIsSkipped) {
    tree_.MakeDirectory("a");
    tree_.MakeDirectory("b");
    seams_.statusErrors["./a"] = EIO;
    EXPECT_THAT(Listed(), ElementsAre("list .", "list ./b"));
}

// ---- paths that do not fit, and cycles ----

TEST_F(Walking, PathThatIsTruncatedToItsParentIsNotListedAgain) {
    for (const std::size_t length : {1018U, 1019U, 1020U, 1021U, 1022U, 1023U, 1024U, 1100U}) {
        close(MakeChild(MakeChild(MakePathOf(length), "x"), "y"));
        const std::vector<std::string> listed = Listed();
        EXPECT_EQ(std::set<std::string>(listed.begin(), listed.end()).size(), listed.size())
            << "listed twice: " << length;
        const std::size_t longest = listed.back().size() - 6 + tree_.Root().size();
        EXPECT_EQ(longest, length <= 1019   ? length + 4
                           : length <= 1021 ? length + 2
                           : length <= 1023 ? length
                                            : longest);
        EXPECT_LE(longest, 1023U);
        EXPECT_EQ(Count(), 0);
        Journal::Take();
        std::filesystem::remove_all(tree_.Path(std::string(100, 'd')));
    }
}

// A truncated name may be a sibling's name: the sibling is walked twice, and the walk still ends.
TEST_F(Walking, TruncatedNameOpensTheSiblingOfThatName) {
    const int directory = MakePathOf(1021);
    ASSERT_EQ(mkdirat(directory, "y", 0700), 0);
    ASSERT_EQ(mkdirat(directory, "yes", 0700), 0);
    close(directory);
    const std::vector<std::string> listed = Listed();
    ASSERT_GE(listed.size(), 2U);
    EXPECT_TRUE(listed.back().ends_with("/y"));
    EXPECT_EQ(listed.back(), listed[listed.size() - 2]);
}

TEST_F(Walking, ParentMountedBelowItselfIsNotEntered) {
    tree_.MakeDirectory("a/b/c");
    seams_.sameAs["./a/b"] = ".";
    EXPECT_THAT(Listed(), ElementsAre("list .", "list ./a"));
    EXPECT_EQ(Count(), 0);
    EXPECT_THAT(Journal::Take(), ElementsAre("list .", "list ./a"));
}

// Roots of different file systems often have equal inode numbers.
TEST_F(Walking, VolumeWithItsParentsInodeNumberIsEntered) {
    tree_.MakeDirectory("a/b");
    seams_.sameInodeAs["./a"] = ".";
    EXPECT_THAT(Listed(), ElementsAre("list .", "list ./a", "list ./a/b"));
}

TEST_F(Walking, EveryLevelWhosePathFitsIsListedAndCounted) {
    int directory = open(tree_.Root().c_str(), O_RDONLY | O_DIRECTORY);
    const std::size_t levels = (1023 - tree_.Root().size()) / 2;
    for (std::size_t level = 0; level < levels + 20; ++level)
        directory = MakeChild(directory, "d");
    close(directory);
    FSCacheStatusReport report = {};
    EXPECT_THAT(Walk(1, &report), IsEmpty());
    EXPECT_THAT(Journal::Take(), SizeIs(levels + 1));
    EXPECT_EQ(Count(), 0);
    EXPECT_THAT(Journal::Take(), SizeIs(levels + 1));

    AtListing(levels + 1, [] { SetAbort(1); });
    EXPECT_THAT(Walk(), SizeIs(levels));
}

// ---- aborts ----

// Each level adds a link to the error of a deeper level. Levels below the abort are still walked:
// the flag is first read after the deepest level.
TEST_F(Walking, AbortIsReportedOnTheWayBackByEachLevelAboveTheDeepest) {
    for (const char* deepest : {"a", "a/b", "a/b/c", "a/b/c/d"}) {
        tree_.MakeDirectory(deepest);
        const std::string path = std::string("./") + deepest;
        const auto levels = std::count(path.begin(), path.end(), '/');
        Chain expected = {Raised("user aborted", kVErrCodeUserAborted)};
        while (std::ssize(expected) < levels)
            expected.push_back(Raised("fail CacheFSDirectory", kVErrCodeUserAborted));
        for (std::size_t end = 3; end <= path.size(); end += 2) {
            SetAbort(0);
            AtListingOf(path.substr(0, end), [] { SetAbort(1); });
            EXPECT_EQ(Walk(), expected) << "aborted at " << path.substr(0, end);
            EXPECT_THAT(Journal::Take(), SizeIs(levels + 1));
        }
    }
    EXPECT_EQ(kVErrCodeUserAborted, 0x4000000000000002);
}

TEST_F(Walking, AbortTakesEffectAfterTheFirstSubdirectory) {
    SetAbort(1);
    EXPECT_THAT(Listed(), ElementsAre("list ."));
    tree_.MakeDirectory("a");
    tree_.MakeDirectory("b");
    tree_.MakeDirectory("c");
    EXPECT_EQ(Walk(), (Chain{Raised("user aborted", kVErrCodeUserAborted)}));
    EXPECT_THAT(Journal::Take(), SizeIs(2));
    EXPECT_THAT(Walk(0), IsEmpty());
}

TEST_F(Walking, AbortFlagThatCannotBeReadEndsTheWalk) {
    tree_.MakeDirectory("a");
    tree_.MakeDirectory("b");
    EXPECT_EQ(RemoveChangerFromList(kChanger), nullptr);
    const Chain chain = Walk();
    ASSERT_EQ(chain.size(), 3U);
    EXPECT_EQ(chain[1].message, "fail GetChangerDictForGUID");
    EXPECT_EQ(chain[2], Raised("fail GetChangerShouldAbortOperation", kVErrCodeNotFound));
    EXPECT_FALSE(StateLock::IsHeld());
    EXPECT_THAT(Journal::Take(), SizeIs(2));
}

TEST_F(Walking, FailedLockEndsTheWalk) {
    tree_.MakeDirectory("a/b");
    StateLock::FailLock(EINVAL);
    EXPECT_EQ(Walk(), (Chain{{"fail pthread_mutex_lock", "LockMediaIdState",
                              "trayprobed/MediaIdState", EINVAL},
                             Raised("fail LockMediaIdState", EINVAL),
                             Raised("fail CacheFSDirectory", EINVAL)}));
}

// ---- with a report ----

TEST_F(Walking, WithoutAReportNoInfoFileIsOpened) {
    MakeMediaRoot("disc");
    const Openings openings({tree_.Path(""), tree_.Path("disc")});
    EXPECT_THAT(Listed(), ElementsAre("list .", "list ./disc"));
    const Openings::Result opened = openings.Take();
    EXPECT_THAT(opened.files, IsEmpty());
    EXPECT_EQ(opened.listings, 2);
}

TEST_F(Walking, MediaRootIsReportedWhenTheWalkLeavesIt) {
    MakeMediaRoot("disc");
    tree_.MakeDirectory("disc/a");
    FSCacheStatusReport report = {kChanger, "message", 0, 1, 0};
    EXPECT_THAT(Walk(1, &report), IsEmpty());
    EXPECT_THAT(Journal::Take(), ElementsAre("list .", "list ./disc", "list ./disc/a",
                                             "show 9EDCBA9876543210 trayprobed \"message\" 1/1"));
    EXPECT_EQ(report.mediaDepth, 0);
}

TEST_F(Walking, FailedMediaTestEndsTheWalkAndTheCount) {
    tree_.MakeDirectory("a/b");
    seams_.failingMediaTest = "./a/b";
    FSCacheStatusReport report = {};
    Chain chain = Walk(1, &report);
    ASSERT_THAT(chain, SizeIs(3));
    EXPECT_EQ(chain[1], Raised("fail IsDirectoryMediaRootOfChangerFileSystem"));
    EXPECT_EQ(chain[2], Raised("fail CacheFSDirectory"));
    EXPECT_EQ(report.mediaDepth, 0);

    UInt16 count = 5;
    chain = TakeChain(CountMediaRootDirectories(tree_.Root().c_str(), &count));
    ASSERT_THAT(chain, SizeIs(3));
    EXPECT_EQ(chain[1], (RaisedLink{"fail IsDirectoryMediaRootOfChangerFileSystem",
                                    "CountMediaRootDirectories", kWalkSource}));
    EXPECT_EQ(chain[2], (RaisedLink{"fail CountMediaRootDirectories", "CountMediaRootDirectories",
                                    kWalkSource}));
    EXPECT_EQ(count, 5);
}

TEST_F(Walking, WalkedDirectoryItselfIsNoMediaRoot) {
    MakeMediaRoot("");
    FSCacheStatusReport report = {};
    EXPECT_THAT(Walk(1, &report), IsEmpty());
    EXPECT_EQ(report.currentStep, 0);
    EXPECT_EQ(Count(), 0);
}

TEST_F(Walking, MediaRootInsideAnotherIsNotReported) {
    MakeMediaRoot("disc");
    MakeMediaRoot("disc/a/inner");
    FSCacheStatusReport report = {kChanger, "message", 0, 1, 0};
    EXPECT_THAT(Walk(1, &report), IsEmpty());
    EXPECT_EQ(report.currentStep, 1);
    const std::vector<std::string> journal = Journal::Take();
    EXPECT_THAT(journal, SizeIs(5));
    EXPECT_EQ(journal.back(), "show 9EDCBA9876543210 trayprobed \"message\" 1/1");
}

TEST_F(Walking, FailedReportEndsTheWalk) {
    MakeMediaRoot("deep/one");
    MakeMediaRoot("deep/two");
    FakeCommands::Fail("show");
    FSCacheStatusReport report = {kChanger, "message", 0, 2, 0};
    const Chain chain = Walk(1, &report);
    ASSERT_EQ(chain.size(), 5U);
    EXPECT_EQ(chain[1].message, "fail ChangerServerSetClientStatus");
    EXPECT_EQ(chain[2], (RaisedLink{"fail ReportFSCacheClientStatus", "StatusReportingExitMedia",
                                    kWalkSource, kVErrCodeConnectionLost}));
    EXPECT_EQ(chain[3], Raised("fail StatusReportingExitMedia", kVErrCodeConnectionLost));
    EXPECT_EQ(chain[4], Raised("fail CacheFSDirectory", kVErrCodeConnectionLost));
    EXPECT_THAT(Journal::Take(), SizeIs(4)); // three listings, one report
}

TEST_F(Walking, MediaRootThatIsAbortedIsNoStep) {
    MakeMediaRoot("disc");
    SetAbort(1);
    FSCacheStatusReport report = {};
    EXPECT_THAT(Walk(1, &report), SizeIs(1));
    EXPECT_EQ(report.currentStep, 0);
}

TEST_F(Walking, SpecialFilesWithInfoNamesDoNotBlockTheWalk) {
    tree_.MakeDirectory("fifo/a");
    ASSERT_EQ(mkfifo(tree_.Path("fifo/.media_info.plist").c_str(), 0600), 0);
    tree_.MakeDirectory("device/a");
    tree_.Link("/dev/zero", "device/.media_info.plist");
    tree_.MakeDirectory("directory/.media_info.plist");
    FSCacheStatusReport report = {};
    EXPECT_THAT(Walk(1, &report), IsEmpty());
    EXPECT_THAT(Journal::Take(),
                UnorderedElementsAre("list .", "list ./fifo", "list ./fifo/a", "list ./device",
                                     "list ./device/a", "list ./directory",
                                     "list ./directory/.media_info.plist"));
    EXPECT_EQ(Count(), 0);
    EXPECT_EQ(report.currentStep, 0);
}

TEST_F(Walking, NoFilesButInfoFilesAreOpened) {
    MakeMediaRoot("disc");
    tree_.MakeDirectory("disc/a");
    tree_.Write("disc/file", "content");
    tree_.Write("disc/a/file", "content");
    const Openings openings({tree_.Path(""), tree_.Path("disc"), tree_.Path("disc/a")});
    FSCacheStatusReport report = {};
    EXPECT_THAT(Walk(1, &report), IsEmpty());
    const Openings::Result opened = openings.Take();
    EXPECT_THAT(opened.files, ElementsAre(".media_info.plist"));
    EXPECT_EQ(opened.listings, 3);
}

// ---- the count ----

TEST_F(Walking, CountsTheOutermostMediaRoots) {
    EXPECT_EQ(Count(), 0);
    MakeMediaRoot("one");
    MakeMediaRoot("folder/two");
    MakeMediaRoot("one/inner");
    tree_.Link("one", "link");
    EXPECT_EQ(Count(), 2);
    EXPECT_EQ(Count(10), 12);
    Journal::Take();
    EXPECT_EQ(Count(), 2);
    EXPECT_THAT(Journal::Take(), ElementsAre("list .", "list ./folder"));
}

TEST_F(Walking, CountWrapsAt65536) {
    MakeMediaRoot("one");
    MakeMediaRoot("two");
    EXPECT_EQ(Count(65535), 1);
}

TEST_F(Walking, DirectoryThatCannotBeListedAddsNothingToTheCount) {
    MakeMediaRoot("folder/one");
    MakeMediaRoot("two");
    tree_.MakeDirectory("three");
    seams_.listingErrors["./folder"] = EACCES;
    seams_.statusErrors["./three"] = EIO;
    EXPECT_EQ(Count(), 1);
    EXPECT_THAT(log_.TakeWithoutLineNumbers(),
                ElementsAre(ListingFailure("/folder", EACCES, "CountMediaRootDirectories")));
}

} // namespace
