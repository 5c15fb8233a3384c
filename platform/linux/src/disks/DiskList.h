#ifndef PLATFORM_DISKLIST_H
#define PLATFORM_DISKLIST_H

/*
 * The disks that there are, and what is still to be told of them. A disk is first probed; once its
 * probe is done, its appearance is told, and when it goes after that, its disappearance. One
 * that goes before is never heard of. Disappearances are told first.
 *
 * Appearances are told in the order of mounting. A disk that does not answer within kProbeTimeout
 * holds the younger ones back no longer. When it appears after all, those of them that are known
 * appear again, so that of any two disks the one mounted last is the one that appeared last.
 *
 * For one thread, but for what a Disk says of itself.
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

    __DADisk(disks::Volume itsVolume, std::string itsName, cf::Nanoseconds now)
        : cf::Object(&kClass), volume(std::move(itsVolume)), name(std::move(itsName)), found(now) {}

    const disks::Volume volume;
    const std::string name; // see DADiskGetBSDName
    std::atomic<bool> isPresent = true;
    // What follows is the list's own.
    const cf::Nanoseconds found; // when, by the monotonic clock
    std::shared_ptr<disks::Probe> probe;
    bool isReported = false;  // its appearance was told
    std::size_t position = 0; // among those present
};

namespace disks {

using Disk = __DADisk;

struct DiskEvent {
    cf::Owned<Disk> disk; // none: nothing to tell
    bool appeared = false;
};

class DiskList {
public:
    static constexpr cf::Nanoseconds kProbeTimeout = cf::kSecond;

    // The volumes there are now, oldest first; now is by the monotonic clock, here and below. May
    // throw std::bad_alloc, and has changed nothing then.
    void Update(std::vector<Volume> volumes, cf::Nanoseconds now);

    // Starts the probes that are not yet started; throws what VolumeProbes::Start throws.
    void StartProbes(VolumeProbes& probes);

    // The next event, which is thereby told.
    DiskEvent NextEvent(cf::Nanoseconds now) noexcept;

    // An older disk has just appeared; the next events are those of the disks that appear again.
    bool HasRepeats() const noexcept;
    // Within kProbeTimeout there may be an event, though no probe is done.
    bool IsTimeoutPending(cf::Nanoseconds now) const noexcept;

private:
    using Positions = std::set<std::size_t>;

    // What is still to be done for the disks that are present, which are named by their position.
    struct Order {
        Positions unreported;
        Positions reported;
        std::size_t repeatFrom = 0;    // the known disks from here on are to be told once more
        std::size_t probed = 0;        // for the unknown disks before this one probes were started
        cf::Nanoseconds lastFound = 0; // when the last one of the unknown was found
    };

    Order OrderOf(const std::vector<cf::Owned<Disk>>& disks) const;
    Positions::const_iterator FirstReady(cf::Nanoseconds now) const noexcept;
    Positions::const_iterator FirstRepeat() const noexcept;
    DiskEvent ReportAppearance(std::size_t position) noexcept;

    std::vector<cf::Owned<Disk>> present_; // oldest first
    Order order_;
    std::list<cf::Owned<Disk>> gone_; // to be told
};

} // namespace disks

#endif
