#ifndef TESTBED_PROCESSSTATE_H
#define TESTBED_PROCESSSTATE_H

/* What /proc tells of a running process. */

#include <cstddef>
#include <set>
#include <string>
#include <sys/types.h>
#include <vector>

namespace testbed {

std::string ReadProcFile(pid_t pid, const std::string& name);
std::set<pid_t> ListThreads(pid_t pid);

/* Where the open descriptors lead, sorted, without the numbers that tell one socket or pipe from
   another: "socket", "pipe", "/dev/null", "anon_inode:[eventfd]". */
std::vector<std::string> ListDescriptors(pid_t pid);

/* The bytes of memory that are the process's own: not those of files, which come and go as the
   kernel likes. */
std::size_t ReadAnonymousMemory(pid_t pid);

/* Whether the programs are compiled with a sanitizer, which takes memory for itself and keeps for a
   while what was freed. */
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
inline constexpr bool kHasSanitizer = true;
#else
inline constexpr bool kHasSanitizer = false;
#endif

/*
 * Calls in which threads of a process wait. Which system call of a pair a library performs depends
 * on its version and on the processor: Poll is poll or ppoll, EpollWait epoll_wait or epoll_pwait.
 */
enum class SystemCall { Connect, EpollWait, Poll, Statfs };

/* Waits until exactly so many of its threads sleep in that system call. */
void AwaitThreadsInSystemCall(pid_t pid, SystemCall call, std::ptrdiff_t count);

/* Waits until all that it wrote to its sockets was read at their other ends. It has stopped. */
void AwaitSentBytesRead(pid_t pid);

/* Waits until it has no other threads than these. */
void AwaitEndOfOtherThreads(const std::set<pid_t>& threads, pid_t pid);

} // namespace testbed

#endif
