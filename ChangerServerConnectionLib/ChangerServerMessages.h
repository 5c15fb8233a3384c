#ifndef CHANGERSERVERCONNECTIONLIB_CHANGERSERVERMESSAGES_H
#define CHANGERSERVERCONNECTIONLIB_CHANGERSERVERMESSAGES_H

/*
 * Finding the changer server, and one exchange with it: a request and its reply.
 *
 * There is no cache and no standing connection. Each exchange scans the process table for the
 * server's process id, connects to the socket whose path contains the id, and closes the connection
 * at its end. The next exchange therefore finds a restarted server. There is no state: any thread
 * may call any function. An exchange blocks its thread.
 */

#include "ChangerServerConnectionLib/FrameAssembly.h"
#include "common/VErr.h"

#include <CoreFoundation/CoreFoundation.h>

#include <stddef.h>
#include <sys/sysctl.h>

/* Copies the whole process table, which the caller releases with free(). Returns 0, or an errno
   value; the list is then NULL and the count 0. Precondition: *procList is NULL. A violated
   precondition aborts the process. */
int GetBSDProcessList(struct kinfo_proc** procList, size_t* procCount);

/* Finds the first process of the table whose command name contains "carouseld". Sets *found to 1
   and *pid, or *found to 0 and leaves *pid as it was. The code of an error is an errno value. */
VErrLink* GetChangerServerPID(SInt32* found, SInt32* pid);

/* Writes the path of the server's message socket, "/tmp/carouseld-<pid>", cut to size - 1 bytes.
   The code is kVErrCodeServerNotFound if no server runs. */
VErrLink* GetChangerServerMessageSocketPath(char* path, size_t size);

/*
 * Sends the message and waits for the reply, which the calling thread's run loop receives.
 * Connecting, sending and waiting take up to 30 seconds each. With reply NULL, the server is
 * requested not to reply, and the function does not wait.
 *
 * If the reply reports an error, its code and text are returned as a chain. Without a reply the
 * code is kVErrCodeReplyTimeout or kVErrCodeConnectionLost, and *reply is a dictionary that this
 * function made. The caller owns *reply, also after an error; it is NULL if there is none.
 */
VErrLink* SendMessageToChangerServer(CFDictionaryRef message, CFDictionaryRef* reply);

/* ---- the steps of an exchange ---- */

/* What the callbacks of a message socket share. */
struct SocketInfo {
    CFDictionaryRef* reply; // receives the reply; NULL: the reply is dropped
    FrameAssembly frame;    // the reply so far
};

/* Connects to the server. The caller owns the socket, and keeps *info for as long as the socket
   exists. */
VErrLink* GetChangerServerMessageSocket(CFSocketRef* socket, SocketInfo* info);

/* Sends a message, or a payload, as a frame. Blocks for up to 30 seconds. The code of a failure to
   send is a socket error. */
VErrLink* SendMessageOnSocket(CFSocketRef socket, CFDictionaryRef message);
VErrLink* SendDataOnSocket(CFSocketRef socket, CFDataRef payload);

/* Receives a chunk of the reply; info is the SocketInfo. A connection that the server closed makes
   a reply with kVErrCodeConnectionLost and stops the run loop. Logs its errors. */
void ServerMessageSocketCallBack(CFSocketRef socket, CFSocketCallBackType type, CFDataRef address,
                                 const void* data, void* info);

/* Adds a chunk to the reply. If that completes the reply, sets *reply, which the caller owns, and
   stops the run loop. Bytes behind the reply are ignored: the connection is closed after it. */
VErrLink* HandleChangerServerSocketData(CFDataRef data, CFDictionaryRef* reply, SocketInfo* info);

/* Stops the run loop; info is the `reply` of the SocketInfo. If there is no reply yet, makes one
   with kVErrCodeReplyTimeout. Logs its errors. */
void HandleSocketTimeout(CFRunLoopTimerRef timer, void* info);

/* Makes a reply that reports an error. The caller owns it; NULL on failure. */
VErrLink* CreateErrReplyDict(VErrCode code, const char* message, CFMutableDictionaryRef* dict);

/* Sets *replyErr to the error that a reply reports, as a chain; NULL for success. The server's text
   is read as a format without arguments: "%%" means "%", any other text means itself. */
VErrLink* GetMessageReplyErr(CFDictionaryRef reply, VErrLink** replyErr);

#endif
