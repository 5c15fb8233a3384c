/* Failures of libmount and fmemopen() without memory, which the fault sweeps do not reach. */

#include "disks/MountMonitor.h"
#include "disks/MountTable.h"

#include <gtest/gtest.h>

#include <libmount.h>

#include <cerrno>
#include <cstdio>
#include <string>

namespace {

std::string g_refused; // the function that fails

constexpr const char* kTable = "27 1 254:0 / / rw,relatime - ext4 /dev/vda rw,discard\n";

class LibmountFaults : public testing::Test {
protected:
    ~LibmountFaults() override {
        g_refused.clear();
    }
};

TEST_F(LibmountFaults, MountTableIsRefusedIfNoParserCanBeCreated) {
    EXPECT_TRUE(disks::ParseMountTable(kTable));
    for (const char* function : {"fmemopen", "mnt_new_table", "mnt_new_iter"}) {
        g_refused = function;
        EXPECT_FALSE(disks::ParseMountTable(kTable)) << function;
    }
}

TEST_F(LibmountFaults, MonitorThatCannotBeCreatedOrEnabledHasNoDescriptor) {
    EXPECT_GE(disks::MountMonitor().Descriptor(), 0);
    for (const char* function : {"mnt_new_monitor", "mnt_monitor_enable_kernel"}) {
        g_refused = function;
        disks::MountMonitor monitor;
        EXPECT_LT(monitor.Descriptor(), 0) << function;
        EXPECT_FALSE(monitor.ConsumeChanges()) << function;
    }
}

} // namespace

extern "C" {
FILE* __real_fmemopen(void* memory, size_t size, const char* mode);
libmnt_table* __real_mnt_new_table(void);
libmnt_iter* __real_mnt_new_iter(int direction);
libmnt_monitor* __real_mnt_new_monitor(void);
int __real_mnt_monitor_enable_kernel(libmnt_monitor* monitor, int enable);

FILE* __wrap_fmemopen(void* memory, size_t size, const char* mode) {
    return g_refused == "fmemopen" ? nullptr : __real_fmemopen(memory, size, mode);
}

libmnt_table* __wrap_mnt_new_table(void) {
    return g_refused == "mnt_new_table" ? nullptr : __real_mnt_new_table();
}

libmnt_iter* __wrap_mnt_new_iter(int direction) {
    return g_refused == "mnt_new_iter" ? nullptr : __real_mnt_new_iter(direction);
}

libmnt_monitor* __wrap_mnt_new_monitor(void) {
    return g_refused == "mnt_new_monitor" ? nullptr : __real_mnt_new_monitor();
}

int __wrap_mnt_monitor_enable_kernel(libmnt_monitor* monitor, int enable) {
    return g_refused == "mnt_monitor_enable_kernel"
               ? -EINVAL
               : __real_mnt_monitor_enable_kernel(monitor, enable);
}
}
