#ifndef TESTBED_PROCESSSTATE_H
#define TESTBED_PROCESSSTATE_H

/* The state of a running process, read from /proc. Functions throw Failure or
   std::filesystem::filesystem_error if the process does not exist; those that wait poll /proc every
   5 ms and throw Failure after kTimeOut. */

#include <sys/types.h>

#include <cstddef>
#include <set>
#include <string>
#include <vector>

namespace testbed {

/* Returns the content of the file /proc/PID/NAME. */
std::string ReadProcFile(pid_t pid, const std::string& name);

/* Returns the thread ids of the process. */
std::set<pid_t> ListThreads(pid_t pid);

/* Returns the targets of the open descriptors, sorted, without the inode numbers of sockets and
   pipes: "socket", "pipe", "/dev/null", "anon_inode:[eventfd]". */
std::vector<std::string> ListDescriptors(pid_t pid);

/* Returns the resident anonymous memory in bytes. Pages of files do not count: the kernel drops and
   reloads them at any time. */
std::size_t ReadAnonymousMemory(pid_t pid);

/* True if the programs are compiled with a sanitizer, which needs memory of its own and delays the
   reuse of freed memory. */
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
inline constexpr bool kHasSanitizer = true;
#else
inline constexpr bool kHasSanitizer = false;
#endif

/*
 * System calls in which a thread blocks. Poll stands for poll and ppoll, EpollWait for epoll_wait
 * and epoll_pwait: the C library's choice depends on its version and on the processor.
 */
enum class SystemCall { Connect, EpollWait, Poll, Statfs };

/* Waits until exactly `count` threads of the process block in that system call. */
void AwaitThreadsInSystemCall(pid_t pid, SystemCall call, std::ptrdiff_t count);

/* Waits until the peers of the process's sockets have read all bytes that it sent. Precondition:
   the process is stopped. */
void AwaitSentBytesRead(pid_t pid);

/* Waits until the process has no other threads than `threads`. */
void AwaitEndOfOtherThreads(const std::set<pid_t>& threads, pid_t pid);

} // namespace testbed

#endif
