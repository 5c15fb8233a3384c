#ifndef TESTS_UNIT_TRAYPROBED_FILESYSTEMSEAMS_H
#define TESTS_UNIT_TRAYPROBED_FILESYSTEMSEAMS_H

/*
 * Directories opened, listed and looked into, watched: each listing is noted in the journal as
 * "list PATH", with "." for the tree's root, and " (locked)" behind it when the calling thread
 * holds the state lock. As root may read everything, failures are made here.
 */

#include "support/NotCopyable.h"

#include <climits>
#include <functional>
#include <string>

/* One at a time. Paths are relative to the root: "./a/b". */
class FileSystemSeams : NotCopyable {
public:
    explicit FileSystemSeams(const std::string& root);
    ~FileSystemSeams();

    // Every opening, or so many; the next ones then succeed.
    static void FailOpening(const std::string& path, int error, int times = INT_MAX);
    static void FailListing(const std::string& path, int error);
    static void FailStatus(const std::string& path, int error);
    // Whether it is a media root cannot be told, which never happens by itself.
    static void FailMediaTest(const std::string& path);
    // The one directory is the other's, as a mount would have it.
    static void PretendSame(const std::string& path, const std::string& other);
    // The one directory has the other's inode number, on a device of its own.
    static void PretendSameInode(const std::string& path, const std::string& other);
    // Called behind each opening of a directory below the top.
    static void OnOpening(std::function<void()> function);
    // Called before each listing.
    static void OnListing(std::function<void(const std::string& path)> function);
    // Called behind each look at an entry.
    static void OnStatus(std::function<void(const std::string& path)> function);
};

#endif
