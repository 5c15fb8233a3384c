#ifndef TRAYPROBED_DIRECTORYWALK_H
#define TRAYPROBED_DIRECTORYWALK_H

/*
 * A walk down a directory tree and back, by open directories: each name is looked up in the
 * directory that has it, and links are not followed. At most 63 directories are kept open, one more
 * for a moment; beyond that, a directory is closed while the walk is below it, and opened again by
 * path for what it has left.
 *
 * A walker lists each directory whole when it enters it, then goes from one of its subdirectories
 * to the next, each on a frame of the walker's own stack:
 *
 *     EnterDirectory(walk, here);
 *     while (FindSubdirectory(walk, here, &child))
 *         ... the walker itself, for the child ...
 *     LeaveDirectory(here);
 *
 * A walk is a thread's own, and stays where it is in memory as long as it goes on.
 */

#include "common/PathBuffer.h"
#include "trayprobed/DirectoryNames.h"

#include <dirent.h>
#include <sys/types.h>

/* One per walk. */
struct DirectoryWalk {
    PathBuffer path; // of the directory where the walk is
    DirectoryFilter filter;
    size_t nameBudget; // bytes left for names
};

/* A directory on the way down. It is known by its identity, since a path that was cut may name one
   of its own parents, and a parent may be mounted below itself: entering it again would not end. */
struct WalkedDirectory {
    WalkedDirectory* parent;
    unsigned level;
    size_t nameAt; // where its name begins in the walk's path
    size_t pathLength;
    dev_t device;
    ino_t inode;
    DIR* stream; // null where it is closed for now
    DirectoryNames names;
    int error; // of its listing, or of opening it again; 0 when all is well
};

/* The top is followed if it is a link. Nothing is opened yet. */
void BeginWalk(DirectoryWalk* walk, const char* path, DirectoryFilter filter, WalkedDirectory* top);

/* Opens and lists it, while the walk's path is its own; its error tells how that went. However it
   went, LeaveDirectory follows. */
void EnterDirectory(DirectoryWalk* walk, WalkedDirectory* directory);

/* The next subdirectory, whose path the walk's becomes; at the end false, and the path is the
   directory's own again. What cannot be looked at, and what is on the way down already, is passed
   over. */
bool FindSubdirectory(DirectoryWalk* walk, WalkedDirectory* directory, WalkedDirectory* child);

/* Frees what is left of it. */
void LeaveDirectory(WalkedDirectory* directory);

#endif
