#ifndef CHANGERSERVERCONNECTIONLIB_CHANGERSERVERNOTIFICATIONS_H
#define CHANGERSERVERCONNECTIONLIB_CHANGERSERVERNOTIFICATIONS_H

/*
 * The server's notifications: one long-lived connection, on which the server pushes frames.
 *
 *   Cycling    a connect timer, no socket: an attempt at once and then every second
 *   Connected  a socket, no timer; frames are gathered and handed to the callbacks
 *   Stalled    neither: an attempt failed other than by the server's absence; for good
 *
 * A disconnect leads back to Cycling. Everything runs on the subscriber's run loop; there are no
 * locks. While a callback runs, no other notification is read; the bytes wait in order.
 */

#include "ChangerServerConnectionLib/ChangerServerProcess.h"
#include "ChangerServerConnectionLib/FrameAssembly.h"
#include "common/VErr.h"

#include <CoreFoundation/CoreFoundation.h>

#include <stddef.h>

struct ChangerNotificationSubscription;

/* The value is borrowed for the call; it may be of any property-list type. */
typedef void (*ChangerNotificationCallBack)(CFTypeRef value,
                                            ChangerNotificationSubscription* subscription,
                                            void* refCon);

struct ChangerNotificationSubscription {
    CFSocketRef socket;          // null while disconnected
    ChangerServerProcess server; // to which the last connection led, or leads
    CFRunLoopRef runLoop;
    CFRunLoopSourceRef source;
    CFRunLoopTimerRef connectTimer;                  // null when not cycling
    ChangerNotificationCallBack changerListCallBack; // each may be null
    ChangerNotificationCallBack rootPreferencesCallBack;
    ChangerNotificationCallBack changerInfoCallBack;
    void* refCon;
    FrameAssembly frame;
};

/* "/tmp/carouseldn-<pid>", as GetChangerServerMessageSocketPath. */
VErrLink* GetChangerServerNotificationSocketPath(char* path, size_t size);

/*
 * Subscribes on the calling thread's run loop, which must be the one that will deliver. Does not
 * wait for the server: the first attempt is made when the loop runs. The caller keeps the record
 * and gives it back to Unsubscribe.
 */
VErrLink* SubscribeToChangerNotifications(ChangerNotificationCallBack changerListCallBack,
                                          ChangerNotificationCallBack rootPreferencesCallBack,
                                          ChangerNotificationCallBack changerInfoCallBack,
                                          void* refCon,
                                          ChangerNotificationSubscription** subscription);

/* Tears everything down and frees the record. Always succeeds. On the subscriber's thread, and
   not from inside a callback. */
VErrLink* UnsubscribeFromChangerNotifications(ChangerNotificationSubscription* subscription);

/* ---- the steps ---- */

VErrLink* StartNotificationConnectCycle(ChangerNotificationSubscription* subscription);
/* info is the subscription. */
void TryNotificationConnect(CFRunLoopTimerRef timer, void* info);
VErrLink* ConnectServerNotificationSocket(ChangerNotificationSubscription* subscription);
/* info is the subscription. */
void ServerNotificationSocketCallBack(CFSocketRef socket, CFSocketCallBackType type,
                                      CFDataRef address, const void* data, void* info);
VErrLink* HandleServerDisconnect(ChangerNotificationSubscription* subscription);

/* Adds bytes to the notification being gathered and delivers it when it is complete. used receives
   how many bytes belong to it; the rest begins the next one. */
VErrLink* HandleNotificationSocketData(const UInt8* bytes, CFIndex length, CFIndex* used,
                                       ChangerNotificationSubscription* subscription);

/* Calls back for each known key that the notification holds. Always succeeds. */
VErrLink* HandleChangerNotification(ChangerNotificationSubscription* subscription,
                                    CFDictionaryRef notification);

#endif
