#ifndef COREFOUNDATION_CFSOCKET_H
#define COREFOUNDATION_CFSOCKET_H

/*
 * Connected local stream sockets, read in the background and delivered by a run loop.
 *
 * When the source of a socket is added to a loop, one thread for all sockets begins to read its
 * bytes and to queue them in the order of arrival, in chunks of at most 64 KiB, even while the loop
 * is busy. Reading pauses while more than 64 MiB are queued. Each iteration of the loop delivers
 * one chunk. The end of the stream, whatever its cause (also a shortage of memory for a chunk), is
 * one chunk of length 0 behind all others; the socket is invalidated when that callout returns.
 *
 * Only the thread of that loop may use a socket; any thread may call CFRetain and CFRelease.
 */

#include <CoreFoundation/CFBase.h>
#include <CoreFoundation/CFData.h>
#include <CoreFoundation/CFDate.h>
#include <CoreFoundation/CFRunLoop.h>

CF_EXTERN_C_BEGIN

typedef struct __CFSocket* CFSocketRef;

typedef enum { kCFSocketSuccess = 0, kCFSocketError = -1, kCFSocketTimeout = -2 } CFSocketError;

/* The only type of callback supported. Its `data` argument is a CFDataRef, borrowed. */
enum { kCFSocketDataCallBack = 3 };
typedef CFOptionFlags CFSocketCallBackType;

/* The callout of a socket, on the thread of the loop. `info` is that of the context. */
typedef void (*CFSocketCallBack)(CFSocketRef socket, CFSocketCallBackType type, CFDataRef address,
                                 const void* data, void* info);

/* The same as CFRunLoopTimerContext: retained while the socket is valid and during each callout. */
typedef struct {
    CFIndex version;
    void* info;
    const void* (*retain)(const void* info);
    void (*release)(const void* info);
    CFStringRef (*copyDescription)(const void* info);
} CFSocketContext;

/* The peer. The address is a local one, a struct sockaddr_un of <sys/un.h>. */
typedef struct {
    SInt32 protocolFamily;
    SInt32 socketType;
    SInt32 protocol;
    CFDataRef address;
} CFSocketSignature;

/*
 * Connects to the peer and returns the socket, which the caller owns. Blocks for at most `timeout`
 * seconds. NULL if there is no connection by then or memory is short. Only local streams are
 * supported: family and type 1, protocol 0; the address may end behind its path.
 */
CFSocketRef CFSocketCreateConnectedToSocketSignature(
    CFAllocatorRef allocator, const CFSocketSignature* signature, CFOptionFlags callBackTypes,
    CFSocketCallBack callout, const CFSocketContext* context, CFTimeInterval timeout);

/*
 * The socket's only source, which the caller owns. The source retains the socket until it is
 * invalidated. NULL if the socket is invalid, the thread that reads cannot be started, or memory is
 * short.
 */
CFRunLoopSourceRef CFSocketCreateRunLoopSource(CFAllocatorRef allocator, CFSocketRef socket,
                                               CFIndex order);

/*
 * Closes the connection, drops the chunks that are queued and invalidates the source. No callout
 * follows. Allowed in the socket's callout.
 */
void CFSocketInvalidate(CFSocketRef socket);

/*
 * Sends all of the data. Blocks for at most `timeout` seconds (0 or less: without limit). Returns
 * kCFSocketSuccess, kCFSocketTimeout if the time ran out with a part unsent, or kCFSocketError,
 * which includes empty data and an invalid socket. Raises no signal. `address` must be NULL.
 */
CFSocketError CFSocketSendData(CFSocketRef socket, CFDataRef address, CFDataRef data,
                               CFTimeInterval timeout);

CF_EXTERN_C_END

#endif
