// walk-by-daemon ROOT ENTRIES: runs the daemon's walk alone. Exits with 1, and prints the reason to
// standard error, unless it finds ENTRIES entries: the walk itself only logs its errors.

#include "WalkStatus.h"
#include "trayprobed/ChangerFSCacheThread.h"
#include "trayprobed/MediaIdState.h"

#include <dirent.h>

#include <cstdio>

namespace {
std::size_t g_entries = 0;
}

extern "C" {
struct dirent* __real_readdir(DIR* stream);
struct dirent* __wrap_readdir(DIR* stream);

struct dirent* __wrap_readdir(DIR* stream) {
    struct dirent* entry = __real_readdir(stream);
    g_entries += entry != nullptr && ShouldCacheItem(entry) ? 1U : 0U;
    return entry;
}
}

int main(int argc, char** argv) {
    constexpr UInt64 kChanger = 0xA1;
    if (argc != 3 || !InitVErrSystem() || InitMediaIdState() != nullptr ||
        AddChangerToList(kChanger) != nullptr) {
        std::fprintf(stderr, "usage: %s ROOT ENTRIES\n", argv[0]);
        return 2;
    }
    if (CacheFSDirectory(kChanger, argv[1], 1, nullptr) != nullptr) {
        std::fprintf(stderr, "%s cannot walk %s\n", argv[0], argv[1]);
        return 1;
    }
    return bench::WalkExitStatus(argv[0], g_entries, argv[2]);
}
