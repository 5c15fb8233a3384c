#ifndef TESTBED_SANDBOX_H
#define TESTBED_SANDBOX_H

/*
 * A world of its own for one run of the daemon: processes, mounts, /tmp, /dev and system log that
 * nobody else sees, since the daemon finds its server by process name, its sockets in /tmp and its
 * file systems in the mount table, all of which are the whole machine's.
 *
 *   caller
 *     └─ a process that enters the namespaces, for its children only
 *          └─ process 1 of the world: prepares the mounts, then reaps whoever nobody else waits for
 *               └─ the body: starts servers and daemons
 *
 * Each dies with the one above it. When process 1 dies, the kernel kills what is left and drops the
 * mounts.
 */

#include <functional>
#include <string>

namespace testbed {

/* Runs body in a private world and returns its result, which is to be the caller's exit status.
   Where this machine permits no such world, says on standard error what is missing. The caller has
   no threads. */
int RunInSandbox(const std::function<int()>& body);

inline constexpr int kNoSandbox = 125; // the result then

/* Inside a private world: unmounts whatever is mounted on /tmp or below it, and starts with an
   empty one. Files that are still open there stay open. */
void RemountTmp();

/* A program of this build, such as "trayprobed", as the private world sees it: its /tmp may hide
   the folder that the program was built in. */
std::string ProgramPath(const std::string& name);

} // namespace testbed

#endif
