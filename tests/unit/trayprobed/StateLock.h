#ifndef TESTS_UNIT_TRAYPROBED_STATELOCK_H
#define TESTS_UNIT_TRAYPROBED_STATELOCK_H

/*
 * Records and fails calls on the daemon's mutexes: which thread holds the state lock, and when a
 * thread must wait for any mutex.
 */

#include "common/VErr.h"
#include "support/NotCopyable.h"

#include <functional>

class StateLock {
public:
    // Calls InitMediaIdState and records which mutex is the state lock.
    static VErrLink* InitStore();

    // True if the calling thread holds the state lock.
    static bool IsHeld();
    // The number of mutexes that the calling thread holds.
    static int CountHeldMutexes();
    // How often the state lock was destroyed since the program began.
    static int DestroyedCount();

    // The next (or nth) call returns the status and does not lock. A failing unlock or destroy
    // still unlocks or destroys.
    static void FailInit(int status);
    static void FailDestroy(int status);
    static void FailLock(int status, int nth = 1);
    static void FailUnlock(int status);
    // The function is called once, after the next locking of the state lock.
    static void OnLock(std::function<void()> function);
};

/* While an object lives, the function is called before the calling thread waits for a mutex. */
class OnWaitingForMutex : NotCopyable {
public:
    explicit OnWaitingForMutex(std::function<void()> function);
    ~OnWaitingForMutex();

private:
    std::function<void()> function_;
};

#endif
