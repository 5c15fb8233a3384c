#ifndef COMMON_PATHBUFFER_H
#define COMMON_PATHBUFFER_H

/*
 * A path of at most 1023 bytes. A longer path is cut silently at that length: the daemon then works
 * with the truncated path. No function here fails.
 */

#include <stddef.h>

/* In bytes, terminator included. */
constexpr size_t kPathSize = 1024;

struct PathBuffer {
    char text[kPathSize]; // always terminated
    size_t length;        // of text, without the terminator
};

/* Replaces the path by a copy of text. */
void SetPath(PathBuffer* path, const char* text);

/* Appends a slash, unless the path ends in one, and the name. Returns the offset of the name in
   path->text. */
size_t AppendToPath(PathBuffer* path, const char* name);

/* Shortens the path to its first `length` bytes. Precondition: length <= path->length. */
inline void TruncatePath(PathBuffer* path, size_t length) {
    path->text[length] = '\0';
    path->length = length;
}

#endif
