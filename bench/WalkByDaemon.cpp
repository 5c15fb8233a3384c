// walk-by-daemon ROOT ENTRIES: the daemon's walk, and nothing else of it. The daemon only logs what
// it cannot list, so the walk fails here unless it finds that many entries.

#include "trayprobed/ChangerFSCacheThread.h"
#include "trayprobed/MediaIdState.h"

#include <cstdlib>
#include <dirent.h>

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
        return 2;
    }
    const bool walked = CacheFSDirectory(kChanger, argv[1], 1, nullptr) == nullptr;
    return walked && g_entries == std::strtoul(argv[2], nullptr, 10) ? 0 : 1;
}
