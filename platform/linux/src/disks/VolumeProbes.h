#ifndef PLATFORM_VOLUMEPROBES_H
#define PLATFORM_VOLUMEPROBES_H

/*
 * Opens the root directories of volumes on threads of its own, because a file system whose server
 * is dead blocks its caller, possibly for ever.
 *
 * There are at most kMaximumThreads worker threads. A worker takes the next pending probe, or ends
 * if there is none. A dead volume blocks one worker only; with kMaximumThreads dead volumes all
 * further probes stay pending.
 *
 * The workers share the ownership of all that they use, so a blocked worker may outlive the
 * VolumeProbes. It ends once its file system replies or is aborted.
 *
 * Lock: one mutex guards the pending probes and the number of workers. No worker holds it while it
 * accesses a file system.
 */

#include <CoreFoundation/CFRunLoop.h>

#include <atomic>
#include <cstddef>
#include <memory>
#include <string>
#include <utility>

namespace disks {

/* The probe of one volume. Its owner may release it at any time, and sets `cancelled` if the result
   is not needed: a pending probe is then skipped. */
struct Probe {
    // `root`: the path of the volume's root directory.
    explicit Probe(std::string root) : path(std::move(root)) {}

    const std::string path;
    std::atomic<bool> done = false; // the volume has replied, with success or an error
    std::atomic<bool> cancelled = false;
};

class VolumeProbes {
public:
    static constexpr std::size_t kMaximumThreads = 32;

    // Retains `source`, and signals it after each probe that is done. May throw std::bad_alloc.
    explicit VolumeProbes(CFRunLoopSourceRef source);
    VolumeProbes(const VolumeProbes&) = delete;
    VolumeProbes& operator=(const VolumeProbes&) = delete;
    // Drops the pending probes. Does not wait for the workers; no signal follows.
    ~VolumeProbes();

    // Starts a probe of the volume at `path`, or leaves it pending. Does not block. May throw
    // std::bad_alloc, or std::system_error if no thread can be created: there is then no probe.
    std::shared_ptr<Probe> Start(const std::string& path);

private:
    struct Shared;
    static void RunWorker(const std::shared_ptr<Shared>& shared) noexcept;

    std::shared_ptr<Shared> shared_;
};

} // namespace disks

#endif
