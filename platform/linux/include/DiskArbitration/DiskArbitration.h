#ifndef DISKARBITRATION_DISKARBITRATION_H
#define DISKARBITRATION_DISKARBITRATION_H

/*
 * Disk Arbitration on Linux: mounted volumes, from the kernel's mount table.
 *
 * A disk is a device and a root directory of its file system, however often they are mounted. Its
 * volume path is that of its first mount. A disk appears when it is mounted and disappears when its
 * last mount is removed. If its first mount is removed while another exists, or is moved, the disk
 * disappears and appears again at the other path. A mount that another mount covers counts as
 * removed until it is uncovered, because its path leads to the other one. File systems of the
 * kernel, automatic mount points and network mounts are not disks. A disk does not appear before a
 * request to its root directory has been answered.
 *
 * Disks appear in the order in which they were mounted. A disk whose root takes more than a second
 * to answer does not delay the others: it appears when it answers, and then the disks that were
 * mounted later and have appeared already appear once more, without a disappearance between.
 *
 * Callbacks run on the loop on which the session is scheduled, and only in its outermost run. Only
 * the thread of that loop may schedule, unschedule and release the session; before that, one thread
 * at a time may use the session. Any thread may use disks.
 */

#include <CoreFoundation/CoreFoundation.h>

CF_EXTERN_C_BEGIN

typedef struct __DASession* DASessionRef;
typedef struct __DADisk* DADiskRef;

/* The callbacks. The disk is borrowed; retain it to keep it. */
typedef void (*DADiskAppearedCallback)(DADiskRef disk, void* context);
typedef void (*DADiskDisappearedCallback)(DADiskRef disk, void* context);

/* A key of a disk's description. Its value is a file URL: the path at which the disk is mounted. */
extern const CFStringRef kDADiskDescriptionVolumePathKey;

/* A session, which the caller owns. NULL if the mount table cannot be watched or memory is short.
 */
DASessionRef DASessionCreate(CFAllocatorRef allocator);

/* Sets the callback for every disk; `match` must be NULL. Call it before the session is scheduled.
 */
void DARegisterDiskAppearedCallback(DASessionRef session, CFDictionaryRef match,
                                    DADiskAppearedCallback callback, void* context);
void DARegisterDiskDisappearedCallback(DASessionRef session, CFDictionaryRef match,
                                       DADiskDisappearedCallback callback, void* context);

/* Starts the callbacks. Each disk that is mounted already appears when the loop runs. */
void DASessionScheduleWithRunLoop(DASessionRef session, CFRunLoopRef runLoop, CFStringRef mode);

/* Stops the callbacks: none follows, and the session may be released. */
void DASessionUnscheduleFromRunLoop(DASessionRef session, CFRunLoopRef runLoop, CFStringRef mode);

/* The device's short name ("sr0"), or its numbers ("0:45") if it has none; further root directories
   of a device are "sr0s1", "sr0s2". Unique among the disks that exist; at most 36 bytes. Borrowed
   from the disk. */
const char* DADiskGetBSDName(DADiskRef disk);

/* The description, which the caller owns. It has no volume path if the disk has disappeared. If
   memory is short, it is NULL or lacks the path. */
CFDictionaryRef DADiskCopyDescription(DADiskRef disk);

CF_EXTERN_C_END

#endif
