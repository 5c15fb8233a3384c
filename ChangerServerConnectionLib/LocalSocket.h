#ifndef CHANGERSERVERCONNECTIONLIB_LOCALSOCKET_H
#define CHANGERSERVERCONNECTIONLIB_LOCALSOCKET_H

/* Connecting to one of the server's local stream sockets. */

#include <CoreFoundation/CoreFoundation.h>

#include <sys/socket.h>
#include <sys/un.h>

/* What a local address holds, terminator included. */
constexpr size_t kLocalSocketPathSize = sizeof(sockaddr_un::sun_path);

/* Seconds that connecting and sending may each take. */
constexpr CFTimeInterval kServerSocketTimeout = 30.0;

/* The address of that path as a data object, owned by the caller; null when memory is short. */
CFDataRef CreateLocalSocketAddress(const char* path);

/* A connected socket, owned by the caller, whose data callback gets info; null on failure. */
CFSocketRef CreateConnectedLocalSocket(CFDataRef address, CFSocketCallBack callout, void* info);

/* Closes the connection and gives up the caller's reference; null is ignored. */
void CloseLocalSocket(CFSocketRef socket);

#endif
