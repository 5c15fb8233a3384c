#ifndef SYS_SYSCTL_H
#define SYS_SYSCTL_H

/* The process table as the BSD call sysctl gives it. No other names are known. */

#include <stddef.h>
#include <sys/time.h>
#include <sys/types.h>

#ifdef __cplusplus
extern "C" {
#endif

#define CTL_KERN 1
#define KERN_PROC 14
#define KERN_PROC_ALL 0
#define KERN_PROC_PID 1
#define MAXCOMLEN 16

struct extern_proc {
    pid_t p_pid;
    char p_comm[MAXCOMLEN + 1];
    struct timeval p_starttime; /* counted from the start of the machine; see below */
};

struct kinfo_proc {
    struct extern_proc kp_proc;
};

/*
 * For the name {CTL_KERN, KERN_PROC, KERN_PROC_ALL}: with buffer NULL sets *length to a size with
 * some room to spare; otherwise fills the buffer with one record for each process, by ascending
 * process id, and sets *length to the bytes written. A process that ends meanwhile is left out.
 * p_starttime is zero there, since reading it takes as long again.
 *
 * For the name {CTL_KERN, KERN_PROC, KERN_PROC_PID, process id}: with buffer NULL sets *length to
 * the size of one record; otherwise writes that process's, or nothing and a *length of 0 if there
 * is no such process. Of two processes that had the same id, p_starttime differs.
 *
 * Returns 0, or -1 with errno: ENOMEM when the records do not fit into *length bytes, ENOENT for
 * another name, EPERM for a new value, or what opening the table gave. Any thread.
 */
int sysctl(int* name, unsigned int nameLength, void* buffer, size_t* length, void* newValue,
           size_t newLength);

#ifdef __cplusplus
}
#endif

#endif
