/* The list of names in a directory, and its budget of memory. */

#include "trayprobed/DirectoryNames.h"

#include "support/Matchers.h"
#include "support/TemporaryTree.h"

#include <dirent.h>

#include <cerrno>
#include <climits>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace {

constexpr std::size_t kChunk = 4096; // the unit in which names use the budget
constexpr std::size_t kLongestName = kChunk - 2 * sizeof(void*) - 1;
constexpr std::size_t kNamesPerChunk = (kChunk - 2 * sizeof(void*)) / (NAME_MAX + 1);

int g_readsUntilError = INT_MAX;

// readdir() returns `g_longName` so many times before the real entries. No file system of the
// kernel has such long names.
std::size_t g_longNames = 0;
std::string g_longName;

int PassAll(const struct dirent*) {
    return 1;
}

int PassX(const struct dirent* entry) {
    return entry->d_name[0] == 'x';
}

class DirectoryNamesTest : public testing::Test {
protected:
    DirectoryNamesTest() {
        g_readsUntilError = INT_MAX;
        g_longNames = 0;
    }

    void MakeLongNames(std::size_t count) const {
        for (std::size_t i = 0; i < count; ++i) {
            std::string name = std::to_string(i);
            name.insert(0, NAME_MAX - name.size(), 'x');
            tree_.MakeDirectory(name);
        }
    }
    int List(std::size_t* budget, DirectoryFilter filter = PassX) {
        DIR* directory = opendir(tree_.Root().c_str());
        const int error = ListDirectoryNames(directory, filter, budget, &names_);
        closedir(directory);
        return error;
    }
    // Lists after `count` names of that length have been added to the directory.
    int ListLongNames(std::size_t count, std::size_t length, std::size_t* budget) {
        g_longNames = count;
        g_longName = std::string(length, 'x');
        return List(budget);
    }
    std::vector<std::string> TakeAll() {
        std::vector<std::string> all;
        while (const char* name = NextDirectoryName(&names_))
            all.emplace_back(name);
        return all;
    }
    std::vector<std::string> Scan(DirectoryFilter filter) const {
        std::vector<std::string> all;
        struct dirent** entries = nullptr;
        const int count = scandir(tree_.Root().c_str(), &entries, filter, nullptr);
        for (int i = 0; i < count; ++i) {
            all.emplace_back(entries[i]->d_name);
            free(entries[i]);
        }
        free(entries);
        return all;
    }

    TemporaryTree tree_;
    DirectoryNames names_ = {};
};

TEST_F(DirectoryNamesTest, NamesAndOrderAreThoseOfScandir) {
    for (std::size_t length = 1; length <= NAME_MAX; ++length) {
        tree_.MakeDirectory(std::string(length, 'x'));
        tree_.MakeDirectory(std::string(length, 'y'));
    }
    for (const DirectoryFilter filter : {PassAll, PassX}) {
        std::size_t budget = kNameBudget;
        EXPECT_EQ(List(&budget, filter), 0);
        EXPECT_EQ(TakeAll(), Scan(filter));
        EXPECT_EQ(budget, kNameBudget);
    }
}

TEST_F(DirectoryNamesTest, EmptyListHasNoNames) {
    EXPECT_EQ(NextDirectoryName(&names_), nullptr);
    FreeDirectoryNames(&names_);
    std::size_t budget = 0;
    EXPECT_EQ(List(&budget), 0);
    EXPECT_EQ(NextDirectoryName(&names_), nullptr);
}

TEST_F(DirectoryNamesTest, ChunkIsFreedAfterItsLastName) {
    MakeLongNames(3 * kNamesPerChunk);
    std::size_t budget = 10 * kChunk;
    ASSERT_EQ(List(&budget), 0);
    for (std::size_t i = 0; i < 3 * kNamesPerChunk; ++i) {
        EXPECT_NE(NextDirectoryName(&names_), nullptr);
        EXPECT_EQ(budget, (7 + i / kNamesPerChunk) * kChunk) << i;
    }
    FreeDirectoryNames(&names_);
    EXPECT_EQ(budget, 10 * kChunk);
    EXPECT_EQ(NextDirectoryName(&names_), nullptr);
}

TEST_F(DirectoryNamesTest, NamesBeyondTheBudgetFailAndLeaveNone) {
    MakeLongNames(2 * kNamesPerChunk);
    std::size_t budget = 2 * kChunk;
    EXPECT_EQ(List(&budget), 0);
    EXPECT_EQ(budget, 0U);
    EXPECT_EQ(TakeAll().size(), 2 * kNamesPerChunk);

    MakeLongNames(2 * kNamesPerChunk + 1);
    EXPECT_EQ(List(&budget), ENOMEM);
    EXPECT_EQ(budget, 2 * kChunk);
    EXPECT_THAT(TakeAll(), IsEmpty());
}

TEST_F(DirectoryNamesTest, LongestNameFillsAWholeChunk) {
    std::size_t budget = 2 * kChunk;
    EXPECT_EQ(ListLongNames(1, kLongestName, &budget), 0);
    EXPECT_THAT(TakeAll(), ElementsAre(std::string(kLongestName, 'x')));

    EXPECT_EQ(ListLongNames(1, kLongestName + 1, &budget), ENOMEM);
    EXPECT_EQ(budget, 2 * kChunk);
    EXPECT_THAT(TakeAll(), IsEmpty());
}

TEST_F(DirectoryNamesTest, NamesThatFillOneChunkUseNoSecond) {
    std::size_t budget = kChunk;
    EXPECT_EQ(ListLongNames(2, (kLongestName - 1) / 2, &budget), 0);
    EXPECT_EQ(TakeAll().size(), 2U);
}

TEST_F(DirectoryNamesTest, BudgetOfAWalkIs256MiB) {
    constexpr std::size_t kMost = std::size_t{256} * 1024 * 1024 / kChunk;
    std::size_t budget = kNameBudget;
    EXPECT_EQ(ListLongNames(kMost, kLongestName, &budget), 0);
    FreeDirectoryNames(&names_);
    EXPECT_EQ(ListLongNames(kMost + 1, kLongestName, &budget), ENOMEM);
}

TEST_F(DirectoryNamesTest, ListingThatFailsHalfwayLeavesNoNames) {
    MakeLongNames(2 * kNamesPerChunk);
    for (int reads = 1; reads < 20; ++reads) {
        g_readsUntilError = reads;
        std::size_t budget = 2 * kChunk;
        EXPECT_EQ(List(&budget), EIO);
        EXPECT_EQ(budget, 2 * kChunk);
        EXPECT_THAT(TakeAll(), IsEmpty());
    }
}

} // namespace

extern "C" {
struct dirent* __real_readdir(DIR* directory);

static struct dirent* LongEntry() {
    alignas(struct dirent) static char entry[2 * kChunk];
    const std::size_t nameAt = offsetof(struct dirent, d_name);
    memcpy(entry + nameAt, g_longName.c_str(), g_longName.size() + 1);
    --g_longNames;
    return reinterpret_cast<struct dirent*>(entry);
}

struct dirent* __wrap_readdir(DIR* directory) {
    if (g_longNames > 0)
        return LongEntry();
    if (--g_readsUntilError != 0)
        return __real_readdir(directory);
    errno = EIO;
    return nullptr;
}
}
