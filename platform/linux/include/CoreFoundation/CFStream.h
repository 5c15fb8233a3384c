#ifndef COREFOUNDATION_CFSTREAM_H
#define COREFOUNDATION_CFSTREAM_H

/* Reading a file from its beginning to its end. */

#include <CoreFoundation/CFBase.h>
#include <CoreFoundation/CFURL.h>

CF_EXTERN_C_BEGIN

typedef struct __CFReadStream* CFReadStreamRef;

/* A stream that is not open yet; the file need not exist. */
CFReadStreamRef CFReadStreamCreateWithFile(CFAllocatorRef allocator, CFURLRef url);

/*
 * False when the file cannot be opened, when it is neither a regular file nor a directory (links
 * followed), or when the stream was opened before. Never waits for a writer of a FIFO and never
 * acts on a device. A directory opens, but reading from it fails.
 */
Boolean CFReadStreamOpen(CFReadStreamRef stream);

/* Closing a stream that is not open does nothing. A closed stream cannot be opened again. */
void CFReadStreamClose(CFReadStreamRef stream);

CF_EXTERN_C_END

#endif
