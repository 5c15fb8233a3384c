#include "common/PathBuffer.h"

#include <string.h>

// Replaces what follows the first `offset` bytes by as much of the text as fits.
static void CopyToPath(PathBuffer* path, size_t offset, const char* text) {
    const size_t size = strnlen(text, kPathSize - 1 - offset);
    memcpy(path->text + offset, text, size);
    TruncatePath(path, offset + size);
}

void SetPath(PathBuffer* path, const char* text) {
    CopyToPath(path, 0, text);
}

size_t AppendToPath(PathBuffer* path, const char* name) {
    size_t nameAt = path->length;
    if (nameAt + 1 < kPathSize && (nameAt == 0 || path->text[nameAt - 1] != '/'))
        path->text[nameAt++] = '/';
    CopyToPath(path, nameAt, name);
    return nameAt;
}
