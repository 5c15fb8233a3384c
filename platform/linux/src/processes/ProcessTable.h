#ifndef PLATFORM_PROCESSTABLE_H
#define PLATFORM_PROCESSTABLE_H

#include <sys/sysctl.h>

#include <cstddef>

namespace process {

/*
 * Lists the processes below root, which is laid out as /proc is. With records nullptr sets count
 * to a number with room to spare; otherwise count says how many records there are room for, and
 * is set to the number filled. Returns 0 or an errno value: ENOMEM when there was too little room.
 */
int ReadProcessTable(const char* root, kinfo_proc* records, std::size_t& count) noexcept;

} // namespace process

#endif
