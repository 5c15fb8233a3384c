#include "files/FileContents.h"

#include "threads/AllSignalsBlocked.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <new>
#include <system_error>
#include <thread>
#include <utility>

namespace cf {

namespace {

using std::chrono::steady_clock;

constexpr std::size_t kChunk = 16384;
constexpr std::chrono::milliseconds kRetryInterval(20); // between attempts during a shortage

// Repeats a system call as long as signals interrupt it.
template<typename Call>
auto Retry(Call call) {
    auto result = call();
    while (result < 0 && errno == EINTR)
        result = call();
    return result;
}

bool IsFileOrDirectory(const struct stat& status) {
    return S_ISREG(status.st_mode) || S_ISDIR(status.st_mode);
}

// Finds the file and returns true if it may be opened. A link to another file system could lead to
// a file of the kernel that has an effect when it is read.
bool Find(const char* path, struct stat& found) {
    if (lstat(path, &found) != 0)
        return false;
    const dev_t device = found.st_dev;
    if (S_ISLNK(found.st_mode) && (stat(path, &found) != 0 || found.st_dev != device))
        return false;
    return IsFileOrDirectory(found);
}

bool IsShortOf(int error) {
    return error == EMFILE || error == ENFILE || error == ENOMEM;
}

class Descriptor {
public:
    explicit Descriptor(int descriptor) noexcept : descriptor_(descriptor) {}
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    ~Descriptor() {
        if (descriptor_ >= 0)
            close(descriptor_);
    }
    int Get() const noexcept {
        return descriptor_;
    }

private:
    const int descriptor_;
};

bool ReadToEnd(int descriptor, std::size_t maximum, std::vector<std::uint8_t>& bytes) {
    std::size_t filled = 0;
    ssize_t count = 1;
    while (count > 0 && filled < maximum) {
        bytes.resize(filled + std::min(kChunk, maximum - filled));
        count =
            Retry([&] { return read(descriptor, bytes.data() + filled, bytes.size() - filled); });
        filled += static_cast<std::size_t>(std::max(count, ssize_t{0}));
    }
    bytes.resize(filled);
    return count >= 0;
}

std::atomic<int> g_readings = 0;

// A read in progress, shared by the thread that reads and the thread that waits.
struct Reading {
    Reading(const std::string& file, std::size_t most) : path(file), maximum(most) {
        ++g_readings;
    }
    Reading(const Reading&) = delete;
    Reading& operator=(const Reading&) = delete;
    ~Reading() {
        --g_readings;
    }

    const std::string path;
    const std::size_t maximum;

    std::mutex mutex; // guards the members below
    std::condition_variable doneCondition;
    bool isDone = false;
    bool failed = false; // memory was short
    FileContents contents;
};

void Read(Reading& reading) noexcept {
    FileContents contents;
    bool failed = false;
    try {
        contents = ReadFile(reading.path, reading.maximum);
    } catch (const std::bad_alloc&) {
        failed = true;
    }
    const std::lock_guard lock(reading.mutex);
    reading.contents = std::move(contents);
    reading.failed = failed;
    reading.isDone = true;
    reading.doneCondition.notify_one();
}

bool StartReading(const std::shared_ptr<Reading>& reading) {
    try {
        const process::AllSignalsBlocked blocked;
        std::thread([reading] { Read(*reading); }).detach();
    } catch (const std::system_error&) {
        return false;
    }
    return true;
}

// One attempt to read the file until `end`.
FileContents TryToRead(steady_clock::time_point end, const std::string& path, std::size_t maximum) {
    FileContents none;
    if (g_readings >= kMaximumPendingReads)
        return none;
    const auto reading = std::make_shared<Reading>(path, maximum);
    if (!StartReading(reading)) {
        none.isShortage = true;
        return none;
    }
    std::unique_lock lock(reading->mutex);
    reading->doneCondition.wait_until(lock, end, [&] { return reading->isDone; });
    if (reading->failed)
        throw std::bad_alloc();
    return std::move(reading->contents);
}

} // namespace

// Examines the path before open(), because opening some devices has an effect, and again
// afterwards, because the path may have changed in between.
FileContents ReadFile(const std::string& path, std::size_t maximum) {
    FileContents contents;
    struct stat found{};
    if (!Find(path.c_str(), found))
        return contents;
    const Descriptor file(
        Retry([&] { return open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC); }));
    contents.isShortage = file.Get() < 0 && IsShortOf(errno);
    struct stat opened{};
    contents.isOpened = file.Get() >= 0 && fstat(file.Get(), &opened) == 0 &&
                        opened.st_dev == found.st_dev && IsFileOrDirectory(opened);
    contents.isRead = contents.isOpened && ReadToEnd(file.Get(), maximum, contents.bytes);
    return contents;
}

FileContents ReadFileWithin(std::chrono::milliseconds timeOut, const std::string& path,
                            std::size_t maximum) {
    const auto end = steady_clock::now() + timeOut;
    FileContents contents = TryToRead(end, path, maximum);
    while (contents.isShortage && steady_clock::now() < end) {
        std::this_thread::sleep_for(kRetryInterval);
        contents = TryToRead(end, path, maximum);
    }
    return contents;
}

} // namespace cf
