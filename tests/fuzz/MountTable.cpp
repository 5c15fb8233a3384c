/* The kernel's mount table: paths and sources are untrusted input from any user who may mount. */

#include "disks/MountTable.h"

#include "Target.h"
#include "disks/Volumes.h"

#include <gtest/gtest.h>

#include <sys/sysmacros.h>
#include <sys/types.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace {

using disks::Mount;

// The kernel's format: blanks, tabs, line ends and backslashes in octal.
std::string Escaped(const std::string& text) {
    std::string escaped = text;
    for (std::size_t i = 0; (i = escaped.find_first_of(" \t\n\\", i)) != text.npos; ++i) {
        std::array<char, 5> octal;
        std::snprintf(octal.data(), octal.size(), "\\%03o", escaped[i]);
        escaped.replace(i, 1, octal.data());
    }
    return escaped;
}

// Contains every field, so different mounts have different lines.
std::string LineOf(const Mount& mount) {
    return std::to_string(mount.id) + " " + std::to_string(mount.parent) + " " +
           std::to_string(major(mount.device)) + ":" + std::to_string(minor(mount.device)) + " " +
           Escaped(mount.root) + " " + Escaped(mount.path) + " rw - " + Escaped(mount.type) + " " +
           Escaped(mount.source) + " rw\n";
}

// An empty source cannot be distinguished from one that libmount reads as a label.
bool IsWritable(const Mount& mount) {
    return !mount.root.empty() && !mount.path.empty() && !mount.type.empty() &&
           !mount.source.empty();
}

void ExpectSameWhenWrittenAgain(const Mount& mount) {
    const auto again = disks::ParseMountTable(LineOf(mount));
    EXPECT_TRUE(again.has_value()) << LineOf(mount);
    EXPECT_EQ(again->size(), 1U);
    EXPECT_EQ(LineOf(again->front()), LineOf(mount));
}

// Each volume must be one of the mounts, in their order, and no two may have the same files.
void ExpectVolumesOf(const disks::MountTable& mounts) {
    const std::vector<disks::Volume> volumes = disks::VolumesOf(mounts, {});
    std::set<std::pair<dev_t, std::string>> seen;
    auto next = mounts.begin();
    for (const disks::Volume& volume : volumes) {
        EXPECT_TRUE(seen.emplace(volume.device, volume.root).second) << volume.path;
        next = std::find_if(next, mounts.end(), [&](const Mount& mount) {
            return mount.path == volume.path && mount.device == volume.device &&
                   mount.root == volume.root && mount.source == volume.source;
        });
        EXPECT_TRUE(next != mounts.end()) << volume.path;
    }
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const auto mounts = disks::ParseMountTable(std::string(TextOfInput(data, size)));
    if (!mounts)
        return 0;
    for (const Mount& mount : *mounts)
        if (IsWritable(mount))
            ExpectSameWhenWrittenAgain(mount);
    ExpectVolumesOf(*mounts);
    return 0;
}
