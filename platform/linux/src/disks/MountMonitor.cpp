#include "disks/MountMonitor.h"

#include <libmount.h>

namespace disks {

void MountMonitor::Unref::operator()(libmnt_monitor* monitor) const noexcept {
    mnt_unref_monitor(monitor);
}

MountMonitor::MountMonitor() noexcept : monitor_(mnt_new_monitor()) {
    if (monitor_ && mnt_monitor_enable_kernel(monitor_.get(), 1) == 0)
        descriptor_ = mnt_monitor_get_fd(monitor_.get());
}

bool MountMonitor::ConsumeChanges() noexcept {
    bool changed = false;
    while (mnt_monitor_next_change(monitor_.get(), nullptr, nullptr) == 0)
        changed = true;
    return changed;
}

} // namespace disks
