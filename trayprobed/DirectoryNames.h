#ifndef TRAYPROBED_DIRECTORYNAMES_H
#define TRAYPROBED_DIRECTORYNAMES_H

/*
 * The names in one directory, in the order of the file system. Like scandir(), but the names are
 * stored in chunks, which are freed as they are used, and their memory is limited by a budget. All
 * names are read before the first one is returned; if reading fails, there are none.
 *
 * There are no locks: a DirectoryNames and its budget belong to one thread.
 */

#include <dirent.h>
#include <stddef.h>

struct NameChunk;

/* All zero: no names. */
struct DirectoryNames {
    NameChunk* first;
    NameChunk* last;
    size_t next;    // offset of the next name in the first chunk
    size_t* budget; // the owner's count of free bytes
};

/* Budget of one walk in bytes: enough for a million of the longest names. */
constexpr size_t kNameBudget = size_t{256} << 20;

/* As for scandir(): returns 0 for an entry whose name is not needed. */
typedef int (*DirectoryFilter)(const struct dirent* entry);

/* Reads the names that pass the filter. Returns 0, or an errno value: that of readdir(), or ENOMEM
   if memory or the budget is exhausted. *budget decreases by what the names occupy and increases
   when they are freed. Several DirectoryNames may share a budget, which must outlive them. */
int ListDirectoryNames(DIR* directory, DirectoryFilter filter, size_t* budget,
                       DirectoryNames* names);

/* Returns the next name, which is valid until the next call; null at the end. */
const char* NextDirectoryName(DirectoryNames* names);

/* Frees the remaining names. */
void FreeDirectoryNames(DirectoryNames* names);

#endif
