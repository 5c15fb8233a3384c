#ifndef PLATFORM_PROCESSTABLE_H
#define PLATFORM_PROCESSTABLE_H

#include <dirent.h>
#include <sys/sysctl.h>

#include <cstddef>

namespace process {

/*
 * Lists the processes in a folder that is laid out as /proc is, whatever position it is at. With
 * records nullptr sets count to a number with room to spare; otherwise count says how many records
 * there are room for, and is set to the number filled. Returns 0 or an errno value: ENOMEM when
 * there was too little room.
 */
int ReadProcessTable(DIR* folder, kinfo_proc* records, std::size_t& count) noexcept;

/*
 * Reads one process's record, its start time included. Returns 0 or an errno value; ENOENT or ESRCH
 * when there is no such process.
 */
int ReadProcess(DIR* folder, pid_t process, kinfo_proc& record) noexcept;

} // namespace process

#endif
