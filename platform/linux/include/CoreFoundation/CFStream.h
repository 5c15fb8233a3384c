#ifndef COREFOUNDATION_CFSTREAM_H
#define COREFOUNDATION_CFSTREAM_H

/* Reading a file from its beginning to its end. */

#include <CoreFoundation/CFBase.h>
#include <CoreFoundation/CFURL.h>

CF_EXTERN_C_BEGIN

typedef struct __CFReadStream* CFReadStreamRef;

/* A stream that is not yet open, of a file that need not exist. Retains the URL. NULL if the URL is
   NULL or memory is short. */
CFReadStreamRef CFReadStreamCreateWithFile(CFAllocatorRef allocator, CFURLRef url);

/*
 * Opens the file and reads it. False if the file cannot be opened, if it is neither a regular file
 * nor a directory (links are followed within a file system), or if the stream was opened before. A
 * directory can be opened, but not read. FIFOs and devices are not opened.
 *
 * Blocks until the file is read. On the main thread it blocks for at most 30 seconds and then
 * returns false; on any other thread it blocks as long as the file system does.
 */
Boolean CFReadStreamOpen(CFReadStreamRef stream);

/* Closes the stream and frees what was read. Does nothing if the stream is not open. A closed
   stream cannot be opened again. */
void CFReadStreamClose(CFReadStreamRef stream);

CF_EXTERN_C_END

#endif
