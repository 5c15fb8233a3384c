/* Replaces libFuzzer's main: runs the target once for each file given as an argument or found in a
   directory given as an argument. */

#include "Target.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

namespace {

namespace fs = std::filesystem;

std::vector<fs::path> FilesAt(const fs::path& path) {
    if (!fs::is_directory(path))
        return {path};
    std::vector<fs::path> files;
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator(path))
        if (entry.is_regular_file())
            files.push_back(entry.path());
    std::sort(files.begin(), files.end());
    return files;
}

// Returns false if the file cannot be read. The input has a heap block of exactly its size, so the
// address sanitizer detects reads beyond the end.
bool Run(const fs::path& file) {
    std::ifstream stream(file, std::ios::binary);
    const std::vector<char> bytes(std::istreambuf_iterator<char>(stream), {});
    if (!stream.is_open() || stream.bad())
        return false;
    std::fprintf(stderr, "%s\n", file.c_str()); // the last line names the failing input
    const std::vector<std::uint8_t> input(bytes.begin(), bytes.end());
    LLVMFuzzerTestOneInput(input.data(), input.size());
    return true;
}

} // namespace

int main(int argc, char** argv) {
    LLVMFuzzerInitialize(&argc, &argv);
    std::size_t count = 0;
    for (int i = 1; i < argc; ++i) {
        for (const fs::path& file : FilesAt(argv[i])) {
            if (!Run(file)) {
                std::fprintf(stderr, "cannot read %s\n", file.c_str());
                return 1;
            }
            ++count;
        }
    }
    std::fprintf(stderr, "%zu inputs\n", count);
    return count > 0 ? 0 : 1;
}
