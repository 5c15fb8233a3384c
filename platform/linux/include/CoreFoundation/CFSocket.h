#ifndef COREFOUNDATION_CFSOCKET_H
#define COREFOUNDATION_CFSOCKET_H

/*
 * Connected local stream sockets, read in the background and delivered by a run loop.
 *
 * From the moment its source is added to a loop, a socket's bytes are read by one thread for all
 * sockets and queued in the order of arrival, in chunks of at most 64 KiB, however long the loop
 * is busy; beyond 64 MiB queued, reading rests. Each turn of the loop hands over one chunk. The
 * end of the stream, for whatever reason, is one chunk of length 0 after all others; the socket
 * is invalidated when that callout returns. The lack of memory for a chunk is such an end too.
 */

#include <CoreFoundation/CFBase.h>
#include <CoreFoundation/CFData.h>
#include <CoreFoundation/CFDate.h>
#include <CoreFoundation/CFRunLoop.h>

CF_EXTERN_C_BEGIN

typedef struct __CFSocket* CFSocketRef;

typedef enum { kCFSocketSuccess = 0, kCFSocketError = -1, kCFSocketTimeout = -2 } CFSocketError;

/* The only callback type served here. Its data argument is a CFDataRef, borrowed. */
enum { kCFSocketDataCallBack = 3 };
typedef CFOptionFlags CFSocketCallBackType;

typedef void (*CFSocketCallBack)(CFSocketRef socket, CFSocketCallBackType type, CFDataRef address,
                                 const void* data, void* info);

/* As that of a timer: held while the socket is valid and around each callout. */
typedef struct {
    CFIndex version;
    void* info;
    const void* (*retain)(const void* info);
    void (*release)(const void* info);
    CFStringRef (*copyDescription)(const void* info);
} CFSocketContext;

/* The address is a local one as <sys/un.h> declares it. */
typedef struct {
    SInt32 protocolFamily;
    SInt32 socketType;
    SInt32 protocol;
    CFDataRef address;
} CFSocketSignature;

/*
 * Waits at most timeout seconds for the connection; NULL when it does not come about. Only local
 * streams are served: family and type 1, protocol 0, the address as above or only as much of it
 * as its path takes.
 */
CFSocketRef CFSocketCreateConnectedToSocketSignature(
    CFAllocatorRef allocator, const CFSocketSignature* signature, CFOptionFlags callBackTypes,
    CFSocketCallBack callout, const CFSocketContext* context, CFTimeInterval timeout);

/*
 * The socket's one source, retained for the caller. The source keeps the socket alive until it is
 * invalidated. NULL also for an invalid socket, and when the thread that reads cannot be started.
 */
CFRunLoopSourceRef CFSocketCreateRunLoopSource(CFAllocatorRef allocator, CFSocketRef socket,
                                               CFIndex order);

/*
 * Closes the connection, drops what is queued and invalidates the source. No callout follows;
 * allowed inside the socket's own.
 */
void CFSocketInvalidate(CFSocketRef socket);

/*
 * Sends all of the data within timeout seconds (0 or less: without limit). Anything else is an
 * error: kCFSocketTimeout when the time ran out with a part unsent, kCFSocketError otherwise, also
 * for empty data and an invalid socket. Raises no signal. address must be NULL.
 */
CFSocketError CFSocketSendData(CFSocketRef socket, CFDataRef address, CFDataRef data,
                               CFTimeInterval timeout);

CF_EXTERN_C_END

#endif
