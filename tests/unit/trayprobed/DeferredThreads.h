#ifndef TESTS_UNIT_TRAYPROBED_DEFERREDTHREADS_H
#define TESTS_UNIT_TRAYPROBED_DEFERREDTHREADS_H

/* The threads that the daemon starts: while one of these lives, nothing runs before the test says
   so. Every thread must be detached, every attribute object destroyed. Wrap the functions of
   kDeferredThreadsWraps. */

#include "support/NotCopyable.h"

#include <cstddef>
#include <functional>

class DeferredThreads : NotCopyable {
public:
    DeferredThreads();
    ~DeferredThreads();

    // How many wait to be run.
    static std::size_t Count();
    // The body of the one that waits longest, on the calling thread.
    static void RunNext();
    // The same of the one that was started last.
    static void RunLast();

    // From now on threads run at once, and their creation returns when the thread has ended or
    // has to wait for a mutex. Join waits for their end.
    static void RaceWithStarter();
    static void Join();

    // Called once, when the next thread is made.
    static void OnCreation(std::function<void()> function);

    // The next call of that function ("pthread_create", ...) gives that status. A failing
    // destruction does its work all the same.
    static void Fail(const char* function, int status);
};

#endif
