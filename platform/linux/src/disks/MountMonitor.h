#ifndef PLATFORM_MOUNTMONITOR_H
#define PLATFORM_MOUNTMONITOR_H

#include <memory>

struct libmnt_monitor;

namespace disks {

/* Reports when the kernel's mount table may have changed. For one thread. */
class MountMonitor {
public:
    // On a shortage of memory or descriptors, Descriptor() is negative.
    MountMonitor() noexcept;

    // A descriptor that is readable after a change until ConsumeChanges(). The monitor owns it.
    // Negative if the table cannot be watched.
    int Descriptor() const noexcept {
        return descriptor_;
    }

    // True if there was a change since the last call. Does not block.
    bool ConsumeChanges() noexcept;

private:
    struct Unref {
        void operator()(libmnt_monitor* monitor) const noexcept;
    };

    std::unique_ptr<libmnt_monitor, Unref> monitor_;
    int descriptor_ = -1; // owned by monitor_
};

} // namespace disks

#endif
