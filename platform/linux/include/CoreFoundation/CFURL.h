#ifndef COREFOUNDATION_CFURL_H
#define COREFOUNDATION_CFURL_H

/* File URLs: a path in bytes, in whatever encoding the file system has it. */

#include <CoreFoundation/CFBase.h>

CF_EXTERN_C_BEGIN

typedef const struct __CFURL* CFURLRef;

/* NULL for an empty path. */
CFURLRef CFURLCreateFromFileSystemRepresentation(CFAllocatorRef allocator, const UInt8* path,
                                                 CFIndex length, Boolean isDirectory);

/* Copies the path, without a trailing slash, with its terminator. False when it does not fit.
   A URL made here has no base, so there is nothing to resolve against. */
Boolean CFURLGetFileSystemRepresentation(CFURLRef url, Boolean resolveAgainstBase, UInt8* buffer,
                                         CFIndex size);

CF_EXTERN_C_END

#endif
