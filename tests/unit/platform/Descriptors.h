#ifndef TESTS_DESCRIPTORS_H
#define TESTS_DESCRIPTORS_H

#include <filesystem>
#include <iterator>
#include <thread>

inline std::ptrdiff_t CountEntries(const char* directory) {
    return std::distance(std::filesystem::directory_iterator(directory), {});
}

inline std::ptrdiff_t CountDescriptors() {
    return CountEntries("/proc/self/fd");
}

inline std::ptrdiff_t CountThreads() {
    return CountEntries("/proc/self/task");
}

// A thread that was joined may still be listed for a moment.
inline void AwaitThreads(std::ptrdiff_t atMost) {
    while (CountThreads() > atMost)
        std::this_thread::yield();
}

#endif
