/* Reading files from file systems that do not answer: a wrapped read() stands for one. */

#include "lists/FileContents.h"
#include "support/TemporaryTree.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <mutex>
#include <new>
#include <string>
#include <thread>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using namespace std::chrono_literals;
using cf::FileContents;

// Which file does not answer, and the readers of it.
struct DeadFile {
    std::mutex mutex;
    std::condition_variable changed;
    ino_t inode = 0;
    int waiting = 0;
} g_dead;

std::atomic<int> g_openingError = 0;               // with which the next opening fails, for once
std::atomic<const char*> g_opensInstead = nullptr; // the file that took the next one's place
std::atomic<bool> g_isMemoryOut = false;           // at the next reading

class FileContentsTest : public testing::Test {
protected:
    FileContentsTest() : path_(tree_.Path("file")) {
        tree_.Write("file", "content");
    }

    void LetDie() {
        struct stat status = {};
        ASSERT_EQ(stat(path_.c_str(), &status), 0);
        const std::lock_guard lock(g_dead.mutex);
        g_dead.inode = status.st_ino;
    }
    static int CountReaders() {
        const std::lock_guard lock(g_dead.mutex);
        return g_dead.waiting;
    }
    static void AwaitReaders(int count) {
        std::unique_lock lock(g_dead.mutex);
        g_dead.changed.wait(lock, [&] { return g_dead.waiting == count; });
    }
    // The readers that were left alone come to their end.
    static void Revive() {
        std::unique_lock lock(g_dead.mutex);
        g_dead.inode = 0;
        g_dead.changed.notify_all();
        g_dead.changed.wait(lock, [] { return g_dead.waiting == 0; });
    }

    const TemporaryTree tree_; // of each test's own: they run beside each other
    const std::string path_;
};

TEST_F(FileContentsTest, AreReadInTime) {
    const FileContents contents = cf::ReadFileWithin(1h, path_, 100);
    EXPECT_TRUE(contents.isOpened);
    EXPECT_TRUE(contents.isRead);
    EXPECT_EQ(std::string(contents.bytes.begin(), contents.bytes.end()), "content");
}

TEST_F(FileContentsTest, AreNoMoreThanAskedFor) {
    EXPECT_EQ(cf::ReadFileWithin(1h, path_, 3).bytes.size(), 3U);
    EXPECT_EQ(cf::ReadFile(path_, 3).bytes.size(), 3U);
    tree_.Write("file", std::string(40'000, 'x')); // more than one call to read() asks for
    for (const std::size_t maximum : {16'384U, 16'387U, 39'999U})
        EXPECT_EQ(cf::ReadFile(path_, maximum).bytes.size(), maximum);
}

TEST_F(FileContentsTest, OfWhatIsMissingOrAFolderAreNotThere) {
    EXPECT_FALSE(cf::ReadFileWithin(1h, path_ + "missing", 100).isOpened);
    const FileContents folder = cf::ReadFileWithin(1h, tree_.Root(), 100);
    EXPECT_TRUE(folder.isOpened);
    EXPECT_FALSE(folder.isRead);
}

// A reason of the file's own, which asking again would not change: it could be opened by then.
TEST_F(FileContentsTest, OfAFileThatCannotBeOpenedAreAskedForOnce) {
    for (const int error : {EACCES, EIO, EPERM, ENXIO, ELOOP}) {
        g_openingError = error;
        const FileContents contents = cf::ReadFileWithin(1h, path_, 100);
        EXPECT_FALSE(contents.isOpened) << error;
        EXPECT_FALSE(contents.isShortage) << error;
        EXPECT_EQ(g_openingError, 0) << error;
    }
}

TEST_F(FileContentsTest, ThatCannotBeOpenedForAShortageAreAskedForAgain) {
    for (const int error : {EMFILE, ENFILE, ENOMEM}) {
        g_openingError = error;
        EXPECT_TRUE(cf::ReadFileWithin(1h, path_, 100).isOpened) << error;
        EXPECT_EQ(g_openingError, 0) << error;
    }
}

TEST_F(FileContentsTest, OfAFileOnAnotherDeviceThatTookItsPlaceAreNotRead) {
    g_opensInstead = "/proc/self/stat";
    EXPECT_FALSE(cf::ReadFile(path_, 100).isOpened);
    EXPECT_EQ(g_opensInstead, nullptr);
    EXPECT_TRUE(cf::ReadFile(path_, 100).isOpened);
}

// Wherever the file is read, who asked for it learns.
TEST_F(FileContentsTest, WithoutMemoryThereAreNone) {
    g_isMemoryOut = true;
    EXPECT_THROW(cf::ReadFileWithin(1h, path_, 100), std::bad_alloc);
    EXPECT_FALSE(g_isMemoryOut);
    EXPECT_TRUE(cf::ReadFileWithin(1h, path_, 100).isRead);
}

TEST_F(FileContentsTest, ThatDoNotComeCountAsNotOpened) {
    LetDie();
    EXPECT_FALSE(cf::ReadFileWithin(0ms, path_, 100).isOpened);
    AwaitReaders(1);
    Revive();
    EXPECT_TRUE(cf::ReadFileWithin(1h, path_, 100).isOpened);
}

TEST_F(FileContentsTest, AreNotAskedForWhereTooManyDidNotCome) {
    LetDie();
    // A reader of an earlier test may count until it has ended, and one is refused for it.
    while (CountReaders() < cf::kMostUnansweredFiles)
        EXPECT_FALSE(cf::ReadFileWithin(0ms, path_, 100).isOpened);
    EXPECT_FALSE(cf::ReadFileWithin(1h, path_, 100).isOpened);
    AwaitReaders(cf::kMostUnansweredFiles);
    Revive();
    while (!cf::ReadFileWithin(1h, path_, 100).isOpened)
        std::this_thread::yield(); // until the threads that were left alone have ended
}

} // namespace

extern "C" {
int __real_open(const char* path, int flags, ...);
int __wrap_open(const char* path, int flags, ...);
ssize_t __real_read(int descriptor, void* buffer, size_t size);
ssize_t __wrap_read(int descriptor, void* buffer, size_t size);

// Nothing here creates a file, so there is no mode to pass on.
int __wrap_open(const char* path, int flags, ...) {
    EXPECT_EQ(flags, O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC) << path;
    const int error = g_openingError.exchange(0);
    const char* const instead = g_opensInstead.exchange(nullptr);
    if (error == 0)
        return __real_open(instead != nullptr ? instead : path, flags);
    errno = error;
    return -1;
}

ssize_t __wrap_read(int descriptor, void* buffer, size_t size) {
    if (g_isMemoryOut.exchange(false))
        throw std::bad_alloc();
    struct stat status = {};
    fstat(descriptor, &status);
    std::unique_lock lock(g_dead.mutex);
    if (g_dead.inode != 0 && status.st_ino == g_dead.inode) {
        ++g_dead.waiting;
        g_dead.changed.notify_all();
        g_dead.changed.wait(lock, [] { return g_dead.inode == 0; });
        --g_dead.waiting;
        g_dead.changed.notify_all();
    }
    lock.unlock();
    return __real_read(descriptor, buffer, size);
}
}
