#ifndef TESTS_UNIT_TRAYPROBED_DEFERREDTHREADS_H
#define TESTS_UNIT_TRAYPROBED_DEFERREDTHREADS_H

/* While an object lives, threads that the daemon creates run only when the test calls Run...().
   Every thread must be detached, every attribute object destroyed. */

#include "support/NotCopyable.h"

#include <cstddef>
#include <functional>

class DeferredThreads : NotCopyable {
public:
    DeferredThreads();
    ~DeferredThreads();

    // The number of threads not yet run.
    static std::size_t Count();
    // Runs the body of the oldest thread on the calling thread.
    static void RunNext();
    // Runs the body of the newest thread on the calling thread.
    static void RunLast();

    // From now on threads run at once, and pthread_create returns when the new thread has ended
    // or must wait for a mutex. Join() waits for the end of all.
    static void RaceWithStarter();
    static void Join();

    // The function is called once, when the next thread is created.
    static void OnCreation(std::function<void()> function);

    // The next call of that function ("pthread_create", ...) returns the status. A failing
    // pthread_attr_destroy still destroys.
    static void Fail(const char* function, int status);
};

#endif
