#ifndef BENCH_DISCFOLDER_H
#define BENCH_DISCFOLDER_H

#include <cstdint>
#include <string>

namespace bench {

/* A folder with the contents of a changer's file system: discs, each with an info file and nested
   directories of empty files. */
class DiscFolder {
public:
    static constexpr int kDiscs = 50;
    static constexpr int kDirectoriesPerDisc = 400; // including its root
    static constexpr int kFilesPerDirectory = 10;

    // Creates the folder, after the removal of an older one that a killed run may have left; the
    // destructor removes it. Throws on errors.
    DiscFolder(std::string path, std::uint64_t changerGuid);
    ~DiscFolder();
    DiscFolder(const DiscFolder&) = delete;
    DiscFolder& operator=(const DiscFolder&) = delete;

    // The path given to the constructor.
    const std::string& Path() const {
        return path_;
    }

private:
    std::string path_;
};

} // namespace bench

#endif
