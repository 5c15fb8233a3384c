#include "ManyMounts.h"

#include "testbed/Failure.h"

#include <sys/mount.h>
#include <sys/stat.h>

#include <filesystem>
#include <system_error>

namespace bench {

ManyMounts::ManyMounts() {
    std::filesystem::create_directory(root_);
    testbed::Require(mount("volumes", root_.c_str(), "tmpfs", 0, nullptr) == 0,
                     "cannot mount a tmpfs");
}

ManyMounts::~ManyMounts() {
    umount2(root_.c_str(), MNT_DETACH); // including the mounts in it
    std::error_code ignored;            // the sandbox ends with its mounts
    std::filesystem::remove(root_, ignored);
}

void ManyMounts::GrowTo(std::size_t count) {
    for (; count_ < count; ++count_) {
        const std::string path = root_ + "/" + std::to_string(count_);
        testbed::Require(mkdir(path.c_str(), 0700) == 0 &&
                             mount(path.c_str(), path.c_str(), nullptr, MS_BIND, nullptr) == 0,
                         "cannot mount a volume");
    }
}

} // namespace bench
