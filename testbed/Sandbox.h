#ifndef TESTBED_SANDBOX_H
#define TESTBED_SANDBOX_H

/*
 * A sandbox for one run of the daemon: private namespaces with their own process table, mount
 * table, /tmp, /dev and system log. The daemon finds its server by process name, its sockets in
 * /tmp and its file systems in the mount table; outside a sandbox it would find those of the whole
 * machine.
 *
 *   caller
 *     └─ a process that creates the namespaces for its children
 *          └─ process 1 of the sandbox: prepares the mounts, then reaps orphans
 *               └─ the body: starts servers and daemons
 *
 * Each process is killed when its parent ends. When process 1 ends, the kernel kills all remaining
 * processes of the sandbox and removes its mounts.
 */

#include <functional>
#include <string>

namespace testbed {

/* Runs `body` in a sandbox and returns its result, an exit status. If the sandbox cannot be set up,
   or the body throws, writes the reason to standard error and returns kNoSandbox. Precondition:
   this process has one thread. Blocks until the body ends. */
int RunInSandbox(const std::function<int()>& body);

inline constexpr int kNoSandbox = 125;

/* Inside a sandbox: replaces /tmp and all mounts below it by an empty tmpfs. Open files there
   remain usable. Throws Failure on errors. */
void RemountTmp();

/* Inside a sandbox: lets the mount namespaces that processes of the sandbox create later receive
   the mounts that follow. A mount below a shared one cannot be moved. Throws Failure on errors. */
void ShareMounts();

/* Inside a sandbox: returns the path of a file in this build's folder of programs, such as
   "trayprobed". The original path may be hidden by the sandbox's /tmp. */
std::string ProgramPath(const std::string& name);

} // namespace testbed

#endif
