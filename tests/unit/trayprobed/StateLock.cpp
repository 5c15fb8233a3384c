#include "StateLock.h"

#include "trayprobed/MediaIdState.h"

#include <pthread.h>

#include <atomic>
#include <cerrno>
#include <utility>

namespace {

std::atomic<const pthread_mutex_t*> g_stateMutex = nullptr;
bool g_initialising = false;
int g_destroyedCount = 0;

// Failures are set before a test's threads start.
int g_initStatus = 0;
int g_destroyStatus = 0;
std::atomic<int> g_lockStatus = 0;
std::atomic<int> g_locksUntilFailure = 0;
std::atomic<int> g_unlockStatus = 0;
std::function<void()> g_onLock; // read and written with the lock held, or before threads start

thread_local bool t_isHeld = false;
thread_local int t_heldMutexes = 0;
thread_local std::function<void()>* t_onWaiting = nullptr;

bool LockFails() {
    return g_lockStatus != 0 && g_locksUntilFailure.fetch_sub(1) == 1;
}

} // namespace

extern "C" {
int __real_pthread_mutex_init(pthread_mutex_t* mutex, const pthread_mutexattr_t* attributes);
int __real_pthread_mutex_destroy(pthread_mutex_t* mutex);
int __real_pthread_mutex_lock(pthread_mutex_t* mutex);
int __real_pthread_mutex_unlock(pthread_mutex_t* mutex);

// The state lock is the one with default attributes.
int __wrap_pthread_mutex_init(pthread_mutex_t* mutex, const pthread_mutexattr_t* attributes) {
    if (g_initialising && attributes == nullptr) {
        if (g_initStatus != 0)
            return std::exchange(g_initStatus, 0);
        g_stateMutex = mutex;
    }
    return __real_pthread_mutex_init(mutex, attributes);
}

int __wrap_pthread_mutex_destroy(pthread_mutex_t* mutex) {
    const int status = __real_pthread_mutex_destroy(mutex);
    const bool isAnother = g_stateMutex != nullptr && mutex != g_stateMutex; // before, any counts
    if (isAnother)
        return status;
    ++g_destroyedCount;
    return g_destroyStatus != 0 ? std::exchange(g_destroyStatus, 0) : status;
}

int __wrap_pthread_mutex_lock(pthread_mutex_t* mutex) {
    if (mutex == g_stateMutex && LockFails())
        return g_lockStatus.exchange(0);
    if (t_onWaiting == nullptr || pthread_mutex_trylock(mutex) == EBUSY) {
        if (t_onWaiting != nullptr)
            (*t_onWaiting)();
        __real_pthread_mutex_lock(mutex);
    }
    ++t_heldMutexes;
    if (mutex == g_stateMutex) {
        t_isHeld = true;
        if (const auto onLock = std::exchange(g_onLock, nullptr))
            onLock();
    }
    return 0;
}

int __wrap_pthread_mutex_unlock(pthread_mutex_t* mutex) {
    --t_heldMutexes;
    if (mutex != g_stateMutex)
        return __real_pthread_mutex_unlock(mutex);
    t_isHeld = false;
    const int status = __real_pthread_mutex_unlock(mutex);
    const int failure = g_unlockStatus.exchange(0);
    return failure != 0 ? failure : status;
}
}

VErrLink* StateLock::InitStore() {
    g_initialising = true;
    VErrLink* err = InitMediaIdState();
    g_initialising = false;
    return err;
}

bool StateLock::IsHeld() {
    return t_isHeld;
}

int StateLock::CountHeldMutexes() {
    return t_heldMutexes;
}

int StateLock::DestroyedCount() {
    return g_destroyedCount;
}

void StateLock::FailInit(int status) {
    g_initStatus = status;
}

void StateLock::FailDestroy(int status) {
    g_destroyStatus = status;
}

void StateLock::FailLock(int status, int nth) {
    g_locksUntilFailure = nth;
    g_lockStatus = status;
}

void StateLock::OnLock(std::function<void()> function) {
    g_onLock = std::move(function);
}

void StateLock::FailUnlock(int status) {
    g_unlockStatus = status;
}

OnWaitingForMutex::OnWaitingForMutex(std::function<void()> function)
    : function_(std::move(function)) {
    t_onWaiting = &function_;
}

OnWaitingForMutex::~OnWaitingForMutex() {
    t_onWaiting = nullptr;
}
