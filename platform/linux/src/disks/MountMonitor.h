#ifndef PLATFORM_MOUNTMONITOR_H
#define PLATFORM_MOUNTMONITOR_H

#include <memory>

struct libmnt_monitor;

namespace disks {

/* Tells when the kernel's mount table may have changed. */
class MountMonitor {
public:
    MountMonitor() noexcept;

    // Readable once there was a change. Negative when the table cannot be watched.
    int Descriptor() const noexcept {
        return descriptor_;
    }

    // Whether there was a change since the last call.
    bool ConsumeChanges() noexcept;

private:
    struct Unref {
        void operator()(libmnt_monitor* monitor) const noexcept;
    };

    std::unique_ptr<libmnt_monitor, Unref> monitor_;
    int descriptor_ = -1; // the monitor's own
};

} // namespace disks

#endif
