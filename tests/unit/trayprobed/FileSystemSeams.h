#ifndef TESTS_UNIT_TRAYPROBED_FILESYSTEMSEAMS_H
#define TESTS_UNIT_TRAYPROBED_FILESYSTEMSEAMS_H

/*
 * Records and fails calls on directories. The journal shows each listing as "list PATH", with "."
 * for the tree's root, followed by " (locked)" if the calling thread holds the state lock. Tests
 * may run as root, which may read everything: failures are made here.
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

    // The next `times` openings fail with that errno.
    static void FailOpening(const std::string& path, int error, int times = INT_MAX);
    static void FailListing(const std::string& path, int error);
    static void FailStatus(const std::string& path, int error);
    // The test for a media root fails. The real function never fails.
    static void FailMediaTest(const std::string& path);
    // fstatat() of `path` returns the status of `other`, as if `other` were mounted there.
    static void PretendSame(const std::string& path, const std::string& other);
    // `path` has the inode number of `other`, on another device.
    static void PretendSameInode(const std::string& path, const std::string& other);
    // The function is called after each opening of a directory below the top.
    static void OnOpening(std::function<void()> function);
    // The function is called before each listing.
    static void OnListing(std::function<void(const std::string& path)> function);
    // The function is called after each fstatat() of an entry.
    static void OnStatus(std::function<void(const std::string& path)> function);
};

#endif
