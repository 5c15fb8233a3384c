#ifndef FSCLIENT_DIRECTORYINFO_H
#define FSCLIENT_DIRECTORYINFO_H

/*
 * The info files by which a changer file system tells what its directories stand for. They are
 * property lists, XML or binary, with a dictionary at the top:
 *
 *   ".changer_info.plist" in the root of a changer file system
 *       "Changer GUID"           64-bit number
 *   ".media_info.plist" in each media root, the directory of one partition of one disc
 *       "Changer GUID"           64-bit number
 *       "Storage Element Index"  16-bit number, the disc's slot
 *       "Partition Id"           text of at most 31 bytes
 *       "Writable"               boolean
 *
 * A directory is a root of either kind when its file holds all of these in readable form, and for
 * no other reason. There is no state; any thread may call anything. Paths are never empty.
 */

#include "common/VErr.h"

#include <CoreFoundation/CoreFoundation.h>

constexpr CFIndex kPartitionIdSize = 32; // terminator included

/* The caller owns the property list, which is of any type. */
VErrLink* ReadFSInfoFile(const char* directory, const char* fileName, CFPropertyListRef* list);
VErrLink* ReadFSRootInfoFile(const char* directory, CFPropertyListRef* list);
VErrLink* ReadFSMediaRootInfoFile(const char* directory, CFPropertyListRef* list);

VErrLink* GetChangerFileSystemRootInfo(const char* directory, UInt64* changerGUID);

/*
 * Each output may be null, and is then not read. The first value that cannot be read ends it;
 * outputs filled before keep their values. partitionId has kPartitionIdSize bytes.
 */
VErrLink* GetChangerFileSystemMediaRootInfo(const char* directory, UInt64* changerGUID,
                                            UInt16* storageElem, char* partitionId,
                                            SInt32* writable);

/* These never fail: what cannot be read is not a root, and nothing is logged. */
VErrLink* IsDirectoryRootOfChangerFileSystem(const char* directory, bool* isRoot);
VErrLink* IsDirectoryMediaRootOfChangerFileSystem(const char* directory, bool* isMediaRoot);

#endif
