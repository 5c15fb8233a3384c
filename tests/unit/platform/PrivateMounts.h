#ifndef TESTS_PRIVATEMOUNTS_H
#define TESTS_PRIVATEMOUNTS_H

/* Mounts that only the test program sees, among them volumes whose server does not answer. */

#include "support/NotCopyable.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <linux/fuse.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <thread>

/* Enters a mount namespace of the process, once and before threads exist. False if not permitted.
 */
inline bool EnterPrivateMounts() {
    static const bool entered = unshare(CLONE_NEWNS) == 0 &&
                                mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
    return entered;
}

/* A directory with a tmpfs of its own, and mounts below it by relative path. */
class PrivateMounts : NotCopyable {
public:
    PrivateMounts() {
        char name[] = "/tmp/mounts.XXXXXX";
        root_ = mkdtemp(name);
        EXPECT_EQ(mount("private", root_.c_str(), "tmpfs", 0, nullptr), 0) << strerror(errno);
    }
    ~PrivateMounts() {
        umount2(root_.c_str(), MNT_DETACH);
        std::filesystem::remove(root_);
    }

    std::string Path(const std::string& name) const {
        return root_ / name;
    }
    void Mount(const std::string& name) const {
        Place(name);
        EXPECT_EQ(mount("none", Path(name).c_str(), "tmpfs", 0, nullptr), 0) << strerror(errno);
    }
    void Bind(const std::string& from, const std::string& to) const {
        Place(to);
        EXPECT_EQ(mount(Path(from).c_str(), Path(to).c_str(), nullptr, MS_BIND, nullptr), 0);
    }
    void Move(const std::string& from, const std::string& to) const {
        Place(to);
        EXPECT_EQ(mount(Path(from).c_str(), Path(to).c_str(), nullptr, MS_MOVE, nullptr), 0);
    }
    // Succeeds while the mount is in use.
    void Unmount(const std::string& name) const {
        EXPECT_EQ(umount2(Path(name).c_str(), MNT_DETACH), 0) << strerror(errno);
    }
    void Place(const std::string& name) const {
        std::filesystem::create_directories(Path(name));
    }

private:
    std::filesystem::path root_;
};

/* A user space file system whose server replies to nothing before Answer(). */
class HungVolume : NotCopyable {
public:
    HungVolume(const PrivateMounts& mounts, const std::string& name)
        : device_(open("/dev/fuse", O_RDWR | O_CLOEXEC)) {
        mounts.Place(name);
        const auto options =
            "fd=" + std::to_string(device_) + ",rootmode=40000,user_id=0,group_id=0,allow_other";
        mounted_ = mount("hung", mounts.Path(name).c_str(), "fuse.hung", 0, options.c_str()) == 0;
    }
    // Pending calls then fail. Unmount first if Answer() was called.
    ~HungVolume() {
        if (server_.joinable())
            server_.join();
        if (device_ >= 0)
            close(device_);
    }

    bool IsMounted() const {
        return mounted_;
    }
    // Replies until the volume is unmounted: all replies but the first are errors.
    void Answer() {
        server_ = std::thread([this] {
            std::array<char, FUSE_MIN_READ_BUFFER + 1024 * 128> request;
            while (read(device_, request.data(), request.size()) > 0)
                Reply(*reinterpret_cast<const fuse_in_header*>(request.data()));
        });
    }

private:
    void Reply(const fuse_in_header& request) const {
        if (request.opcode == FUSE_FORGET || request.opcode == FUSE_BATCH_FORGET)
            return;
        struct {
            fuse_out_header header;
            fuse_init_out init;
        } reply = {};
        reply.header.unique = request.unique;
        if (request.opcode == FUSE_INIT) {
            reply.header.len = sizeof reply;
            reply.init.major = FUSE_KERNEL_VERSION;
            reply.init.minor = FUSE_KERNEL_MINOR_VERSION;
            reply.init.max_write = 4096;
        } else {
            reply.header.len = sizeof reply.header;
            reply.header.error = -EIO;
        }
        EXPECT_GE(write(device_, &reply, reply.header.len), 0) << strerror(errno);
    }

    const int device_;
    bool mounted_ = false;
    std::thread server_;
};

#endif
