#ifndef BENCH_DISCFOLDER_H
#define BENCH_DISCFOLDER_H

#include <cstdint>
#include <string>

namespace bench {

/* A folder that looks like a changer's file system: discs with an info file each, in them
   directories with files, nested as on discs that people make. It exists as long as this object;
   one that a killed run has left behind at the path is removed first. */
class DiscFolder {
public:
    static constexpr int kDiscs = 50;
    static constexpr int kDirectoriesOfADisc = 400; // with its root
    static constexpr int kFilesOfADirectory = 10;

    DiscFolder(std::string path, std::uint64_t changerGuid);
    ~DiscFolder();
    DiscFolder(const DiscFolder&) = delete;
    DiscFolder& operator=(const DiscFolder&) = delete;

    const std::string& Path() const {
        return path_;
    }

private:
    std::string path_;
};

} // namespace bench

#endif
