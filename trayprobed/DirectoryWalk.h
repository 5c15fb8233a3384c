#ifndef TRAYPROBED_DIRECTORYWALK_H
#define TRAYPROBED_DIRECTORYWALK_H

/*
 * A depth-first walk of a directory tree, by open directories: a name is looked up in the open
 * directory that contains it, and symbolic links below the top are not followed. At most 63
 * directories stay open, and one more for a moment. A deeper directory is closed while the walk is
 * below it; it is opened again, by path, for the rest of its names.
 *
 * The caller recurses. It reads all names of a directory on entry, then goes from one subdirectory
 * to the next; each WalkedDirectory is on the caller's stack:
 *
 *     EnterDirectory(walk, here);
 *     while (FindSubdirectory(walk, here, &child))
 *         ... recurse for the child ...
 *     LeaveDirectory(here);
 *
 * There are no locks: a walk belongs to one thread. A DirectoryWalk and a WalkedDirectory in use
 * must not be moved. Every function may block as long as the file system does.
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

/* A directory between the top and the present place of the walk. Device and inode identify it: a
   path that was cut may name a parent, and a parent may be mounted below itself; entering it again
   would never end. */
struct WalkedDirectory {
    WalkedDirectory* parent; // null for the top
    unsigned level;          // 0 for the top
    size_t nameOffset;       // of its name in the walk's path
    size_t pathLength;       // of its path in bytes
    dev_t device;
    ino_t inode;
    DIR* stream; // null while it is closed
    DirectoryNames names;
    int error; // errno of opening it, of reading its names or of opening it again; 0 for none
};

/* Initialises the walk at path; if that is a symbolic link, the walk is in the directory behind it.
   Opens nothing. */
void BeginWalk(DirectoryWalk* walk, const char* path, DirectoryFilter filter, WalkedDirectory* top);

/* Opens the directory and reads its names. Sets directory->error. Always pair with
   LeaveDirectory(). Precondition: walk->path is the path of the directory. */
void EnterDirectory(DirectoryWalk* walk, WalkedDirectory* directory);

/* Initialises *child as the next subdirectory, makes walk->path its path and returns true. At the
   end, or after an error, makes walk->path that of the directory and returns false. Skips a name
   that cannot be looked up, and a directory that the walk is in already. */
bool FindSubdirectory(DirectoryWalk* walk, WalkedDirectory* directory, WalkedDirectory* child);

/* Closes the directory and frees its remaining names. */
void LeaveDirectory(WalkedDirectory* directory);

#endif
