/*
 * The process table, from /proc: its numbered entries are the thread group leaders.
 *
 * The folder is opened when the program starts, and stays open: that there are processes can then
 * be told without a descriptor to spare. A process whose name takes one that is not to be had is
 * left out, as is one that hides it.
 */

#include "processes/ProcessTable.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <mutex>
#include <system_error>

namespace process {

namespace {

// Neither has a destructor: threads may outlive main.
constinit std::mutex g_mutex; // for who reads the folder
DIR* g_folder = opendir("/proc");

// The process whose directory has this name, or 0.
pid_t ProcessOf(const char* name) noexcept {
    pid_t process = 0;
    const char* const end = name + std::strlen(name);
    const auto [rest, error] = std::from_chars(name, end, process);
    return error == std::errc() && rest == end ? process : 0;
}

// False when the process has gone, or its name cannot be read.
bool ReadCommandName(int root, pid_t process, char (&name)[MAXCOMLEN + 1]) noexcept {
    char path[sizeof "-2147483648/comm"];
    std::snprintf(path, sizeof path, "%d/comm", process);
    const int file = openat(root, path, O_RDONLY | O_CLOEXEC);
    if (file < 0)
        return false;
    const ssize_t length = read(file, name, MAXCOMLEN);
    close(file);
    if (length <= 0)
        return false;
    const bool hasNewline = name[length - 1] == '\n';
    name[hasNewline ? length - 1 : length] = '\0';
    return true;
}

int Count(DIR* folder, std::size_t& count) noexcept {
    std::size_t found = 0;
    errno = 0;
    while (const dirent* entry = readdir(folder))
        found += ProcessOf(entry->d_name) > 0 ? 1U : 0U;
    if (errno != 0)
        return errno;
    // Processes that start before the table is read must not make every second reading fail.
    count = found + found / 8 + 16;
    return 0;
}

int Fill(DIR* folder, kinfo_proc* records, std::size_t& count) noexcept {
    std::size_t filled = 0;
    for (;;) {
        errno = 0;
        const dirent* const entry = readdir(folder);
        if (entry == nullptr)
            break;
        kinfo_proc record = {};
        record.kp_proc.p_pid = ProcessOf(entry->d_name);
        if (record.kp_proc.p_pid <= 0 ||
            !ReadCommandName(dirfd(folder), record.kp_proc.p_pid, record.kp_proc.p_comm))
            continue;
        if (filled == count)
            return ENOMEM;
        records[filled++] = record;
    }
    if (errno != 0)
        return errno;
    // The kernel lists them in this order already, but nowhere promises it.
    std::ranges::sort(records, records + filled, {},
                      [](const kinfo_proc& record) { return record.kp_proc.p_pid; });
    count = filled;
    return 0;
}

int ReadKernelsTable(kinfo_proc* records, std::size_t& count) noexcept {
    const std::lock_guard lock(g_mutex);
    if (g_folder == nullptr)
        g_folder = opendir("/proc");
    return g_folder != nullptr ? ReadProcessTable(g_folder, records, count) : errno;
}

} // namespace

int ReadProcessTable(DIR* folder, kinfo_proc* records, std::size_t& count) noexcept {
    rewinddir(folder);
    return records == nullptr ? Count(folder, count) : Fill(folder, records, count);
}

} // namespace process

int sysctl(int* name, unsigned int nameLength, void* buffer, std::size_t* length, void* newValue,
           std::size_t) {
    constexpr int kAllProcesses[] = {CTL_KERN, KERN_PROC, KERN_PROC_ALL};
    if (!std::equal(name, name + nameLength, std::begin(kAllProcesses), std::end(kAllProcesses))) {
        errno = ENOENT;
        return -1;
    }
    if (newValue != nullptr) {
        errno = EPERM;
        return -1;
    }
    std::size_t count = *length / sizeof(kinfo_proc);
    const int error = process::ReadKernelsTable(static_cast<kinfo_proc*>(buffer), count);
    if (error != 0) {
        errno = error;
        return -1;
    }
    *length = count * sizeof(kinfo_proc);
    return 0;
}
