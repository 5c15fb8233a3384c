#ifndef SIMULATOR_FILESYSTEMOPERATIONS_H
#define SIMULATOR_FILESYSTEMOPERATIONS_H

/* What the changer file system answers to each request of the kernel. */

#include "simulator/ChangerFileSystem.h"

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

/* The table for libfuse; the session's user data is a FileSystemOperations. */
const fuse_lowlevel_ops& FuseOperations();

/* One file or directory, looked up anew for each request. */
struct Inode {
    fuse_ino_t number = 0;
    std::shared_ptr<const Volume> volume; // none: the root or its info file
    EntryIndex entry = 0;                 // within the volume
    bool isInfoFile = false;

    bool IsRoot() const {
        return !volume && !isInfoFile;
    }
};

/* What an open directory lists, taken when it was opened. */
struct OpenDirectory {
    struct Item {
        std::string_view name;
        fuse_ino_t number;
        mode_t mode;
    };
    std::vector<Item> items;
    std::vector<std::shared_ptr<const Volume>> keepsNames;
};

class FileSystemOperations {
public:
    FileSystemOperations(Changer& changer, const FileSystemOptions& options, Events& events)
        : changer_(changer), options_(options), events_(events) {}

    void Lookup(fuse_req_t request, fuse_ino_t parent, const char* name);
    void GetAttributes(fuse_req_t request, fuse_ino_t number);
    void ReadLink(fuse_req_t request, fuse_ino_t number);
    void OpenFolder(fuse_req_t request, fuse_ino_t number, const fuse_file_info& file);
    void ReadFolder(fuse_req_t request, size_t size, off_t offset, const fuse_file_info& file);
    void CloseFolder(fuse_req_t request, const fuse_file_info& file);
    void OpenFile(fuse_req_t request, fuse_ino_t number, const fuse_file_info& file);
    void ReadFile(fuse_req_t request, fuse_ino_t number, size_t size, off_t offset);

    // Returns when nobody waits for a disc any more.
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

    std::mutex lock_;                             // of what follows
    std::map<std::uint64_t, OpenDirectory> open_; // by file handle
    std::uint64_t lastHandle_ = 0;
    std::condition_variable answered_;
    unsigned waiting_ = 0;
};

} // namespace simulator

#endif
