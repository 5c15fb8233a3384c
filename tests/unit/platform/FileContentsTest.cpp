/* Reading files from file systems that do not answer: a wrapped read() stands for one. */

#include "files/FileContents.h"

#include "Urls.h"
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
std::atomic<bool> g_takesSignals = true;           // the thread that read last
std::atomic<int> g_pauses = 0;

// At the next wait for a reader the file answers; here stands until when the wait was to be.
std::atomic<bool> g_answersWhenAwaited = false;
std::chrono::steady_clock::time_point g_endOfWait;

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
    EXPECT_FALSE(g_takesSignals);
}

TEST_F(FileContentsTest, AreNoMoreThanAskedFor) {
    EXPECT_EQ(cf::ReadFileWithin(1h, path_, 3).bytes.size(), 3U);
    EXPECT_EQ(cf::ReadFile(path_, 3).bytes.size(), 3U);
    tree_.Write("file", std::string(40'000, 'x')); // more than one call to read() asks for
    for (const std::size_t maximum : {16'384U, 16'387U, 39'999U})
        EXPECT_EQ(cf::ReadFile(path_, maximum).bytes.size(), maximum);
}

TEST_F(FileContentsTest, MissingFileIsNotOpenedAndDirectoryIsOpenedButNotRead) {
    EXPECT_FALSE(cf::ReadFileWithin(1h, path_ + "missing", 100).isOpened);
    const FileContents folder = cf::ReadFileWithin(1h, tree_.Root(), 100);
    EXPECT_TRUE(folder.isOpened);
    EXPECT_FALSE(folder.isRead);
}

TEST_F(FileContentsTest, OfWhatIsMissingAreNotAskedFor) {
    g_openingError = EMFILE;
    EXPECT_FALSE(cf::ReadFile(path_ + "missing", 100).isShortage);
    EXPECT_EQ(g_openingError.exchange(0), EMFILE);
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
        g_pauses = 0;
        EXPECT_TRUE(cf::ReadFileWithin(1h, path_, 100).isOpened) << error;
        EXPECT_EQ(g_openingError, 0) << error;
        EXPECT_EQ(g_pauses, 1) << error;
    }
}

TEST_F(FileContentsTest, OfAFileOnAnotherDeviceThatTookItsPlaceAreNotRead) {
    g_opensInstead = "/proc/self/stat";
    EXPECT_FALSE(cf::ReadFile(path_, 100).isOpened);
    EXPECT_EQ(g_opensInstead, nullptr);
    EXPECT_TRUE(cf::ReadFile(path_, 100).isOpened);
}

TEST_F(FileContentsTest, AreReadThroughDescriptorZeroWhichIsClosedAgain) {
    const int standardInput = dup(STDIN_FILENO);
    ASSERT_GE(standardInput, 0);
    close(STDIN_FILENO);
    errno = EMFILE; // of an earlier failure
    const FileContents contents = cf::ReadFile(path_, 100);
    const bool isOpen = fcntl(STDIN_FILENO, F_GETFD) >= 0;
    dup2(standardInput, STDIN_FILENO);
    close(standardInput);
    EXPECT_TRUE(contents.isOpened);
    EXPECT_TRUE(contents.isRead);
    EXPECT_FALSE(contents.isShortage);
    EXPECT_FALSE(isOpen);
}

TEST_F(FileContentsTest, AreReadWhateverErrorAnEarlierCallLeft) {
    for (const int error : {EINTR, EMFILE, EIO}) {
        errno = error;
        const FileContents contents = cf::ReadFile(path_, 100);
        EXPECT_EQ(contents.bytes.size(), 7U) << error;
        EXPECT_FALSE(contents.isShortage) << error;
    }
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

TEST_F(FileContentsTest, AreWaitedForHalfAMinuteOnTheMainThread) {
    LetDie();
    CFURLRef url = CreateUrl(path_);
    CFReadStreamRef stream = CFReadStreamCreateWithFile(nullptr, url);
    g_answersWhenAwaited = true;
    const auto before = std::chrono::steady_clock::now();
    EXPECT_TRUE(CFReadStreamOpen(stream));
    const auto after = std::chrono::steady_clock::now();
    EXPECT_FALSE(g_answersWhenAwaited);
    EXPECT_GE(g_endOfWait, before + 30s);
    EXPECT_LE(g_endOfWait, after + 30s);
    CFRelease(stream);
    CFRelease(url);
}

TEST_F(FileContentsTest, AreNotAskedForWhereTooManyDidNotCome) {
    LetDie();
    // A reader of an earlier test may count until it has ended, and one is refused for it.
    while (CountReaders() < cf::kMaximumPendingReads)
        EXPECT_FALSE(cf::ReadFileWithin(0ms, path_, 100).isOpened);
    EXPECT_FALSE(cf::ReadFileWithin(1h, path_, 100).isOpened);
    AwaitReaders(cf::kMaximumPendingReads);
    Revive();
    while (!cf::ReadFileWithin(1h, path_, 100).isOpened)
        std::this_thread::yield(); // until the threads that were left alone have ended
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
        const std::lock_guard lock(g_dead.mutex);
        g_dead.inode = 0;
        g_dead.changed.notify_all();
    }
    return __real_pthread_cond_clockwait(condition, mutex, clock, end);
}

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
    EXPECT_GT(size, 0U);
    sigset_t blocked;
    pthread_sigmask(SIG_SETMASK, nullptr, &blocked);
    g_takesSignals = sigismember(&blocked, SIGTERM) == 0;
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
