#ifndef PLATFORM_DISKLIST_H
#define PLATFORM_DISKLIST_H

/*
 * The disks that there are, and what is still to be told of them. A disk is first probed; once its
 * root has answered, its appearance is told, and when it goes after that, its disappearance. One
 * that goes before is never heard of. Disappearances are told first.
 *
 * For one thread, but for what a Disk says of itself.
 */

#include "disks/VolumeProbes.h"
#include "disks/Volumes.h"
#include "objects/Object.h"

#include <DiskArbitration/DiskArbitration.h>

#include <atomic>
#include <memory>
#include <string>
#include <utility>
#include <vector>

struct __DADisk : cf::Object {
    static const cf::Class kClass;

    __DADisk(disks::Volume itsVolume, std::string itsName)
        : cf::Object(&kClass), volume(std::move(itsVolume)), name(std::move(itsName)) {}

    const disks::Volume volume;
    const std::string name; // see DADiskGetBSDName
    std::atomic<bool> isPresent = true;
    std::shared_ptr<disks::Probe> probe; // the list's own, as is the next
    bool isKnown = false;                // its appearance was told
};

namespace disks {

using Disk = __DADisk;

struct DiskEvent {
    cf::Owned<Disk> disk; // none: nothing to tell
    bool appeared = false;
};

class DiskList {
public:
    // The volumes there are now, sorted. May throw std::bad_alloc, and has changed nothing then.
    void Update(std::vector<Volume> volumes);

    // Starts the probes that are not yet started; throws what VolumeProbes::Start throws.
    void StartProbes(VolumeProbes& probes);

    // The next event, which is thereby told.
    DiskEvent TakeEvent() noexcept;

private:
    void Leave(cf::Owned<Disk> disk) noexcept;

    std::vector<cf::Owned<Disk>> present_; // sorted by volume
    std::vector<cf::Owned<Disk>> gone_;    // to be told
};

} // namespace disks

#endif
