#ifndef SIMULATOR_FILESYSTEMOPERATIONS_H
#define SIMULATOR_FILESYSTEMOPERATIONS_H

/* The answers of the changer file system to the requests of the kernel. */

#include "simulator/Changer.h"

#define FUSE_USE_VERSION 312
#include <fuse_lowlevel.h>

#include <sys/stat.h>
#include <sys/types.h>

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace simulator {

struct FileSystemOptions {
    std::string mountPoint;
    bool binaryInfo = false;  // info files are binary property lists, not XML
    bool kernelCache = false; // the kernel may cache listings and attributes of discs
};

/* The operations for fuse_session_new(); its user data must be a FileSystemOperations. */
const fuse_lowlevel_ops& FuseOperations();

/* One file or directory; found by its number for each request. */
struct Inode {
    fuse_ino_t number = 0;
    std::shared_ptr<const Volume> volume; // null: the root or the info file of the root
    EntryIndex entry = 0;                 // within the volume
    bool isInfoFile = false;

    // True for the root of the file system.
    bool IsRoot() const {
        return !volume && !isInfoFile;
    }
};

/* The listing of an open directory, made when it was opened. */
struct OpenDirectory {
    struct Item {
        std::string_view name;
        fuse_ino_t number;
        mode_t mode;
    };
    std::vector<Item> items;
    std::vector<std::shared_ptr<const Volume>> keepsNames; // owners of the names in `items`
};

/* One handler per kind of request. Each handler replies to `request` exactly once; only OpenFolder
   and OpenFile may reply later, from another thread, and none of them blocks for a disc. Any thread
   may call. A handler may throw; the operations of FuseOperations() reply with an error then. */
class FileSystemOperations {
public:
    // The arguments must outlive the object.
    FileSystemOperations(Changer& changer, const FileSystemOptions& options, Events& events)
        : changer_(changer), options_(options), events_(events) {}

    // Replies with the number and the attributes of an entry of `parent`, or ENOENT.
    void Lookup(fuse_req_t request, fuse_ino_t parent, const char* name);
    // Reply with the attributes, or with the target of a symbolic link.
    void ReadAttributes(fuse_req_t request, fuse_ino_t number);
    void ReadLink(fuse_req_t request, fuse_ino_t number);
    // Replies when the directory is cached.
    void OpenFolder(fuse_req_t request, fuse_ino_t number, const fuse_file_info& file);
    // Reply from the listing that OpenFolder made; CloseFolder frees the listing.
    void ReadFolder(fuse_req_t request, size_t size, off_t offset, const fuse_file_info& file);
    void CloseFolder(fuse_req_t request, const fuse_file_info& file);
    // Replies when the disc is in a drive; EROFS if the file is opened for writing.
    void OpenFile(fuse_req_t request, fuse_ino_t number, const fuse_file_info& file);
    // Replies with up to `size` bytes from `offset`.
    void ReadFile(fuse_req_t request, fuse_ino_t number, size_t size, off_t offset);

    // Blocks until no reply is pending. The changer must fail or serve the waiters.
    void WaitUntilAnswered();

private:
    Changer::Callback AnswerWhenReady(fuse_req_t request, std::function<void()> answer);
    std::optional<Inode> Find(fuse_ino_t number) const;
    std::optional<Inode> FindChild(const Inode& parent, std::string_view name) const;
    std::optional<Inode> FindInRoot(std::string_view name) const;
    struct stat Describe(const Inode& inode) const;
    double CacheTimeout(const Inode& inode) const;
    std::string MakeInfoFile(const Inode& inode) const;
    OpenDirectory ListRoot() const;
    static OpenDirectory ListVolume(const Inode& inode);
    void ReplyOpenFolder(fuse_req_t request, fuse_file_info file, OpenDirectory directory);
    OpenDirectory& FindOpen(const fuse_file_info& file);

    Changer& changer_;
    const FileSystemOptions& options_;
    Events& events_;

    std::mutex lock_;                             // guards the members below
    std::map<std::uint64_t, OpenDirectory> open_; // by file handle
    std::uint64_t lastHandle_ = 0;
    std::condition_variable answered_;
    unsigned waiting_ = 0;
};

} // namespace simulator

#endif
