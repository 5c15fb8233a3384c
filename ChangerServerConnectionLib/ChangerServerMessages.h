#ifndef CHANGERSERVERCONNECTIONLIB_CHANGERSERVERMESSAGES_H
#define CHANGERSERVERCONNECTIONLIB_CHANGERSERVERMESSAGES_H

/*
 * Finding the changer server, and one request/reply exchange with it.
 *
 * Nothing is cached and no connection is kept: each exchange scans the process table for the
 * server's process id, connects to the socket whose path carries it, and closes the connection
 * again. A restarted server is thus found by the next exchange. All functions are reentrant; any
 * thread may call them.
 */

#include "ChangerServerConnectionLib/FrameAssembly.h"
#include "common/VErr.h"

#include <CoreFoundation/CoreFoundation.h>

#include <stddef.h>
#include <sys/sysctl.h>

/*
 * The whole process table, freed by the caller with free. Returns 0 or an errno value; on failure
 * the list is NULL and the count 0. *procList must be NULL on entry; a violated precondition
 * aborts the process.
 */
int GetBSDProcessList(struct kinfo_proc** procList, size_t* procCount);

/* The first process in the table whose command name contains "carouseld". Not finding one is no
   error: found is then 0 and pid is untouched. */
VErrLink* GetChangerServerPID(SInt32* found, SInt32* pid);

/* "/tmp/carouseld-<pid>"; code kVErrCodeServerNotFound when no server runs. A path that does not
   fit the size is cut. */
VErrLink* GetChangerServerMessageSocketPath(char* path, size_t size);

/*
 * Sends the message and waits for the reply on the calling thread's run loop, at most 30 seconds
 * each for connecting, sending and waiting. With reply NULL none is asked for or awaited.
 *
 * The reply belongs to the caller and is set whenever one arrived, also when it tells of an error
 * and this returns a chain: the server's own code and text, kVErrCodeReplyTimeout, or
 * kVErrCodeConnectionLost; the latter two leave a reply made here.
 */
VErrLink* SendMessageToChangerServer(CFDictionaryRef message, CFDictionaryRef* reply);

/* ---- the steps of an exchange ---- */

/* What a message socket's callbacks share: where the reply goes (NULL: none is wanted), and the
   frame being gathered. */
struct SocketInfo {
    CFDictionaryRef* reply;
    FrameAssembly frame;
};

/* Connects; the caller owns the socket. The info record must outlive it. */
VErrLink* GetChangerServerMessageSocket(CFSocketRef* socket, SocketInfo* info);

VErrLink* SendMessageOnSocket(CFSocketRef socket, CFDictionaryRef message);
VErrLink* SendDataOnSocket(CFSocketRef socket, CFDataRef payload);

void ServerMessageSocketCallBack(CFSocketRef socket, CFSocketCallBackType type, CFDataRef address,
                                 const void* data, void* info);

/* Adds one chunk to the reply; when that completes it, hands it out and stops the run loop. What
   comes behind a reply is left alone: the connection ends with it. */
VErrLink* HandleChangerServerSocketData(CFDataRef data, CFDictionaryRef* reply, SocketInfo* info);

/* info is the reply slot. */
void HandleSocketTimeout(CFRunLoopTimerRef timer, void* info);

/* A reply that tells of an error, owned by the caller; NULL on failure. */
VErrLink* CreateErrReplyDict(VErrCode code, const char* message, CFMutableDictionaryRef* dict);

/*
 * The error that a reply tells of, as a chain in replyErr; NULL for success. The server's text is
 * read as a format without arguments: "%%" stands for "%", everything else for itself.
 */
VErrLink* GetMessageReplyErr(CFDictionaryRef reply, VErrLink** replyErr);

#endif
