// walk-by-daemon ROOT: the daemon's walk, and nothing else of it.

#include "trayprobed/ChangerFSCacheThread.h"
#include "trayprobed/MediaIdState.h"

int main(int argc, char** argv) {
    constexpr UInt64 kChanger = 0xA1;
    if (argc != 2 || !InitVErrSystem() || InitMediaIdState() != nullptr ||
        AddChangerToList(kChanger) != nullptr) {
        return 2;
    }
    return CacheFSDirectory(kChanger, argv[1], 1, nullptr) == nullptr ? 0 : 1;
}
