#include "ChangerServerConnectionLib/ChangerServerNotifications.h"

#include "ChangerServerConnectionLib/ChangerServerMessages.h"
#include "ChangerServerConnectionLib/LocalSocket.h"
#include "common/CFHelpers.h"

#include <stdio.h>
#include <stdlib.h>

static const char kSourcePath[] = "ChangerServerConnectionLib/ChangerServerNotifications";

constexpr CFTimeInterval kConnectInterval = 1.0; // seconds between attempts

// Gets the process id in the path, too. Links name the exported function.
static VErrLink* FindNotificationSocket(char* path, size_t size, SInt32* pid) {
    static const char function[] = "GetChangerServerNotificationSocketPath";
    VErrLink* err = nullptr;
    SInt32 found = 0;
    VERR_STEP_IN(function, err, GetChangerServerPID(&found, pid), "fail get changer server PID");
    if (err == nullptr && !found)
        VErrRaise(VErrThrowWithErrCode(&err, kVErrCodeServerNotFound, "fail find changer server"),
                  kSourcePath, function, __LINE__);
    if (err == nullptr)
        snprintf(path, size, "/tmp/carouseldn-%d", *pid);
    return err;
}

VErrLink* GetChangerServerNotificationSocketPath(char* path, size_t size) {
    SInt32 pid = 0;
    return FindNotificationSocket(path, size, &pid);
}

VErrLink* SubscribeToChangerNotifications(ChangerNotificationCallBack changerListCallBack,
                                          ChangerNotificationCallBack rootPreferencesCallBack,
                                          ChangerNotificationCallBack changerInfoCallBack,
                                          void* refCon,
                                          ChangerNotificationSubscription** subscription) {
    VErrLink* err = nullptr;
    auto* record = static_cast<ChangerNotificationSubscription*>(
        calloc(1, sizeof(ChangerNotificationSubscription)));
    if (record == nullptr)
        return VERR_RAISE(VErrThrow(&err, "fail alloc socket info"));
    record->changerListCallBack = changerListCallBack;
    record->rootPreferencesCallBack = rootPreferencesCallBack;
    record->changerInfoCallBack = changerInfoCallBack;
    record->refCon = refCon;
    record->runLoop = CFRunLoopGetCurrent();

    VERR_STEP(err, StartNotificationConnectCycle(record), "fail start notification connect cycle");
    if (err == nullptr)
        *subscription = record;
    else
        UnsubscribeFromChangerNotifications(record);
    return err;
}

// Invalidating removes the timer from its run loop; the mode of the call before is not the one that
// the timer was added to.
static void StopConnectTimer(ChangerNotificationSubscription* subscription) {
    CFRunLoopTimerRef timer = subscription->connectTimer;
    if (timer == nullptr)
        return;
    CFRunLoopRemoveTimer(subscription->runLoop, timer, kCFRunLoopCommonModes);
    CFRunLoopTimerInvalidate(timer);
    CFRelease(timer);
    subscription->connectTimer = nullptr;
}

VErrLink* UnsubscribeFromChangerNotifications(ChangerNotificationSubscription* subscription) {
    if (subscription->runLoop != nullptr && subscription->source != nullptr) {
        CFRunLoopRemoveSource(subscription->runLoop, subscription->source, kCFRunLoopCommonModes);
        CFRunLoopSourceInvalidate(subscription->source);
        CFRelease(subscription->source);
    }
    StopConnectTimer(subscription);
    CloseLocalSocket(subscription->socket);
    ResetFrameAssembly(&subscription->frame);
    free(subscription);
    return nullptr;
}

// ---- connecting ----

VErrLink* StartNotificationConnectCycle(ChangerNotificationSubscription* subscription) {
    VErrLink* err = nullptr;
    if (subscription->connectTimer != nullptr)
        return nullptr;
    // CFRunLoopGetCurrent() may have failed. Without a loop, no timer would fire.
    if (subscription->runLoop == nullptr)
        return VERR_RAISE(VErrThrow(&err, "fail create connect timer"));
    CFRunLoopTimerContext context = {0, subscription, nullptr, nullptr, nullptr};
    CFRunLoopTimerRef timer =
        CFRunLoopTimerCreate(kCFAllocatorDefault, CFAbsoluteTimeGetCurrent(), kConnectInterval, 0,
                             0, TryNotificationConnect, &context);
    if (timer == nullptr)
        return VERR_RAISE(VErrThrow(&err, "fail create connect timer"));
    CFRunLoopAddTimer(subscription->runLoop, timer, kCFRunLoopDefaultMode);
    subscription->connectTimer = timer;
    return nullptr;
}

static bool IsServerAbsent(const VErrLink* err) {
    const VErrCode code = VErrGetErrCode(err);
    return code == kVErrCodeServerNotFound || code == kVErrCodeConnectFailed;
}

void TryNotificationConnect(CFRunLoopTimerRef /* timer */, void* info) {
    auto* subscription = static_cast<ChangerNotificationSubscription*>(info);
    VErrLink* err = nullptr;
    if (subscription->socket == nullptr)
        err = ConnectServerNotificationSocket(subscription);
    if (err != nullptr && IsServerAbsent(err)) {
        VErrCatch(&err);
        return;
    }
    if (err != nullptr) {
        VERR_RAISE(VErrThrow(&err, "fail get notifcation socket"));
        VErrLogAndCatch(&err);
    }
    StopConnectTimer(subscription);
}

VErrLink* ConnectServerNotificationSocket(ChangerNotificationSubscription* subscription) {
    char path[kLocalSocketPathSize] = "";
    SInt32 pid = 0;
    CFDataRef address = nullptr;
    CFSocketRef socket = nullptr;
    CFRunLoopSourceRef source = nullptr;
    VErrLink* err = nullptr;
    VERR_STEP(err, FindNotificationSocket(path, sizeof path, &pid), "fail get socket path");
    VERR_GET(err, address, CreateLocalSocketAddress(path), "fail create socketAddrData");
    if (err == nullptr) {
        socket =
            CreateConnectedLocalSocket(address, ServerNotificationSocketCallBack, subscription);
        if (socket == nullptr)
            VERR_RAISE(VErrThrowWithErrCode(&err, kVErrCodeConnectFailed,
                                            "fail create/connect socket to path %s", path));
    }
    VERR_GET(err, source, CFSocketCreateRunLoopSource(kCFAllocatorDefault, socket, 0),
             "fail create socket source");
    if (err == nullptr) {
        CFRunLoopAddSource(subscription->runLoop, source, kCFRunLoopDefaultMode);
        subscription->socket = socket;
        subscription->source = source;
        GetChangerServerProcess(pid, &subscription->server);
    } else {
        CloseLocalSocket(socket);
    }
    CFHReleaseIfSet(address);
    return err;
}

// Closing the socket invalidates its source. The reference to the source is not released here; the
// next connection overwrites it.
VErrLink* HandleServerDisconnect(ChangerNotificationSubscription* subscription) {
    CloseLocalSocket(subscription->socket);
    subscription->socket = nullptr;
    ResetFrameAssembly(&subscription->frame);
    VErrLink* err = nullptr;
    VERR_STEP(err, StartNotificationConnectCycle(subscription),
              "fail start notification connect cycle");
    return err;
}

// ---- receiving ----

void ServerNotificationSocketCallBack(CFSocketRef /* socket */, CFSocketCallBackType type,
                                      CFDataRef /* address */, const void* data, void* info) {
    auto* subscription = static_cast<ChangerNotificationSubscription*>(info);
    auto* chunk = static_cast<CFDataRef>(data);
    const bool isData = type == kCFSocketDataCallBack; // else data is not a chunk
    const UInt8* bytes = isData ? CFDataGetBytePtr(chunk) : nullptr;
    const CFIndex length = isData ? CFDataGetLength(chunk) : 0;
    VErrLink* err = nullptr;
    if (!isData)
        VERR_RAISE(VErrThrow(&err, "unexpected callback type %d received", static_cast<int>(type)));
    else if (length == 0) // the server closed the connection
        VERR_STEP(err, HandleServerDisconnect(subscription), "fail handle server disconnect");
    VErrLogAndCatch(&err);

    // A chunk may end one notification and begin the next. A malformed notification does not affect
    // the next one.
    CFIndex used = 0;
    for (CFIndex position = 0; position < length; position += used) {
        VERR_STEP(
            err,
            HandleNotificationSocketData(bytes + position, length - position, &used, subscription),
            "fail handle notification socket data");
        VErrLogAndCatch(&err);
    }
}

VErrLink* HandleNotificationSocketData(const UInt8* bytes, CFIndex length, CFIndex* used,
                                       ChangerNotificationSubscription* subscription) {
    VErrLink* err = nullptr;
    CFPropertyListRef list = nullptr;
    char* parserText = nullptr;
    const FrameState state = GatherFrame(&subscription->frame, bytes, length, used);
    if (state == kFrameIncomplete)
        return nullptr;
    VERR_NEED(err, state != kFrameInvalidHeader, "invalid notification header on data received");
    VERR_NEED(err, state != kFrameTooLong, "inconsitent data length");
    VERR_NEED(err, state != kFrameNoMemory, "fail alloc pending socket data");
    VERR_GET(err, list, CreatePayloadList(&subscription->frame, &parserText),
             "fail make property list from XML data (%s)",
             parserText != nullptr ? parserText : "NULL");
    VERR_STEP(err, HandleChangerNotification(subscription, static_cast<CFDictionaryRef>(list)),
              "fail handle client notification");
    free(parserText);
    CFHReleaseIfSet(list);
    ResetFrameAssembly(&subscription->frame);
    return err;
}

static void CallBackWithValue(ChangerNotificationSubscription* subscription,
                              CFDictionaryRef notification, CFStringRef key,
                              ChangerNotificationCallBack callBack) {
    CFTypeRef value = CFDictionaryGetValue(notification, key);
    if (value != nullptr && callBack != nullptr)
        callBack(value, subscription, subscription->refCon);
}

VErrLink* HandleChangerNotification(ChangerNotificationSubscription* subscription,
                                    CFDictionaryRef notification) {
    CallBackWithValue(subscription, notification, CFSTR("changer list"),
                      subscription->changerListCallBack);
    CallBackWithValue(subscription, notification, CFSTR("root preferences"),
                      subscription->rootPreferencesCallBack);
    CallBackWithValue(subscription, notification, CFSTR("changer info"),
                      subscription->changerInfoCallBack);
    return nullptr;
}
