/* A thread's run loop without memory, without thread keys, and at process exit. */

#include "loop/RunLoopSource.h"

#include <CoreFoundation/CFRunLoop.h>

#include <gtest/gtest.h>

#include <pthread.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <thread>

namespace {

bool g_hasKeys = true;

} // namespace

extern "C" {
int __real_pthread_key_create(pthread_key_t* key, void (*destructor)(void*));

// Present where the leak checker is linked, with the address sanitizer or without.
[[gnu::weak]] void __lsan_enable(void);

int __wrap_pthread_key_create(pthread_key_t* key, void (*destructor)(void*)) {
    return g_hasKeys ? __real_pthread_key_create(key, destructor) : EAGAIN;
}
}

namespace {

// Allocates until the smallest allocation fails, those inside libc included.
void ExhaustMemory() {
    const rlimit none = {0, RLIM_INFINITY};
    setrlimit(RLIMIT_AS, &none);
    constexpr std::size_t kLargeStep = 1 << 16;
    constexpr std::size_t kSmallStep = 16;
    for (std::size_t size = 1 << 20; size > 0;
         size -= size > kLargeStep ? kLargeStep : kSmallStep) {
        void* volatile block = nullptr;
        do
            block = std::malloc(size);
        while (block != nullptr);
    }
}

// Exits, with status 0 if a new thread has no loop.
[[noreturn]] void ExpectNoLoop() {
    std::thread([] {
        ExhaustMemory();
        const bool hasLoop = CFRunLoopGetCurrent() != nullptr;
        _exit(hasLoop ? 1 : 0);
    }).join();
    std::abort();
}

TEST(RunLoopOfThreadTest, IsNullWithoutMemory) {
#ifdef __SANITIZE_THREAD__
    constexpr bool kOwnAllocator = true;
#else
    const bool kOwnAllocator = __lsan_enable != nullptr;
#endif
    if (kOwnAllocator)
        GTEST_SKIP() << "the sanitizer's own allocator ends the process";
    EXPECT_EXIT(ExpectNoLoop(), testing::ExitedWithCode(0), "");
}

TEST(RunLoopOfThreadTest, IsNullWithoutAKey) {
    GTEST_FLAG_SET(death_test_style, "threadsafe"); // the key must not exist yet
    const auto getLoop = [] {
        g_hasKeys = false;
        CFRunLoopRun(); // returns at once
        std::exit(CFRunLoopGetCurrent() == nullptr ? 0 : 1);
    };
    EXPECT_EXIT(getLoop(), testing::ExitedWithCode(0), "");
}

CFRunLoopRef g_ending = nullptr;

// Adds a source that only the calling thread's loop retains, and that reports its removal.
void AddReportingSource() {
    g_ending = CFRunLoopGetCurrent();
    static constexpr cf::SourceCallouts kCallouts = {
        .perform = [](void*) {},
        .added = nullptr,
        .removed =
            [](void*) {
                const bool isEnding = CFRunLoopGetCurrent() == g_ending;
                std::fputs(isEnding ? "left the thread's loop " : "left the former loop ", stderr);
            },
        .invalidated = [](void*) { std::fputs("freed", stderr); },
    };
    CFRunLoopSourceRef source = cf::CreateSource(kCallouts, nullptr, cf::RunLevel::kAny);
    CFRunLoopAddSource(CFRunLoopGetCurrent(), source, kCFRunLoopDefaultMode);
    CFRelease(source);
}

TEST(RunLoopOfThreadTest, ProcessExitRemovesAndFreesSource) {
    const auto end = [] {
        AddReportingSource();
        std::exit(0);
    };
    EXPECT_EXIT(end(), testing::ExitedWithCode(0), "left the former loop freed");
}

} // namespace
