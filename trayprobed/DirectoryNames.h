#ifndef TRAYPROBED_DIRECTORYNAMES_H
#define TRAYPROBED_DIRECTORYNAMES_H

/*
 * The names in one directory, in the file system's order: as scandir has them, but kept densely,
 * freed as they are used, and bounded. A directory is listed whole before its first name is used;
 * one whose listing breaks off has no names. A thread's own.
 */

#include <dirent.h>
#include <stddef.h>

struct NameChunk;

/* All zeros hold nothing. */
struct DirectoryNames {
    NameChunk* first;
    NameChunk* last;
    size_t next; // where the next name stands in the first chunk
    size_t* budget;
};

/* Bytes for the names of one walk: as much as a million of the longest. */
constexpr size_t kNameBudget = size_t{256} << 20;

/* As scandir's: zero for a name that is passed over. */
typedef int (*DirectoryFilter)(const struct dirent* entry);

/* 0 or the error number: the listing's, or ENOMEM when the memory or the room is used up. The room
   shrinks with what is kept and grows as it is freed; it may serve several listings and outlives
   them. */
int ListDirectoryNames(DIR* directory, DirectoryFilter filter, size_t* budget,
                       DirectoryNames* names);

/* It lasts until the next call; null at the end. */
const char* TakeDirectoryName(DirectoryNames* names);

/* Frees those that are left. */
void FreeDirectoryNames(DirectoryNames* names);

#endif
