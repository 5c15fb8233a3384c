#ifndef SIMULATOR_CHANGERFILESYSTEM_H
#define SIMULATOR_CHANGERFILESYSTEM_H

/*
 * The mounted file system of one changer: a media root for each identified partition.
 *
 * A few threads take requests from the kernel, one at a time, and answer most of them at once. What
 * needs the disc (listing a directory that is not cached, reading a file) is handed to the changer
 * and answered from wherever the disc arrives, so that no number of waiting listings blocks
 * another.
 *
 * Inode numbers: 1 is the root, 2 its info file; the entry E of the volume V is V << 32 | E, and
 * the volume's info file V << 32 | 0xFFFFFFFF. Volume numbers are never used again, so an inode
 * that the kernel still remembers is at worst stale.
 */

#include "simulator/Changer.h"
#include "simulator/Descriptor.h"

#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

struct fuse_buf;
struct fuse_session;

namespace simulator {

class FileSystemOperations;

struct FileSystemOptions {
    std::string mountPoint;
    bool binaryInfo = false;  // format of the info files
    bool kernelCache = false; // the kernel may keep listings and attributes of discs
};

class ChangerFileSystem {
public:
    // Mounted and answering when this returns. Makes the mount point if it is missing, and takes
    // away what a killed predecessor left mounted there. Throws CommandError.
    ChangerFileSystem(Changer& changer, const FileSystemOptions& options, Events& events);
    // Unmounts, whoever still uses it.
    ~ChangerFileSystem();

private:
    void Serve();
    bool ReceiveAndProcess(fuse_buf& buffer);

    struct FreeSession {
        void operator()(fuse_session* session) const;
    };

    Changer& changer_;
    const FileSystemOptions options_;
    Events& events_;
    bool madeMountPoint_ = false;
    std::unique_ptr<FileSystemOperations> operations_;
    std::unique_ptr<fuse_session, FreeSession> session_;
    WakeEvent stop_;
    std::mutex receiveLock_; // whose turn it is to wait for the kernel's next request
    std::vector<std::jthread> threads_;
};

} // namespace simulator

#endif
