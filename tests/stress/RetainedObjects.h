#ifndef TESTS_STRESS_RETAINEDOBJECTS_H
#define TESTS_STRESS_RETAINEDOBJECTS_H

/*
 * Objects, besides lists, that the daemon never frees by design: the sources of ended notification
 * connections, and the progress reports of builds whose status could not be cleared. They are freed
 * here when the daemon no longer refers to them, so the leak checker needs no suppressions.
 */

#include "ChangerServerConnectionLib/ChangerServerNotifications.h"

namespace retained_objects {

/* Calls TryNotificationConnect() and releases the previous source when a new one replaces it. */
void TryToConnect(CFRunLoopTimerRef timer, ChangerNotificationSubscription* subscription);

} // namespace retained_objects

#endif
