#ifndef TESTS_STRESS_KEPTOBJECTS_H
#define TESTS_STRESS_KEPTOBJECTS_H

/*
 * What the daemon keeps for good by design, besides lists: the sources of notification connections
 * that ended, and the progress records of builds whose status could not be cleared. Each is given
 * up here, as soon as the daemon has lost sight of it, so that nothing else is forgiven by the leak
 * checker.
 */

#include "ChangerServerConnectionLib/ChangerServerNotifications.h"

namespace kept_objects {

/* TryNotificationConnect; a new connection's source takes the place of an earlier one's. */
void TryToConnect(CFRunLoopTimerRef timer, ChangerNotificationSubscription* subscription);

} // namespace kept_objects

#endif
