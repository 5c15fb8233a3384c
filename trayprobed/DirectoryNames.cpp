#include "trayprobed/DirectoryNames.h"

#include <errno.h>
#include <stdlib.h>
#include <string.h>

struct NameChunk {
    NameChunk* next;
    size_t used;
    char names[4096 - sizeof(NameChunk*) - sizeof(size_t)]; // each terminated
};

static bool AddChunk(DirectoryNames* names) {
    if (*names->budget < sizeof(NameChunk))
        return false;
    auto* chunk = static_cast<NameChunk*>(malloc(sizeof(NameChunk)));
    if (chunk == nullptr)
        return false;
    chunk->next = nullptr;
    chunk->used = 0;
    (names->last != nullptr ? names->last->next : names->first) = chunk;
    names->last = chunk;
    *names->budget -= sizeof(NameChunk);
    return true;
}

static void FreeFirstChunk(DirectoryNames* names) {
    NameChunk* chunk = names->first;
    names->first = chunk->next;
    names->next = 0;
    *names->budget += sizeof(NameChunk);
    free(chunk);
}

static bool AddName(DirectoryNames* names, const char* name) {
    const size_t size = strlen(name) + 1;
    if (size > sizeof names->last->names)
        return false;
    if (names->last == nullptr || size > sizeof names->last->names - names->last->used) {
        if (!AddChunk(names))
            return false;
    }
    memcpy(names->last->names + names->last->used, name, size);
    names->last->used += size;
    return true;
}

int ListDirectoryNames(DIR* directory, DirectoryFilter filter, size_t* budget,
                       DirectoryNames* names) {
    int error = 0;
    *names = {nullptr, nullptr, 0, budget};
    while (error == 0) {
        errno = 0;
        const struct dirent* entry = readdir(directory);
        if (entry == nullptr) {
            error = errno;
            break;
        }
        if (filter(entry) && !AddName(names, entry->d_name))
            error = ENOMEM;
    }
    if (error != 0)
        FreeDirectoryNames(names);
    return error;
}

const char* NextDirectoryName(DirectoryNames* names) {
    if (names->first != nullptr && names->next == names->first->used)
        FreeFirstChunk(names);
    if (names->first == nullptr)
        return nullptr;
    const char* name = names->first->names + names->next;
    names->next += strlen(name) + 1;
    return name;
}

void FreeDirectoryNames(DirectoryNames* names) {
    while (names->first != nullptr)
        FreeFirstChunk(names);
}
