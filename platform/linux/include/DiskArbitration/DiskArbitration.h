#ifndef DISKARBITRATION_DISKARBITRATION_H
#define DISKARBITRATION_DISKARBITRATION_H

/*
 * Disk Arbitration on Linux: mounted volumes, from the kernel's mount table.
 *
 * A disk is one device and root directory of a file system, however often that is mounted; its
 * volume path is its first mount's. It appears when it is mounted and disappears when its last
 * mount goes; when its first mount goes while another stays, or when that mount is moved, it
 * disappears and appears again at the other path. A mount that another one covers counts as gone
 * until it is uncovered: its path leads elsewhere. The kernel's own file systems, automatic mount
 * points and network mounts are no disks. A disk appears only once its root answers.
 *
 * Of any two disks the one mounted last appears last. A disk whose root takes more than a second to
 * answer holds up no other; once it answers, it appears, and at once after it the disks mounted
 * later that have appeared already do so once more, with no disappearance in between.
 *
 * Callbacks run on the loop that the session is scheduled on, and only in its outermost run.
 */

#include <CoreFoundation/CoreFoundation.h>

CF_EXTERN_C_BEGIN

typedef struct __DASession* DASessionRef;
typedef struct __DADisk* DADiskRef;

typedef void (*DADiskAppearedCallback)(DADiskRef disk, void* context);
typedef void (*DADiskDisappearedCallback)(DADiskRef disk, void* context);

/* Key of a disk's description: a file URL, the path at which it is mounted. */
extern const CFStringRef kDADiskDescriptionVolumePathKey;

/* NULL when the mount table cannot be watched, or memory is short. */
DASessionRef DASessionCreate(CFAllocatorRef allocator);

/* match must be NULL: every disk. Register before scheduling. */
void DARegisterDiskAppearedCallback(DASessionRef session, CFDictionaryRef match,
                                    DADiskAppearedCallback callback, void* context);
void DARegisterDiskDisappearedCallback(DASessionRef session, CFDictionaryRef match,
                                       DADiskDisappearedCallback callback, void* context);

/* As soon as the loop runs, every disk that is there already appears. */
void DASessionScheduleWithRunLoop(DASessionRef session, CFRunLoopRef runLoop, CFStringRef mode);

/* No callback follows. Releasing the session is then safe. */
void DASessionUnscheduleFromRunLoop(DASessionRef session, CFRunLoopRef runLoop, CFStringRef mode);

/* The device's short name ("sr0"), or its numbers ("0:45"); more directories of one device are
   "sr0s1", "sr0s2". Unique among the disks there are, at most 36 bytes. Borrowed from the disk. */
const char* DADiskGetBSDName(DADiskRef disk);

/* Owned by the caller. A disk that has gone has no volume path. */
CFDictionaryRef DADiskCopyDescription(DADiskRef disk);

CF_EXTERN_C_END

#endif
