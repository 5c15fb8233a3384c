#ifndef TESTS_UNIT_TRAYPROBED_STATELOCK_H
#define TESTS_UNIT_TRAYPROBED_STATELOCK_H

/*
 * The daemon's mutexes, watched: which thread holds the state lock, what its calls return, and
 * when a thread has to wait for any of them.
 */

#include "common/VErr.h"
#include "support/NotCopyable.h"

#include <functional>

class StateLock {
public:
    // InitMediaIdState, from which on the state lock is known.
    static VErrLink* InitStore();

    // Whether the calling thread holds it.
    static bool IsHeld();
    // How many mutexes it holds, of whatever kind.
    static int CountHeldMutexes();
    // How often it was destroyed, since the program began.
    static int DestroyedCount();

    // The next call of the kind, or the nth, gives that status and does not lock. A failing unlock
    // or destruction does its work all the same.
    static void FailInit(int status);
    static void FailDestroy(int status);
    static void FailLock(int status, int nth = 1);
    static void FailUnlock(int status);
    // Called once, when the lock has been taken next.
    static void OnLock(std::function<void()> function);
};

/* While it lives, calls the function when the calling thread is about to wait for a mutex. */
class OnWaitingForMutex : NotCopyable {
public:
    explicit OnWaitingForMutex(std::function<void()> function);
    ~OnWaitingForMutex();

private:
    std::function<void()> function_;
};

#endif
