#ifndef COREFOUNDATION_CFURL_H
#define COREFOUNDATION_CFURL_H

/* File URLs: a path as bytes, in the encoding of the file system. Immutable. */

#include <CoreFoundation/CFBase.h>

CF_EXTERN_C_BEGIN

typedef const struct __CFURL* CFURLRef;

/* A URL with a copy of the `length` bytes of the path, without trailing slashes. NULL if the path
   is NULL, the length is not above 0, or memory is short. */
CFURLRef CFURLCreateFromFileSystemRepresentation(CFAllocatorRef allocator, const UInt8* path,
                                                 CFIndex length, Boolean isDirectory);

/* Copies the path and a terminator to a buffer of `size` bytes. False if they do not fit, the
   buffer is NULL or `url` is not a URL; nothing is written then. resolveAgainstBase has no effect:
   the URLs made here are absolute or relative paths without a base. */
Boolean CFURLGetFileSystemRepresentation(CFURLRef url, Boolean resolveAgainstBase, UInt8* buffer,
                                         CFIndex size);

CF_EXTERN_C_END

#endif
