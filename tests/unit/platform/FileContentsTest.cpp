/* Reading files from file systems that do not answer, simulated by a wrapped read(). */

#include "files/FileContents.h"

#include "Urls.h"
#include "support/CFOwned.h"
#include "support/TemporaryTree.h"

#include <CoreFoundation/CoreFoundation.h>

#include <gtest/gtest.h>

#include <fcntl.h>
#include <pthread.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <csignal>
#include <cstddef>
#include <mutex>
#include <new>
#include <string>
#include <thread>

namespace {

using namespace std::chrono_literals;
using cf::FileContents;

// The file that does not answer, and the number of its readers.
struct DeadFile {
    std::mutex mutex;
    std::condition_variable changed;
    ino_t inode = 0; // 0: all files answer
    int waiting = 0;

    void Set(ino_t newInode) {
        const std::lock_guard lock(mutex);
        inode = newInode;
        changed.notify_all();
    }
    int CountReaders() {
        const std::lock_guard lock(mutex);
        return waiting;
    }
    void AwaitReaders(int count) {
        std::unique_lock lock(mutex);
        changed.wait(lock, [&] { return waiting == count; });
    }
    // Blocks the reader of this file.
    void Read(ino_t file) {
        std::unique_lock lock(mutex);
        if (inode == 0 || file != inode)
            return;
        ++waiting;
        changed.notify_all();
        changed.wait(lock, [this] { return inode == 0; });
        --waiting;
        changed.notify_all();
    }
} g_dead;

std::atomic<int> g_openingError = 0;               // of the next open(); 0: none
std::atomic<const char*> g_opensInstead = nullptr; // by the next open()
std::atomic<bool> g_isMemoryOut = false;           // at the next read()
std::atomic<bool> g_takesSignals = true;           // of the thread of the last read()
std::atomic<int> g_pauses = 0;

std::atomic<bool> g_answersWhenAwaited = false;    // the dead file, at the next wait for a reader
std::chrono::steady_clock::time_point g_endOfWait; // the time-out of that wait

class FileContentsTest : public testing::Test {
protected:
    FileContentsTest() : path_(tree_.Path("file")) {
        tree_.Write("file", "content");
    }

    void LetDie() {
        struct stat status = {};
        ASSERT_EQ(stat(path_.c_str(), &status), 0);
        g_dead.Set(status.st_ino);
    }
    // Returns when the abandoned readers have ended.
    static void Revive() {
        g_dead.Set(0);
        g_dead.AwaitReaders(0);
    }

    const TemporaryTree tree_; // one per test: tests run in parallel
    const std::string path_;
};

TEST_F(FileContentsTest, FileThatAnswersIsReadOnAThreadWithoutSignals) {
    const FileContents contents = cf::ReadFileWithin(1h, path_, 100);
    EXPECT_TRUE(contents.isOpened);
    EXPECT_TRUE(contents.isRead);
    EXPECT_EQ(std::string(contents.bytes.begin(), contents.bytes.end()), "content");
    EXPECT_FALSE(g_takesSignals);
}

TEST_F(FileContentsTest, NoMoreThanTheMaximumIsRead) {
    EXPECT_EQ(cf::ReadFileWithin(1h, path_, 3).bytes.size(), 3U);
    EXPECT_EQ(cf::ReadFile(path_, 3).bytes.size(), 3U);
    tree_.Write("file", std::string(40'000, 'x')); // more than one read()
    for (const std::size_t maximum : {16'384U, 16'387U, 39'999U})
        EXPECT_EQ(cf::ReadFile(path_, maximum).bytes.size(), maximum);
}

TEST_F(FileContentsTest, DirectoryIsOpenedAndNotRead) {
    EXPECT_FALSE(cf::ReadFileWithin(1h, path_ + "missing", 100).isOpened);
    const FileContents folder = cf::ReadFileWithin(1h, tree_.Root(), 100);
    EXPECT_TRUE(folder.isOpened);
    EXPECT_FALSE(folder.isRead);
}

TEST_F(FileContentsTest, MissingFileIsNotOpened) {
    g_openingError = EMFILE;
    EXPECT_FALSE(cf::ReadFile(path_ + "missing", 100).isShortage);
    EXPECT_EQ(g_openingError.exchange(0), EMFILE);
}

// These errors are the file's own: a second attempt, which would succeed here, must not follow.
TEST_F(FileContentsTest, FileThatCannotBeOpenedIsTriedOnce) {
    for (const int error : {EACCES, EIO, EPERM, ENXIO, ELOOP}) {
        g_openingError = error;
        const FileContents contents = cf::ReadFileWithin(1h, path_, 100);
        EXPECT_FALSE(contents.isOpened) << error;
        EXPECT_FALSE(contents.isShortage) << error;
        EXPECT_EQ(g_openingError, 0) << error;
    }
}

TEST_F(FileContentsTest, FileIsTriedAgainAfterAShortage) {
    for (const int error : {EMFILE, ENFILE, ENOMEM}) {
        g_openingError = error;
        g_pauses = 0;
        EXPECT_TRUE(cf::ReadFileWithin(1h, path_, 100).isOpened) << error;
        EXPECT_EQ(g_openingError, 0) << error;
        EXPECT_EQ(g_pauses, 1) << error;
    }
}

TEST_F(FileContentsTest, FileReplacedByOneOnAnotherDeviceIsNotRead) {
    g_opensInstead = "/proc/self/stat";
    EXPECT_FALSE(cf::ReadFile(path_, 100).isOpened);
    EXPECT_EQ(g_opensInstead, nullptr);
    EXPECT_TRUE(cf::ReadFile(path_, 100).isOpened);
}

TEST_F(FileContentsTest, ErrnoOfAnEarlierCallIsIgnored) {
    for (const int error : {EINTR, EMFILE, EIO}) {
        errno = error;
        const FileContents contents = cf::ReadFile(path_, 100);
        EXPECT_EQ(contents.bytes.size(), 7U) << error;
        EXPECT_FALSE(contents.isShortage) << error;
    }
}

TEST_F(FileContentsTest, WithoutMemoryReadingThrowsInTheCaller) {
    g_isMemoryOut = true;
    EXPECT_THROW(cf::ReadFileWithin(1h, path_, 100), std::bad_alloc);
    EXPECT_FALSE(g_isMemoryOut);
    EXPECT_TRUE(cf::ReadFileWithin(1h, path_, 100).isRead);
}

TEST_F(FileContentsTest, FileThatTimesOutIsNotOpened) {
    LetDie();
    EXPECT_FALSE(cf::ReadFileWithin(0ms, path_, 100).isOpened);
    g_dead.AwaitReaders(1);
    Revive();
    EXPECT_TRUE(cf::ReadFileWithin(1h, path_, 100).isOpened);
}

TEST_F(FileContentsTest, TimeOutOnTheMainThreadIsThirtySeconds) {
    LetDie();
    const CFOwned url(CreateUrl(path_));
    const CFOwned stream(CFReadStreamCreateWithFile(nullptr, url));
    g_answersWhenAwaited = true;
    const auto before = std::chrono::steady_clock::now();
    EXPECT_TRUE(CFReadStreamOpen(stream));
    const auto after = std::chrono::steady_clock::now();
    EXPECT_FALSE(g_answersWhenAwaited);
    EXPECT_GE(g_endOfWait, before + 30s);
    EXPECT_LE(g_endOfWait, after + 30s);
}

TEST_F(FileContentsTest, NoReadStartsWhileTheMaximumArePending) {
    LetDie();
    // A reader of an earlier test is pending until it has ended: one read may be refused for it.
    while (g_dead.CountReaders() < cf::kMaximumPendingReads)
        EXPECT_FALSE(cf::ReadFileWithin(0ms, path_, 100).isOpened);
    EXPECT_FALSE(cf::ReadFileWithin(1h, path_, 100).isOpened);
    g_dead.AwaitReaders(cf::kMaximumPendingReads);
    Revive();
    while (!cf::ReadFileWithin(1h, path_, 100).isOpened)
        std::this_thread::yield(); // until the abandoned threads have ended
}

} // namespace

extern "C" {
int __real_open(const char* path, int flags, ...);
ssize_t __real_read(int descriptor, void* buffer, size_t size);
int __real_pthread_cond_clockwait(pthread_cond_t* condition, pthread_mutex_t* mutex,
                                  clockid_t clock, const struct timespec* end);

int __wrap_nanosleep(const struct timespec* pause, struct timespec*) {
    EXPECT_EQ(pause->tv_sec, 0);
    EXPECT_GT(pause->tv_nsec, 0);
    ++g_pauses;
    return 0;
}

int __wrap_pthread_cond_clockwait(pthread_cond_t* condition, pthread_mutex_t* mutex,
                                  clockid_t clock, const struct timespec* end) {
    EXPECT_EQ(clock, CLOCK_MONOTONIC);
    if (g_answersWhenAwaited.exchange(false)) {
        g_endOfWait = std::chrono::steady_clock::time_point(std::chrono::seconds(end->tv_sec) +
                                                            std::chrono::nanoseconds(end->tv_nsec));
        g_dead.Set(0);
    }
    return __real_pthread_cond_clockwait(condition, mutex, clock, end);
}

// No file is created: there is no mode to pass on.
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
    EXPECT_GT(size, 0U);
    sigset_t blocked;
    pthread_sigmask(SIG_SETMASK, nullptr, &blocked);
    g_takesSignals = sigismember(&blocked, SIGTERM) == 0;
    if (g_isMemoryOut.exchange(false))
        throw std::bad_alloc();
    struct stat status = {};
    fstat(descriptor, &status);
    g_dead.Read(status.st_ino);
    return __real_read(descriptor, buffer, size);
}
}
