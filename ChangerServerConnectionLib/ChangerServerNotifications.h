#ifndef CHANGERSERVERCONNECTIONLIB_CHANGERSERVERNOTIFICATIONS_H
#define CHANGERSERVERCONNECTIONLIB_CHANGERSERVERNOTIFICATIONS_H

/*
 * The server's notifications: a standing connection, on which the server sends frames.
 *
 *   state      connect timer  socket  meaning
 *   Cycling    yes            no      attempts to connect: now, and then every second
 *   Connected  no             yes     frames are assembled and passed to the callbacks
 *   Stalled    no             no      an attempt failed, and not because the server is absent
 *
 * Success leads from Cycling to Connected, the end of a connection back to Cycling. Stalled is
 * final. Everything runs on the run loop of the thread that subscribed; there are no locks. While a
 * callback runs, no other notification is read.
 */

#include "ChangerServerConnectionLib/ChangerServerProcess.h"
#include "ChangerServerConnectionLib/FrameAssembly.h"
#include "common/VErr.h"

#include <CoreFoundation/CoreFoundation.h>

#include <stddef.h>

struct ChangerNotificationSubscription;

/* Receives the value of one key of a notification: borrowed, of any property-list type. */
typedef void (*ChangerNotificationCallBack)(CFTypeRef value,
                                            ChangerNotificationSubscription* subscription,
                                            void* refCon);

struct ChangerNotificationSubscription {
    CFSocketRef socket;          // null unless Connected
    ChangerServerProcess server; // of the present or the last connection
    CFRunLoopRef runLoop;
    CFRunLoopSourceRef source;
    CFRunLoopTimerRef connectTimer;                  // null unless Cycling
    ChangerNotificationCallBack changerListCallBack; // each may be null
    ChangerNotificationCallBack rootPreferencesCallBack;
    ChangerNotificationCallBack changerInfoCallBack;
    void* refCon;
    FrameAssembly frame;
};

/* Writes the path of the server's notification socket, "/tmp/carouseldn-<pid>", cut to size - 1
   bytes. The code is kVErrCodeServerNotFound if no server runs. */
VErrLink* GetChangerServerNotificationSocketPath(char* path, size_t size);

/* Starts Cycling on the calling thread's run loop, where the callbacks will be called with refCon.
   Does not wait for the server. The caller owns the subscription and ends it by
   UnsubscribeFromChangerNotifications(). */
VErrLink* SubscribeToChangerNotifications(ChangerNotificationCallBack changerListCallBack,
                                          ChangerNotificationCallBack rootPreferencesCallBack,
                                          ChangerNotificationCallBack changerInfoCallBack,
                                          void* refCon,
                                          ChangerNotificationSubscription** subscription);

/* Closes the connection and frees the subscription. Always returns null. Call it on the
   subscriber's thread, and not in a callback. */
VErrLink* UnsubscribeFromChangerNotifications(ChangerNotificationSubscription* subscription);

/* ---- the steps; on the subscriber's thread ---- */

/* Adds the connect timer to the run loop, unless it is there. Fails without a run loop or
   memory. */
VErrLink* StartNotificationConnectCycle(ChangerNotificationSubscription* subscription);

/* The connect timer fires; info is the subscription. Ends the cycle after a success, and after any
   failure but the absence of the server. Such a failure is logged. */
void TryNotificationConnect(CFRunLoopTimerRef timer, void* info);

/* Attempts to connect, for up to 30 seconds. The code is kVErrCodeServerNotFound or
   kVErrCodeConnectFailed if the server is absent. */
VErrLink* ConnectServerNotificationSocket(ChangerNotificationSubscription* subscription);

/* Receives a chunk, or the end of the connection; info is the subscription. Logs its errors. */
void ServerNotificationSocketCallBack(CFSocketRef socket, CFSocketCallBackType type,
                                      CFDataRef address, const void* data, void* info);

/* Closes the socket, drops the incomplete notification and starts Cycling. */
VErrLink* HandleServerDisconnect(ChangerNotificationSubscription* subscription);

/* Adds bytes to the notification and, if that completes it, calls back. *used receives how many of
   the bytes belong to the notification; the rest begins the next one. */
VErrLink* HandleNotificationSocketData(const UInt8* bytes, CFIndex length, CFIndex* used,
                                       ChangerNotificationSubscription* subscription);

/* Calls back for each known key of the notification. Always returns null. */
VErrLink* HandleChangerNotification(ChangerNotificationSubscription* subscription,
                                    CFDictionaryRef notification);

#endif
