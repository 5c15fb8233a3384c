#ifndef PLATFORM_PROCESSTABLE_H
#define PLATFORM_PROCESSTABLE_H

#include <dirent.h>
#include <sys/sysctl.h>

#include <cstddef>

namespace process {

/*
 * Lists the processes in `folder`, a directory with the layout of /proc, at any position. If
 * `records` is nullptr, sets `count` to the number of processes plus a reserve. Otherwise `count`
 * is the capacity of `records` and is set to the number of records filled, in ascending order of
 * process id. Returns 0 or an errno value; ENOMEM: the capacity is too small. On failure `count` is
 * unchanged. One thread at a time per directory.
 */
int ReadProcessTable(DIR* folder, kinfo_proc* records, std::size_t& count) noexcept;

/*
 * Reads the record of one process, with its start time, from `folder`, a directory with the layout
 * of /proc. Returns 0 or an errno value; ENOENT or ESRCH: there is no such process. Any thread.
 */
int ReadProcess(DIR* folder, pid_t process, kinfo_proc& record) noexcept;

} // namespace process

#endif
