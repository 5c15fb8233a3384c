/*
 * The process table, from /proc, whose numbered entries are the thread group leaders.
 *
 * The directory is opened when the program starts and stays open: the processes can be counted even
 * when no descriptor is free. The table lacks a process whose name cannot be read, because
 * descriptors are short or the process is hidden.
 *
 * Lock: g_mutex guards the position of the open directory.
 */

#include "processes/ProcessTable.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <mutex>
#include <span>
#include <system_error>

namespace process {

namespace {

// The variables have no destructors: threads may outlive main().
constinit std::mutex g_mutex; // held while g_folder is read
DIR* g_folder = opendir("/proc");

// The process whose directory has this name, or 0.
pid_t ProcessOf(const char* name) noexcept {
    pid_t process = 0;
    const char* const end = name + std::strlen(name);
    const auto [rest, error] = std::from_chars(name, end, process);
    return error == std::errc() && rest == end ? process : 0;
}

// Reads at most `size` bytes of a file in the process's directory. Returns their number, or -1 with
// errno.
ssize_t ReadFile(int root, pid_t process, const char* name, char* text, std::size_t size) noexcept {
    char path[sizeof "-2147483648/comm"];
    std::snprintf(path, sizeof path, "%d/%s", process, name);
    const int file = openat(root, path, O_RDONLY | O_CLOEXEC);
    if (file < 0)
        return -1;
    const ssize_t length = read(file, text, size);
    const int readError = errno;
    close(file);
    errno = readError;
    return length;
}

// False if the process has gone or its name cannot be read.
bool ReadCommandName(int root, pid_t process, char (&name)[MAXCOMLEN + 1]) noexcept {
    const ssize_t length = ReadFile(root, process, "comm", name, MAXCOMLEN);
    if (length <= 0)
        return false;
    const bool hasNewline = name[length - 1] == '\n';
    name[hasNewline ? length - 1 : length] = '\0';
    return true;
}

// Parses the text of proc_pid_stat(5): "1234 (name) S 1 ...". The 22nd word is the start time in
// clock ticks since boot. The name may contain blanks and parentheses.
bool ParseStartTime(const char* text, timeval& startTime) noexcept {
    constexpr int kWordsBehindName = 20;
    const char* position = std::strrchr(text, ')');
    for (int word = 0; position != nullptr && word < kWordsBehindName; ++word)
        position = std::strchr(position + 1, ' ');
    if (position == nullptr)
        return false;
    const long long ticks = std::strtoll(position, nullptr, 10);
    const long long ticksPerSecond = sysconf(_SC_CLK_TCK);
    startTime.tv_sec = ticks / ticksPerSecond;
    startTime.tv_usec =
        static_cast<suseconds_t>(ticks % ticksPerSecond * 1'000'000 / ticksPerSecond);
    return true;
}

int Count(DIR* folder, std::size_t& count) noexcept {
    std::size_t found = 0;
    errno = 0;
    while (const dirent* entry = readdir(folder))
        found += ProcessOf(entry->d_name) > 0 ? 1U : 0U;
    if (errno != 0)
        return errno;
    // Spare records for processes that start before the caller reads the table.
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
    // The kernel's order is the same today, but not documented.
    std::ranges::sort(records, records + filled, {},
                      [](const kinfo_proc& record) { return record.kp_proc.p_pid; });
    count = filled;
    return 0;
}

// Returns function(/proc), or an errno value if the directory cannot be opened.
template<typename Function>
int WithProcFolder(Function function) noexcept {
    const std::lock_guard lock(g_mutex);
    if (g_folder == nullptr)
        g_folder = opendir("/proc");
    return g_folder != nullptr ? function(g_folder) : errno;
}

int ListAll(void* buffer, std::size_t& length) noexcept {
    std::size_t count = length / sizeof(kinfo_proc);
    const int error = WithProcFolder([&](DIR* folder) {
        return ReadProcessTable(folder, static_cast<kinfo_proc*>(buffer), count);
    });
    if (error == 0)
        length = count * sizeof(kinfo_proc);
    return error;
}

int ListOne(pid_t process, void* buffer, std::size_t& length) noexcept {
    kinfo_proc record = {};
    if (buffer == nullptr) {
        length = sizeof record;
        return 0;
    }
    if (length < sizeof record)
        return ENOMEM;
    const int error =
        WithProcFolder([&](DIR* folder) { return ReadProcess(folder, process, record); });
    const bool isGone = error == ENOENT || error == ESRCH;
    if (error != 0 && !isGone)
        return error;
    length = isGone ? 0 : sizeof record;
    std::memcpy(buffer, &record, length);
    return 0;
}

} // namespace

int ReadProcessTable(DIR* folder, kinfo_proc* records, std::size_t& count) noexcept {
    rewinddir(folder);
    return records == nullptr ? Count(folder, count) : Fill(folder, records, count);
}

int ReadProcess(DIR* folder, pid_t process, kinfo_proc& record) noexcept {
    char text[1024]; // the 22nd word is within the first 500 bytes
    const ssize_t length = ReadFile(dirfd(folder), process, "stat", text, sizeof text - 1);
    if (length < 0)
        return errno;
    text[length] = '\0';
    record = {};
    record.kp_proc.p_pid = process;
    if (!ParseStartTime(text, record.kp_proc.p_starttime) ||
        !ReadCommandName(dirfd(folder), process, record.kp_proc.p_comm))
        return ESRCH;
    return 0;
}

} // namespace process

int sysctl(int* name, unsigned int nameLength, void* buffer, std::size_t* length, void* newValue,
           std::size_t) {
    const std::span words(name, nameLength);
    const bool isAll = std::ranges::equal(words, std::array{CTL_KERN, KERN_PROC, KERN_PROC_ALL});
    const bool isOne =
        words.size() == 4 &&
        std::ranges::equal(words.first(3), std::array{CTL_KERN, KERN_PROC, KERN_PROC_PID});
    int error = ENOENT;
    if (newValue != nullptr && (isAll || isOne))
        error = EPERM;
    else if (isAll)
        error = process::ListAll(buffer, *length);
    else if (isOne)
        error = process::ListOne(words[3], buffer, *length);
    if (error == 0)
        return 0;
    errno = error;
    return -1;
}
