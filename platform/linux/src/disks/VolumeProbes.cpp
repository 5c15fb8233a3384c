#include "disks/VolumeProbes.h"

#include "loop/RunLoop.h"
#include "threads/AllSignalsBlocked.h"

#include <fcntl.h>
#include <sys/statfs.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <deque>
#include <mutex>
#include <thread>
#include <utility>

namespace disks {

struct VolumeProbes::Shared {
    explicit Shared(CFRunLoopSourceRef toSignal) : source(toSignal) {
        CFRetain(source);
    }
    Shared(const Shared&) = delete;
    Shared& operator=(const Shared&) = delete;
    ~Shared() {
        CFRelease(source);
    }

    const CFRunLoopSourceRef source;
    std::mutex mutex; // guards what follows
    std::deque<std::shared_ptr<Probe>> waiting;
    std::size_t threads = 0;
    bool closed = false;
};

namespace {

// An error is an answer too: whoever looks next gets it without waiting.
void Touch(const char* path) noexcept {
    struct statfs status = {};
    statfs(path, &status);
    const int root = open(path, O_RDONLY | O_DIRECTORY | O_NONBLOCK | O_CLOEXEC);
    if (root >= 0)
        close(root);
}

} // namespace

VolumeProbes::VolumeProbes(CFRunLoopSourceRef source) : shared_(std::make_shared<Shared>(source)) {}

VolumeProbes::~VolumeProbes() {
    const std::lock_guard lock(shared_->mutex);
    shared_->closed = true;
    shared_->waiting.clear();
}

std::shared_ptr<Probe> VolumeProbes::Start(const std::string& path) {
    auto probe = std::make_shared<Probe>(path);
    const std::lock_guard lock(shared_->mutex);
    shared_->waiting.push_back(probe);
    if (shared_->threads == kMostThreads)
        return probe;
    try {
        const process::AllSignalsBlocked blocked;
        std::thread(Work, shared_).detach();
        ++shared_->threads;
    } catch (...) {
        shared_->waiting.pop_back();
        throw;
    }
    return probe;
}

void VolumeProbes::Work(const std::shared_ptr<Shared>& shared) noexcept {
    std::unique_lock lock(shared->mutex);
    while (!shared->waiting.empty()) {
        const std::shared_ptr<Probe> probe = std::move(shared->waiting.front());
        shared->waiting.pop_front();
        if (probe->unwanted)
            continue;
        lock.unlock();
        Touch(probe->path.c_str());
        lock.lock();
        probe->answered = true;
        if (!shared->closed)
            cf::SignalSource(shared->source);
    }
    --shared->threads;
}

} // namespace disks
