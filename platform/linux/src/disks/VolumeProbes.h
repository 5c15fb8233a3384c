#ifndef PLATFORM_VOLUMEPROBES_H
#define PLATFORM_VOLUMEPROBES_H

/*
 * Touches the roots of volumes on threads of their own, because a file system whose server is
 * dead keeps whoever touches it waiting, for ever perhaps. A volume that does not answer holds up
 * its own thread and nobody else: a thread that is through takes the next volume that waits, or
 * ends. There are never more than kMaximumThreads; volumes beyond that many dead ones have to wait.
 *
 * The threads share ownership of all that they use, so that one which is stuck may outlive
 * everything else. Once its file system answers or is aborted, it ends.
 */

#include <CoreFoundation/CFRunLoop.h>

#include <atomic>
#include <cstddef>
#include <memory>
#include <string>
#include <utility>

namespace disks {

/* One volume's question. Whoever asked may drop it, and sets cancelled when no answer is needed. */
struct Probe {
    explicit Probe(std::string root) : path(std::move(root)) {}

    const std::string path;
    std::atomic<bool> done = false;
    std::atomic<bool> cancelled = false;
};

class VolumeProbes {
public:
    static constexpr std::size_t kMaximumThreads = 32;

    // Signals the source, of which it keeps a reference, after each answer. May throw
    // std::bad_alloc.
    explicit VolumeProbes(CFRunLoopSourceRef source);
    VolumeProbes(const VolumeProbes&) = delete;
    VolumeProbes& operator=(const VolumeProbes&) = delete;
    // No signal follows.
    ~VolumeProbes();

    // May throw std::bad_alloc, or std::system_error when no thread can be made.
    std::shared_ptr<Probe> Start(const std::string& path);

private:
    struct Shared;
    static void RunWorker(const std::shared_ptr<Shared>& shared) noexcept;

    std::shared_ptr<Shared> shared_;
};

} // namespace disks

#endif
