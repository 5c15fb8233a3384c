#ifndef SYS_SYSCTL_H
#define SYS_SYSCTL_H

/* The process table, as sysctl() returns it on BSD. No other names are supported. */

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
    struct timeval p_starttime; /* since the machine was started; see below */
};

struct kinfo_proc {
    struct extern_proc kp_proc;
};

/*
 * Name {CTL_KERN, KERN_PROC, KERN_PROC_ALL}: if the buffer is NULL, sets *length to a size that is
 * larger than needed now. Otherwise writes one record for each process, in the order of process
 * ids, and sets *length to the bytes written. A process that ends meanwhile may be missing.
 * p_starttime is 0, because reading it would double the time.
 *
 * Name {CTL_KERN, KERN_PROC, KERN_PROC_PID, process id}: if the buffer is NULL, sets *length to the
 * size of one record. Otherwise writes the record of that process, or sets *length to 0 if there is
 * no such process. Two processes that had the same id differ in p_starttime.
 *
 * *length is the size of the buffer in bytes. Returns 0, or -1 with errno: ENOMEM if the records do
 * not fit, ENOENT for another name, EPERM for a new value, or the error of opening the table. Any
 * thread.
 */
int sysctl(int* name, unsigned int nameLength, void* buffer, size_t* length, void* newValue,
           size_t newLength);

#ifdef __cplusplus
}
#endif

#endif
