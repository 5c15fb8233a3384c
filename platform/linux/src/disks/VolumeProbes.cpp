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
    std::mutex mutex; // guards the members below
    std::deque<std::shared_ptr<Probe>> pending;
    std::size_t threads = 0;
    bool closed = false;
};

namespace {

// Ignores errors: if open() fails, later calls for this path also fail without blocking.
void OpenRoot(const char* path) noexcept {
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
    shared_->pending.clear();
}

std::shared_ptr<Probe> VolumeProbes::Start(const std::string& path) {
    auto probe = std::make_shared<Probe>(path);
    const std::lock_guard lock(shared_->mutex);
    shared_->pending.push_back(probe);
    if (shared_->threads == kMaximumThreads)
        return probe;
    try {
        const process::AllSignalsBlocked blocked;
        std::thread(RunWorker, shared_).detach();
        ++shared_->threads;
    } catch (...) {
        shared_->pending.pop_back();
        throw;
    }
    return probe;
}

void VolumeProbes::RunWorker(const std::shared_ptr<Shared>& shared) noexcept {
    std::unique_lock lock(shared->mutex);
    while (!shared->pending.empty()) {
        const std::shared_ptr<Probe> probe = std::move(shared->pending.front());
        shared->pending.pop_front();
        if (probe->cancelled)
            continue;
        lock.unlock();
        OpenRoot(probe->path.c_str());
        lock.lock();
        probe->done = true;
        if (!shared->closed)
            cf::SignalSource(shared->source);
    }
    --shared->threads;
}

} // namespace disks
