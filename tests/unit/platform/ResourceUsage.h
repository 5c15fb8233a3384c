#ifndef TESTS_RESOURCEUSAGE_H
#define TESTS_RESOURCEUSAGE_H

#include <cstddef>
#include <filesystem>
#include <iterator>
#include <thread>

inline std::size_t CountEntries(const char* directory) {
    using Entries = std::filesystem::directory_iterator;
    return static_cast<std::size_t>(std::distance(Entries(directory), Entries()));
}

inline std::size_t CountDescriptors() {
    return CountEntries("/proc/self/fd");
}

inline std::size_t CountThreads() {
    return CountEntries("/proc/self/task");
}

#ifdef __SANITIZE_THREAD__
inline constexpr std::size_t kThreadsAtRest = 2; // the sanitizer keeps one of its own
#else
inline const std::size_t kThreadsAtRest = CountThreads(); // at the start; an emulator has its own
#endif

/* A thread that was joined may still be listed for a moment. */
inline void AwaitThreads(std::size_t atMost) {
    while (CountThreads() > atMost)
        std::this_thread::yield();
}

/* Until the threads that nobody joins have ended. */
inline void AwaitRest() {
    AwaitThreads(kThreadsAtRest);
}

#endif
