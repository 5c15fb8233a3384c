// The commands that move a disc: mount and eject.

#include "changerctl/Commands.h"
#include "changerctl/Failure.h"
#include "changerctl/Notifications.h"
#include "changerctl/PrintableText.h"
#include "changerctl/Requests.h"
#include "changerctl/Target.h"
#include "changerctl/Terminal.h"

namespace changerctl {
namespace {

constexpr std::chrono::seconds kBusyLimit(300); // the daemon's own limit, too

// One disc of a changer. The subscription ends before a request: the server would wait for a
// subscriber that reads nothing while a request repeats.
Target SelectDisc(const Options& options) {
    Notifications notifications;
    notifications.AwaitFirst(options.FirstNotificationLimit());
    Target target = SelectSlots(notifications.Changers(), options.arguments);
    if (target.slots.size() > 1)
        throw Failure(ExitStatus::Usage, "one slot only");
    return target;
}

} // namespace

void Mount(const Options& options) {
    const Target disc = SelectDisc(options);
    const std::string path = MountDisc(disc.changer, disc.slots.front(), options.drive,
                                       options.timeLimit.value_or(kBusyLimit));
    Write(Printable(path) + "\n");
}

void Eject(const Options& options) {
    const Target disc = SelectDisc(options);
    EjectDisc(disc.changer, disc.slots.front(), options.isForced,
              options.timeLimit.value_or(kBusyLimit));
}

} // namespace changerctl
