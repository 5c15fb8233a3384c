#include "lists/FileContents.h"

#include "processes/AllSignalsBlocked.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <new>
#include <system_error>
#include <thread>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace cf {

namespace {

constexpr std::size_t kChunk = 16384;

// Calls a function of the system again as long as signals interrupt it.
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

// Shared by the thread that reads and the one that waits for it.
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

    std::mutex mutex; // guards what follows
    std::condition_variable isThrough;
    bool through = false;
    bool failed = false; // for want of memory
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
    reading.through = true;
    reading.isThrough.notify_one();
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

} // namespace

// Looks before it opens, because opening alone makes some devices act, and again at what it got.
FileContents ReadFile(const std::string& path, std::size_t maximum) {
    FileContents contents;
    struct stat status {};
    if (stat(path.c_str(), &status) != 0 || !IsFileOrDirectory(status))
        return contents;
    const Descriptor file(
        Retry([&] { return open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC); }));
    contents.isOpened =
        file.Get() >= 0 && fstat(file.Get(), &status) == 0 && IsFileOrDirectory(status);
    contents.isRead = contents.isOpened && ReadToEnd(file.Get(), maximum, contents.bytes);
    return contents;
}

FileContents ReadFileWithin(std::chrono::milliseconds patience, const std::string& path,
                            std::size_t maximum) {
    if (g_readings >= kMostUnansweredFiles)
        return {};
    const auto reading = std::make_shared<Reading>(path, maximum);
    if (!StartReading(reading))
        return ReadFile(path, maximum); // rather wait than miss a file for want of a thread
    std::unique_lock lock(reading->mutex);
    reading->isThrough.wait_for(lock, patience, [&] { return reading->through; });
    if (reading->failed)
        throw std::bad_alloc();
    return std::move(reading->contents);
}

} // namespace cf
