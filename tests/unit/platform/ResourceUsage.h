#ifndef TESTS_RESOURCEUSAGE_H
#define TESTS_RESOURCEUSAGE_H

#include "support/NotCopyable.h"

#include <gtest/gtest.h>

#include <sys/resource.h>

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

/* While an object lives, descriptors must be below the limit. */
class DescriptorLimit : NotCopyable {
public:
    explicit DescriptorLimit(rlim_t limit) {
        EXPECT_EQ(getrlimit(RLIMIT_NOFILE, &before_), 0);
        const rlimit lowered = {limit, before_.rlim_max};
        EXPECT_EQ(setrlimit(RLIMIT_NOFILE, &lowered), 0);
    }
    ~DescriptorLimit() {
        EXPECT_EQ(setrlimit(RLIMIT_NOFILE, &before_), 0);
    }

private:
    rlimit before_ = {};
};

#ifdef __SANITIZE_THREAD__
inline constexpr std::size_t kThreadsAtRest = 2; // the sanitizer adds one
#else
inline const std::size_t kThreadsAtRest = CountThreads(); // at the start; an emulator adds its own
#endif

/* A thread that was joined may still be listed for a moment. */
inline void AwaitThreads(std::size_t atMost) {
    while (CountThreads() > atMost)
        std::this_thread::yield();
}

/* Waits until the detached threads have ended. */
inline void AwaitRest() {
    AwaitThreads(kThreadsAtRest);
}

#endif
