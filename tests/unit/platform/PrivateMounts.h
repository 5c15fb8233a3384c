#ifndef TESTS_PRIVATEMOUNTS_H
#define TESTS_PRIVATEMOUNTS_H

/* Mounts that only the test program sees, among them volumes whose server does not answer. */

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

/* An own mount namespace, entered once and before there are threads. False when not permitted. */
inline bool EnterPrivateMounts() {
    static const bool entered = unshare(CLONE_NEWNS) == 0 &&
                                mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
    return entered;
}

/* A folder with a file system of its own, and mounts in it by their names there. */
class MountStage {
public:
    MountStage() {
        char name[] = "/tmp/mounts.XXXXXX";
        root_ = mkdtemp(name);
        EXPECT_EQ(mount("stage", root_.c_str(), "tmpfs", 0, nullptr), 0) << strerror(errno);
    }
    MountStage(const MountStage&) = delete;
    MountStage& operator=(const MountStage&) = delete;
    ~MountStage() {
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
    // Whoever is inside just now does not keep it from going.
    void Unmount(const std::string& name) const {
        EXPECT_EQ(umount2(Path(name).c_str(), MNT_DETACH), 0) << strerror(errno);
    }
    void Place(const std::string& name) const {
        std::filesystem::create_directories(Path(name));
    }

private:
    std::filesystem::path root_;
};

/* A user space file system whose server does not answer before it is told to. */
class HungVolume {
public:
    HungVolume(const MountStage& stage, const std::string& name)
        : device_(open("/dev/fuse", O_RDWR | O_CLOEXEC)) {
        stage.Place(name);
        const auto options =
            "fd=" + std::to_string(device_) + ",rootmode=40000,user_id=0,group_id=0,allow_other";
        mounted_ = mount("hung", stage.Path(name).c_str(), "fuse.hung", 0, options.c_str()) == 0;
    }
    HungVolume(const HungVolume&) = delete;
    HungVolume& operator=(const HungVolume&) = delete;
    // Whoever still waits then gets an error. Unmount it first if it was told to answer.
    ~HungVolume() {
        if (server_.joinable())
            server_.join();
        if (device_ >= 0)
            close(device_);
    }

    bool IsMounted() const {
        return mounted_;
    }
    // From now until it is unmounted. The answers are errors, but for the first.
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
