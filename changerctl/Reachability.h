#ifndef CHANGERCTL_REACHABILITY_H
#define CHANGERCTL_REACHABILITY_H

/* Why the changer server cannot be reached: the connection library only reports that it cannot. */

#include <optional>
#include <string>

namespace changerctl {

/* The server's sockets. */
enum class ServerSocket { Messages, Notifications };

/* The path of the socket of the server that runs now. Throws Failure if none runs. */
std::string SocketPath(ServerSocket which);

/* Throws Failure with ExitStatus::NoServer and the reason if no server runs, if it has no socket
   yet, or if this user may not connect to the socket. Does not connect, and does not block. */
void RequireReachable(ServerSocket which);

/* Does the same, and connects once: after a failure, to tell its reason. Blocks for up to 30
   seconds. */
void RequireConnection(ServerSocket which);

} // namespace changerctl

#endif
