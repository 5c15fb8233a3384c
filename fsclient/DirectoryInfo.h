#ifndef FSCLIENT_DIRECTORYINFO_H
#define FSCLIENT_DIRECTORYINFO_H

/*
 * The info files of a changer file system, which say what a directory stands for. An info file is a
 * property list, XML or binary, with a dictionary at the top:
 *
 *   ".changer_info.plist" in the root of a changer file system
 *       "Changer GUID"           64-bit number
 *   ".media_info.plist" in each media root, the directory of one partition of one disc
 *       "Changer GUID"           64-bit number
 *       "Storage Element Index"  16-bit number, the slot of the disc
 *       "Partition Id"           text of at most 31 bytes
 *       "Writable"               boolean
 *
 * A directory is a root of either kind if its info file has all of these values, and only then.
 *
 * There is no state: any thread may call any function, which blocks as long as the file system
 * does. The path of a directory is not empty. The path of an info file is cut as a PathBuffer is.
 */

#include "common/VErr.h"

#include <CoreFoundation/CoreFoundation.h>

constexpr CFIndex kPartitionIdSize = 32; // in bytes, terminator included

/* Reads the property list in a file of the directory. The caller owns the list, which is mutable
   and of any type; null on failure. */
VErrLink* ReadFSInfoFile(const char* directory, const char* fileName, CFPropertyListRef* list);
/* The same for ".changer_info.plist" and for ".media_info.plist". */
VErrLink* ReadFSRootInfoFile(const char* directory, CFPropertyListRef* list);
VErrLink* ReadFSMediaRootInfoFile(const char* directory, CFPropertyListRef* list);

/* Reads the values of the root's info file. */
VErrLink* GetChangerFileSystemRootInfo(const char* directory, UInt64* changerGUID);

/* Reads the values of a media root's info file, but for those whose output is null. The first value
   that is missing or has another type is the error; the outputs before it are written. partitionId
   has kPartitionIdSize bytes. */
VErrLink* GetChangerFileSystemMediaRootInfo(const char* directory, UInt64* changerGUID,
                                            UInt16* storageElem, char* partitionId,
                                            SInt32* writable);

/* Set the output to false if the info file cannot be read for any reason. Always return null;
   nothing is logged. */
VErrLink* IsDirectoryRootOfChangerFileSystem(const char* directory, bool* isRoot);
VErrLink* IsDirectoryMediaRootOfChangerFileSystem(const char* directory, bool* isMediaRoot);

#endif
