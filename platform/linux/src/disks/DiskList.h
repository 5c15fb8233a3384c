#ifndef PLATFORM_DISKLIST_H
#define PLATFORM_DISKLIST_H

/*
 * The disks that are present, and the events still to be reported.
 *
 * A new disk is probed first (VolumeProbes.h). Once its probe is done, the disk's appearance is
 * reported, and later its disappearance. A disk that is removed before its appearance was reported
 * is never reported. Disappearances are reported first.
 *
 * Appearances are reported in the order of mounting: a disk waits for the older ones, but for no
 * disk longer than kProbeTimeout after that disk was found. If a disk appears after its time-out,
 * the reported disks that were mounted later appear again. Therefore, of any two disks, the one
 * that was mounted later also appeared later.
 *
 * Threads: one thread uses a list and its disks; any thread may read volume, name and isPresent of
 * a disk. Times are of the monotonic clock.
 */

#include "disks/VolumeProbes.h"
#include "disks/Volumes.h"
#include "loop/Clock.h"
#include "objects/Object.h"

#include <DiskArbitration/DiskArbitration.h>

#include <atomic>
#include <cstddef>
#include <list>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

struct __DADisk : cf::Object {
    static const cf::Class kClass;

    // A new disk, found at `now`.
    __DADisk(disks::Volume itsVolume, std::string itsName, cf::Nanoseconds now)
        : cf::Object(&kClass), volume(std::move(itsVolume)), name(std::move(itsName)), found(now) {}

    const disks::Volume volume;
    const std::string name; // see DADiskGetBSDName
    std::atomic<bool> isPresent = true;
    // For the list only.
    const cf::Nanoseconds found; // when the list found the disk
    std::shared_ptr<disks::Probe> probe;
    bool isReported = false;  // the appearance was reported
    std::size_t position = 0; // among the present disks
};

namespace disks {

using Disk = __DADisk;

struct DiskEvent {
    cf::Owned<Disk> disk;  // empty: no event
    bool appeared = false; // false: the disk has disappeared
};

class DiskList {
public:
    static constexpr cf::Nanoseconds kProbeTimeout = cf::kSecond;

    // Sets the present volumes, oldest first. May throw std::bad_alloc; the list is then unchanged.
    void Update(const std::vector<Volume>& volumes, cf::Nanoseconds now);

    // Starts the probes of the new disks. Throws what VolumeProbes::Start() throws; a later call
    // starts the remaining ones.
    void StartProbes(VolumeProbes& probes);

    // Removes the next event from the list: the caller reports it.
    DiskEvent NextEvent(cf::Nanoseconds now) noexcept;

    // True if the next appearances are repeated, after the late appearance of an older disk.
    bool HasRepeats() const noexcept;
    // True while a probe's time-out is pending: within kProbeTimeout its expiry may allow an event,
    // without a signal from a probe.
    bool IsTimeoutPending(cf::Nanoseconds now) const noexcept;

private:
    using Positions = std::set<std::size_t>;

    // The work still to be done for the present disks, by their positions in present_.
    struct Order {
        Positions unreported;
        Positions reported;
        std::size_t repeatFrom = 0;    // reported disks from here on must appear again
        std::size_t probed = 0;        // the disks before this one have probes or need none
        cf::Nanoseconds lastFound = 0; // when the last of the unreported disks was found
    };

    Order OrderOf(const std::vector<cf::Owned<Disk>>& disks) const;
    Positions::const_iterator FirstReady(cf::Nanoseconds now) const noexcept;
    Positions::const_iterator FirstRepeat() const noexcept;
    DiskEvent ReportAppearance(std::size_t position) noexcept;

    std::vector<cf::Owned<Disk>> present_; // oldest first
    Order order_;
    std::list<cf::Owned<Disk>> gone_; // disappearances still to be reported
};

} // namespace disks

#endif
