#ifndef SIMULATOR_CHANGERFILESYSTEM_H
#define SIMULATOR_CHANGERFILESYSTEM_H

/*
 * The mounted file system of one changer: a media root for each identified partition.
 *
 * Four threads receive requests from the kernel, one at a time, and answer most of them at once. A
 * request that needs the disc (listing a directory that is not cached, reading a file) is passed to
 * the changer and answered by its callback. Pending listings therefore occupy no thread.
 *
 * Inode numbers: 1 is the root, 2 the root's info file, V << 32 | E entry E of volume V, and
 * V << 32 | 0xFFFFFFFF the volume's info file. Volume ids are unique, so an inode number that the
 * kernel has kept may be stale, but never means another file.
 */

#include "simulator/Changer.h"
#include "simulator/Descriptor.h"
#include "simulator/FileSystemOperations.h"

#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace simulator {

class ChangerFileSystem {
public:
    // Mounts the file system and starts its threads. Creates the mount point if it is missing, and
    // unmounts what a killed simulator left there. Throws CommandError on failure. `changer` and
    // `events` must outlive the object.
    ChangerFileSystem(Changer& changer, const FileSystemOptions& options, Events& events);
    // Fails the pending requests with EIO and unmounts, even if the file system is in use.
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
    FileSystemOperations operations_;
    std::unique_ptr<fuse_session, FreeSession> session_;
    WakeEvent stop_;
    std::mutex receiveLock_; // held by the thread that waits for the next request
    std::vector<std::jthread> threads_;
};

} // namespace simulator

#endif
