#ifndef CHANGERSERVERCONNECTIONLIB_LOCALSOCKET_H
#define CHANGERSERVERCONNECTIONLIB_LOCALSOCKET_H

/* Connecting to one of the server's local stream sockets. */

#include <CoreFoundation/CoreFoundation.h>

#include <sys/socket.h>
#include <sys/un.h>

/* Maximum size of a socket's path in bytes, terminator included. */
constexpr size_t kLocalSocketPathSize = sizeof(sockaddr_un::sun_path);

/* Time-out in seconds, for connecting and for each sending. */
constexpr CFTimeInterval kServerSocketTimeout = 30.0;

/* The socket address of the path, as a data object that the caller owns. A longer path is cut to
   kLocalSocketPathSize - 1 bytes. Null without memory. Any thread. */
CFDataRef CreateLocalSocketAddress(const char* path);

/* Connects a stream socket, which the caller owns and whose data callback gets info. Null on
   failure. Any thread; blocks for up to kServerSocketTimeout. */
CFSocketRef CreateConnectedLocalSocket(CFDataRef address, CFSocketCallBack callout, void* info);

/* Closes the connection and releases the socket; null is ignored. */
void CloseLocalSocket(CFSocketRef socket);

#endif
