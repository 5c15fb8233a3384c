// walk-bare ROOT ENTRIES: the least work of a walk that opens every directory relative to its
// parent, reads it with a large buffer and calls fstatat() for every entry. Exits with 1, and
// prints the reason to standard error, unless it finds ENTRIES entries.

#include "WalkStatus.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

namespace {

constexpr std::size_t kBufferSize = std::size_t{1} << 18;

std::size_t g_entries = 0;

bool IsDots(const char* name) {
    return std::strcmp(name, ".") == 0 || std::strcmp(name, "..") == 0;
}

void Walk(int directory);

void Enter(int parent, const char* name) {
    struct stat status = {};
    ++g_entries;
    if (fstatat(parent, name, &status, AT_SYMLINK_NOFOLLOW) != 0 || !S_ISDIR(status.st_mode))
        return;
    const int directory = openat(parent, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (directory < 0) {
        std::perror(name);
        std::exit(1);
    }
    Walk(directory);
    close(directory);
}

// Returns the buffer of a level, allocated once. The levels above still use theirs.
char* BufferOfLevel(std::size_t level) {
    static std::array<std::unique_ptr<char[]>, 1024> buffers;
    if (!buffers.at(level))
        buffers[level] = std::make_unique_for_overwrite<char[]>(kBufferSize);
    return buffers[level].get();
}

void Walk(int directory) {
    static std::size_t level = 0;
    char* const buffer = BufferOfLevel(level++);
    for (ssize_t size; (size = getdents64(directory, buffer, kBufferSize)) > 0;) {
        for (ssize_t at = 0; at < size;) {
            const auto* entry = reinterpret_cast<const struct dirent64*>(buffer + at);
            at += entry->d_reclen;
            if (!IsDots(entry->d_name))
                Enter(directory, entry->d_name);
        }
    }
    --level;
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fprintf(stderr, "usage: %s ROOT ENTRIES\n", argv[0]);
        return 2;
    }
    const int root = open(argv[1], O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (root < 0) {
        std::perror(argv[1]);
        return 2;
    }
    Walk(root);
    return bench::WalkExitStatus(argv[0], g_entries, argv[2]);
}
