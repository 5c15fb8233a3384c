#include "ChangerServerConnectionLib/ChangerServerMessages.h"

#include "ChangerServerConnectionLib/LocalSocket.h"
#include "common/CFHelpers.h"

#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

static const char kSourcePath[] = "ChangerServerConnectionLib/ChangerServerMessages";

static const char kServerProcessName[] = "carouseld";

constexpr CFTimeInterval kReplyTimeout = 30.0; // seconds, from the end of sending

// ---- finding the server ----

// A violated condition is a programming error and aborts the process.
#define REQUIRE(expression)                                                                        \
    do {                                                                                           \
        if (!(expression))                                                                         \
            FailAssertion(__LINE__, #expression);                                                  \
    } while (false)

[[noreturn]] static void FailAssertion(unsigned line, const char* expression) {
    fprintf(stderr, "%s:%u: failed assertion `%s'\n", kSourcePath, line, expression);
    abort();
}

// Returns ENOMEM with a table if the process table grew after its size was read.
static int ReadProcessTable(struct kinfo_proc** table, size_t* length) {
    int name[] = {CTL_KERN, KERN_PROC, KERN_PROC_ALL};
    *length = 0;
    if (sysctl(name, 3, nullptr, length, nullptr, 0) == -1)
        return errno;
    *table = static_cast<struct kinfo_proc*>(malloc(*length));
    if (*table == nullptr)
        return ENOMEM;
    return sysctl(name, 3, *table, length, nullptr, 0) == -1 ? errno : 0;
}

int GetBSDProcessList(struct kinfo_proc** procList, size_t* procCount) {
    REQUIRE(procList != NULL);
    REQUIRE(*procList == NULL);
    REQUIRE(procCount != NULL);
    *procCount = 0;

    struct kinfo_proc* result = nullptr;
    size_t length = 0;
    int err = 0;
    bool done = false;
    do {
        REQUIRE(result == NULL);
        err = ReadProcessTable(&result, &length);
        done = err == 0;
        if (err == ENOMEM && result != nullptr) { // retries end: the table stops growing
            free(result);
            result = nullptr;
            err = 0;
        }
    } while (err == 0 && !done);

    if (err != 0) {
        free(result);
        result = nullptr;
    }
    *procList = result;
    if (err == 0)
        *procCount = length / sizeof(struct kinfo_proc);
    REQUIRE((err == 0) == (*procList != NULL));
    return err;
}

VErrLink* GetChangerServerPID(SInt32* found, SInt32* pid) {
    *found = 0;
    struct kinfo_proc* processes = nullptr;
    size_t count = 0;
    const int status = GetBSDProcessList(&processes, &count);
    if (status != 0) {
        VErrLink* err = nullptr;
        return VERR_RAISE(VErrThrowWithErrCode(&err, status, "unable to get BSD process list"));
    }
    for (size_t i = 0; i < count && *found == 0; i++) {
        if (strstr(processes[i].kp_proc.p_comm, kServerProcessName) != nullptr) {
            *found = 1;
            *pid = processes[i].kp_proc.p_pid;
        }
    }
    free(processes);
    return nullptr;
}

VErrLink* GetChangerServerMessageSocketPath(char* path, size_t size) {
    SInt32 found = 0;
    SInt32 pid = 0;
    VErrLink* err = GetChangerServerPID(&found, &pid);
    if (err != nullptr)
        return VERR_RAISE(VErrThrow(&err, "fail get changer server PID"));
    if (!found)
        return VERR_RAISE(
            VErrThrowWithErrCode(&err, kVErrCodeServerNotFound, "fail find changer server"));
    snprintf(path, size, "/tmp/carouseld-%d", pid);
    return nullptr;
}

// ---- one exchange ----

VErrLink* GetChangerServerMessageSocket(CFSocketRef* socket, SocketInfo* info) {
    char path[kLocalSocketPathSize] = "";
    CFDataRef address = nullptr;
    VErrLink* err = nullptr;
    VERR_STEP(err, GetChangerServerMessageSocketPath(path, sizeof path), "fail get socket path");
    VERR_GET(err, address, CreateLocalSocketAddress(path), "fail create socketAddrData");
    VERR_GET(err, *socket, CreateConnectedLocalSocket(address, ServerMessageSocketCallBack, info),
             "fail create/connect socket to path %s", path);
    CFHReleaseIfSet(address);
    return err;
}

VErrLink* SendDataOnSocket(CFSocketRef socket, CFDataRef payload) {
    VErrLink* err = nullptr;
    CFDataRef frame = CreateFrame(payload);
    if (frame == nullptr)
        return VERR_RAISE(VErrThrow(&err, "fail alloc message data"));
    const CFSocketError status = CFSocketSendData(socket, nullptr, frame, kServerSocketTimeout);
    if (status != kCFSocketSuccess)
        VERR_RAISE(VErrThrowWithErrCode(&err, status, "fail send data on socket"));
    CFRelease(frame);
    return err;
}

VErrLink* SendMessageOnSocket(CFSocketRef socket, CFDictionaryRef message) {
    VErrLink* err = nullptr;
    CFDataRef payload = CFPropertyListCreateXMLData(kCFAllocatorDefault, message);
    VERR_NEED(err, payload != nullptr, "fail create data from dictionary");
    VERR_STEP(err, SendDataOnSocket(socket, payload), "fail send changer client data");
    CFHReleaseIfSet(payload);
    return err;
}

static CFRunLoopTimerRef CreateReplyTimer(CFDictionaryRef* reply) {
    CFRunLoopTimerContext context = {0, reply, nullptr, nullptr, nullptr};
    return CFRunLoopTimerCreate(kCFAllocatorDefault, CFAbsoluteTimeGetCurrent() + kReplyTimeout, 0,
                                0, 0, HandleSocketTimeout, &context);
}

// Invalidating removes the source from its run loop; the mode of the call before is not the one
// that the source was added to.
static void EndExchange(CFRunLoopTimerRef timer, CFRunLoopSourceRef source, CFSocketRef socket) {
    if (timer != nullptr) {
        CFRunLoopTimerInvalidate(timer);
        CFRelease(timer);
    }
    if (source != nullptr) {
        CFRunLoopRemoveSource(CFRunLoopGetCurrent(), source, kCFRunLoopCommonModes);
        CFRunLoopSourceInvalidate(source);
        CFRelease(source);
    }
    CloseLocalSocket(socket);
}

VErrLink* SendMessageToChangerServer(CFDictionaryRef message, CFDictionaryRef* reply) {
    SocketInfo info = {reply, {}};
    CFSocketRef socket = nullptr;
    CFRunLoopSourceRef source = nullptr;
    CFRunLoopTimerRef timer = nullptr;
    VErrLink* err = nullptr;
    if (reply != nullptr)
        *reply = nullptr;

    CFMutableDictionaryRef request = CFDictionaryCreateMutableCopy(kCFAllocatorDefault, 0, message);
    VERR_NEED(err, request != nullptr, "fail create copy of message dict");
    if (reply == nullptr)
        VERR_NEED(err, CFHDictionaryStore(request, CFSTR("no reply"), kCFBooleanTrue),
                  "fail create copy of message dict");

    VERR_STEP(err, GetChangerServerMessageSocket(&socket, &info), "fail get server socket");
    if (reply != nullptr) {
        // CFRunLoopGetCurrent() creates the loop on first use and may fail: get the loop before
        // CFRunLoopRun(), which would otherwise run without the source.
        CFRunLoopRef runLoop = CFRunLoopGetCurrent();
        VERR_NEED(err, runLoop != nullptr, "fail create socket source");
        VERR_GET(err, source, CFSocketCreateRunLoopSource(kCFAllocatorDefault, socket, 0),
                 "fail create socket source");
        if (err == nullptr)
            CFRunLoopAddSource(runLoop, source, kCFRunLoopDefaultMode);
    }
    VERR_STEP(err, SendMessageOnSocket(socket, request), "fail send message on socket");

    if (reply != nullptr) {
        VERR_GET(err, timer, CreateReplyTimer(reply), "fail create timeout timer");
        if (err == nullptr) {
            CFRunLoopAddTimer(CFRunLoopGetCurrent(), timer, kCFRunLoopDefaultMode);
            CFRunLoopRun();
        }
        VERR_NEED(err, *reply != nullptr, "fail to get message reply");
        VErrLink* replyErr = nullptr;
        VERR_STEP(err, GetMessageReplyErr(*reply, &replyErr), "fail get message reply err");
        if (err == nullptr)
            err = replyErr;
    }

    EndExchange(timer, source, socket);
    ResetFrameAssembly(&info.frame);
    CFHReleaseIfSet(request);
    return err;
}

// ---- the reply ----

void ServerMessageSocketCallBack(CFSocketRef /* socket */, CFSocketCallBackType type,
                                 CFDataRef /* address */, const void* data, void* info) {
    auto* socketInfo = static_cast<SocketInfo*>(info);
    auto* chunk = static_cast<CFDataRef>(data);
    VErrLink* err = nullptr;
    if (type != kCFSocketDataCallBack) {
        VERR_RAISE(VErrThrow(&err, "unexpected callback type %d received", static_cast<int>(type)));
    } else if (CFDataGetLength(chunk) == 0) { // the server closed the connection
        CFMutableDictionaryRef lost = nullptr;
        VERR_STEP(err,
                  CreateErrReplyDict(kVErrCodeConnectionLost, "lost connection with changer server",
                                     &lost),
                  "fail create error reply dictionary");
        if (err == nullptr) { // otherwise the timer stops the run loop
            *socketInfo->reply = lost;
            CFRunLoopStop(CFRunLoopGetCurrent());
        }
    } else {
        VERR_STEP(err, HandleChangerServerSocketData(chunk, socketInfo->reply, socketInfo),
                  "fail handle message socket data");
    }
    VErrLogAndCatch(&err);
}

VErrLink* HandleChangerServerSocketData(CFDataRef data, CFDictionaryRef* reply, SocketInfo* info) {
    VErrLink* err = nullptr;
    CFPropertyListRef list = nullptr;
    char* parserText = nullptr;
    CFIndex used = 0;
    const FrameState state =
        GatherFrame(&info->frame, CFDataGetBytePtr(data), CFDataGetLength(data), &used);
    if (state == kFrameIncomplete)
        return nullptr;
    VERR_NEED(err, state != kFrameInvalidHeader, "invalid message header on data received");
    VERR_NEED(err, state != kFrameTooLong, "inconsitent data length");
    VERR_NEED(err, state != kFrameNoMemory, "fail alloc pending socket data");
    VERR_GET(err, list, CreatePayloadList(&info->frame, &parserText),
             "fail make property list from XML data (%s)",
             parserText != nullptr ? parserText : "NULL");
    if (err == nullptr && reply != nullptr) {
        *reply = static_cast<CFDictionaryRef>(CFRetain(list));
        CFRunLoopStop(CFRunLoopGetCurrent());
    }
    free(parserText);
    CFHReleaseIfSet(list);
    ResetFrameAssembly(&info->frame);
    return err;
}

void HandleSocketTimeout(CFRunLoopTimerRef /* timer */, void* info) {
    auto* reply = static_cast<CFDictionaryRef*>(info);
    VErrLink* err = nullptr;
    if (reply != nullptr && *reply == nullptr) {
        CFMutableDictionaryRef timeout = nullptr;
        VERR_STEP(err,
                  CreateErrReplyDict(kVErrCodeReplyTimeout,
                                     "timeout waiting for reply from changer server", &timeout),
                  "fail create error reply dict");
        *reply = timeout;
    }
    CFRunLoopStop(CFRunLoopGetCurrent());
    VErrLogAndCatch(&err);
}

VErrLink* CreateErrReplyDict(VErrCode code, const char* message, CFMutableDictionaryRef* dict) {
    VErrLink* err = nullptr;
    *dict = nullptr;
    CFMutableDictionaryRef reply = CFHCreateMutableDictionary();
    VERR_NEED(err, reply != nullptr, "fail create error dict");
    VERR_STEP(err, CFHDictionarySetSInt64Value(reply, CFSTR("error code"), code),
              "fail add error code to error dict");
    VERR_STEP(
        err,
        CFHDictionarySetStringValue(reply, CFSTR("error string"), message, kCFStringEncodingUTF8),
        "fail add error message str to error dict");
    if (err == nullptr)
        *dict = reply;
    else
        CFHReleaseIfSet(reply);
    return err;
}

// Reads the text as a printf format without arguments, in place. A formatter must not read it: the
// text is untrusted input, and a conversion in it could crash the daemon.
static void InterpretPercents(char* text) {
    char* written = text;
    for (const char* read = text; *read != '\0'; read++) {
        if (read[0] == '%' && read[1] == '%')
            read++;
        *written++ = *read;
    }
    *written = '\0';
}

VErrLink* GetMessageReplyErr(CFDictionaryRef reply, VErrLink** replyErr) {
    VErrLink* err = nullptr;
    *replyErr = nullptr;
    const void* number = CFDictionaryGetValue(reply, CFSTR("error code"));
    if (number == nullptr)
        return nullptr;
    VErrCode code = 0;
    if (!CFNumberGetValue(static_cast<CFNumberRef>(number), kCFNumberSInt64Type, &code))
        return VERR_RAISE(VErrThrow(&err, "fail convert CFNumber to VErrCode"));
    if (code == 0)
        return nullptr;

    char* message = nullptr;
    const void* text = CFDictionaryGetValue(reply, CFSTR("error string"));
    if (text != nullptr) {
        err = CFHAllocCStringFromCFString(static_cast<CFStringRef>(text), kCFStringEncodingUTF8,
                                          &message);
        if (err != nullptr)
            return VERR_RAISE(VErrThrow(&err, "fail get dictionary error string as C string"));
        InterpretPercents(message);
    }
    VERR_RAISE(VErrThrowWithErrCode(replyErr, code, "%s",
                                    message != nullptr ? message : "an error has occurred"));
    free(message);
    return nullptr;
}
