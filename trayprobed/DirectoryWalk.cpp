#include "trayprobed/DirectoryWalk.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

constexpr unsigned kLevelsKeptOpen = 62; // the top included

// ---- opening ----

static int Open(int folder, const char* name, DIR** stream) {
    const int descriptor = openat(folder, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    *stream = descriptor >= 0 ? fdopendir(descriptor) : nullptr;
    const int error = *stream == nullptr ? errno : 0;
    if (descriptor >= 0 && error != 0)
        close(descriptor);
    return error;
}

static void Close(WalkedDirectory* directory) {
    if (directory->stream != nullptr)
        closedir(directory->stream);
    directory->stream = nullptr;
}

static bool HasIdentity(const WalkedDirectory* directory, const struct stat& status) {
    return directory->inode == status.st_ino && directory->device == status.st_dev;
}

// Follows a symbolic link: a mount path may be one.
static int OpenTop(const DirectoryWalk* walk, WalkedDirectory* top) {
    top->stream = opendir(walk->path.text);
    struct stat status = {};
    const int error = top->stream == nullptr || fstat(dirfd(top->stream), &status) != 0 ? errno : 0;
    top->device = status.st_dev;
    top->inode = status.st_ino;
    return error;
}

// Does not verify that the directory is still the one that FindSubdirectory() found: that would
// cost one fstat() for each directory, and the length of the path limits the depth anyway.
static int OpenChild(const DirectoryWalk* walk, WalkedDirectory* child) {
    const int error =
        Open(dirfd(child->parent->stream), walk->path.text + child->nameOffset, &child->stream);
    // The walk needs a deep parent again only after the child.
    if (error == 0 && child->parent->level >= kLevelsKeptOpen)
        Close(child->parent);
    return error;
}

// ENOENT if another directory is at the path now.
static int OpenAgain(const DirectoryWalk* walk, WalkedDirectory* directory) {
    int error = Open(AT_FDCWD, walk->path.text, &directory->stream);
    struct stat status = {};
    if (error == 0 && fstat(dirfd(directory->stream), &status) != 0)
        error = errno;
    else if (error == 0 && !HasIdentity(directory, status))
        error = ENOENT;
    return error;
}

// ---- the walk ----

void BeginWalk(DirectoryWalk* walk, const char* path, DirectoryFilter filter,
               WalkedDirectory* top) {
    SetPath(&walk->path, path);
    walk->filter = filter;
    walk->nameBudget = kNameBudget;
    *top = {};
    top->pathLength = walk->path.length;
}

void EnterDirectory(DirectoryWalk* walk, WalkedDirectory* directory) {
    directory->error =
        directory->parent == nullptr ? OpenTop(walk, directory) : OpenChild(walk, directory);
    if (directory->error == 0)
        directory->error = ListDirectoryNames(directory->stream, walk->filter, &walk->nameBudget,
                                              &directory->names);
}

static bool IsInPath(const WalkedDirectory* directory, const struct stat& status) {
    while (directory != nullptr && !HasIdentity(directory, status))
        directory = directory->parent;
    return directory != nullptr;
}

bool FindSubdirectory(DirectoryWalk* walk, WalkedDirectory* directory, WalkedDirectory* child) {
    PathBuffer* path = &walk->path;
    TruncatePath(path, directory->pathLength);
    while (const char* name = NextDirectoryName(&directory->names)) {
        if (directory->stream == nullptr)
            directory->error = OpenAgain(walk, directory);
        if (directory->error != 0)
            break;
        struct stat status = {};
        TruncatePath(path, directory->pathLength);
        const size_t nameOffset = AppendToPath(path, name);
        const int failed = fstatat(dirfd(directory->stream), path->text + nameOffset, &status,
                                   AT_SYMLINK_NOFOLLOW);
        if (failed || !S_ISDIR(status.st_mode) || IsInPath(directory, status))
            continue;
        *child = {};
        child->parent = directory;
        child->level = directory->level + 1;
        child->nameOffset = nameOffset;
        child->pathLength = path->length;
        child->device = status.st_dev;
        child->inode = status.st_ino;
        return true;
    }
    TruncatePath(path, directory->pathLength);
    return false;
}

void LeaveDirectory(WalkedDirectory* directory) {
    FreeDirectoryNames(&directory->names);
    Close(directory);
}
