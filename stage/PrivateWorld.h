#ifndef STAGE_PRIVATEWORLD_H
#define STAGE_PRIVATEWORLD_H

// A world of its own for one run of the daemon: processes, mounts, /tmp, /dev and system log that
// nobody else sees, since the daemon finds its server by process name, its sockets in /tmp and its
// file systems in the mount table, all of which are the whole machine's.
//
//   caller ── waits; when it dies, the kernel ends the world
//     └─ process 1 of the world ── prepares the mounts, then reaps whoever nobody else waits for
//          └─ the body ── forks servers and daemons
//
// When the body ends, process 1 ends, and the kernel kills what is left and drops the mounts.

#include <functional>
#include <string>

namespace stage {

// Runs body in a private world and returns its result, to be used as exit status. Throws Failure,
// which says what is missing, when this machine permits no such world. The caller has no threads.
int RunInPrivateWorld(const std::function<int()>& body);

// A program of this build, such as "trayprobed", as the private world sees it: its /tmp may hide
// the folder that the program was built in.
std::string ProgramPath(const std::string& name);

} // namespace stage

#endif
