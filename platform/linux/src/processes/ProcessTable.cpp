/* The process table, from /proc: its numbered entries are the thread group leaders. */

#include "processes/ProcessTable.h"

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <memory>

namespace process {

namespace {

struct CloseDirectory {
    void operator()(DIR* directory) const noexcept {
        closedir(directory);
    }
};
using Directory = std::unique_ptr<DIR, CloseDirectory>;

// The process whose directory has this name, or 0.
pid_t ProcessOf(const char* name) noexcept {
    pid_t process = 0;
    const char* const end = name + std::strlen(name);
    const auto [rest, error] = std::from_chars(name, end, process);
    return error == std::errc() && rest == end ? process : 0;
}

// False when the process has gone, or hides its name.
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

int Count(DIR* directory, std::size_t& count) noexcept {
    std::size_t found = 0;
    errno = 0;
    while (const dirent* entry = readdir(directory))
        found += ProcessOf(entry->d_name) > 0 ? 1U : 0U;
    if (errno != 0)
        return errno;
    // Processes that start before the table is read must not make every second reading fail.
    count = found + found / 8 + 16;
    return 0;
}

int Fill(DIR* directory, kinfo_proc* records, std::size_t& count) noexcept {
    std::size_t filled = 0;
    for (;;) {
        errno = 0;
        const dirent* const entry = readdir(directory);
        if (entry == nullptr)
            break;
        kinfo_proc record = {};
        record.kp_proc.p_pid = ProcessOf(entry->d_name);
        if (record.kp_proc.p_pid <= 0 ||
            !ReadCommandName(dirfd(directory), record.kp_proc.p_pid, record.kp_proc.p_comm))
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

} // namespace

int ReadProcessTable(const char* root, kinfo_proc* records, std::size_t& count) noexcept {
    const Directory directory(opendir(root));
    if (!directory)
        return errno;
    return records == nullptr ? Count(directory.get(), count)
                              : Fill(directory.get(), records, count);
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
    const int error = process::ReadProcessTable("/proc", static_cast<kinfo_proc*>(buffer), count);
    if (error != 0) {
        errno = error;
        return -1;
    }
    *length = count * sizeof(kinfo_proc);
    return 0;
}
