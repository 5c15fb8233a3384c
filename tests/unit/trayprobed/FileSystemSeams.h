#ifndef TESTS_UNIT_TRAYPROBED_FILESYSTEMSEAMS_H
#define TESTS_UNIT_TRAYPROBED_FILESYSTEMSEAMS_H

/*
 * Records and fails calls on directories. The journal shows each listing as "list PATH", with "."
 * for the tree's root, followed by " (locked)" if the calling thread holds the state lock. Tests
 * may run as root, which may read everything; so calls fail here.
 */

#include "support/NotCopyable.h"

#include <climits>
#include <functional>
#include <map>
#include <string>

/* The behaviour of the next calls. One object at a time. Paths are relative to the root: "./a/b".
 */
struct FileSystemSeams : NotCopyable {
    explicit FileSystemSeams(std::string itsRoot);
    ~FileSystemSeams();

    const std::string root;
    // The errno of failing calls, by path.
    std::map<std::string, int> openingErrors;
    std::map<std::string, int> listingErrors;
    std::map<std::string, int> statusErrors;
    int openingFailures = INT_MAX; // after so many, no opening fails
    // The path whose test for a media root fails. The real function never fails.
    std::string failingMediaTest;
    // fstatat() of the first path returns the status of the second, as if that were mounted there.
    std::map<std::string, std::string> sameAs;
    // The first path has the inode number of the second, on another device.
    std::map<std::string, std::string> sameInodeAs;
    std::function<void()> onOpening; // called after each opening of a directory below the top
    std::function<void(const std::string& path)> onListing; // called before each listing
    std::function<void(const std::string& path)> onStatus;  // called after fstatat() of an entry
};

#endif
