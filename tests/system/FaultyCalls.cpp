// Loaded into the daemon before all other libraries, lets its calls fail as FaultPlan.h says.

#include "FaultPlan.h"

#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/timerfd.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>

namespace {

// What stands behind the function of that name.
template<typename Function>
Function* Next(const char* name) noexcept {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

FaultPlan* MapPlan() noexcept {
    const char* const path = std::getenv(kFaultPlanVariable);
    const int file = path != nullptr ? Next<int(const char*, int, ...)>("open")(path, O_RDWR) : -1;
    void* const memory =
        mmap(nullptr, sizeof(FaultPlan), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    if (memory == MAP_FAILED)
        std::abort();
    close(file);
    return static_cast<FaultPlan*>(memory);
}

FaultPlan& Plan() noexcept {
    static FaultPlan* const plan = MapPlan();
    return *plan;
}

// Whether this call is to fail. Says so, and sets errno then.
bool Fails(int call) noexcept {
    FaultPlan& plan = Plan();
    if (plan.call != call || --plan.untilFault != 0)
        return false;
    dprintf(STDERR_FILENO, "%s\n", kFaultNotice);
    errno = plan.error;
    return true;
}

constexpr std::int64_t kSecond = 1'000'000'000; // in nanoseconds

timespec Hasten(const timespec& time) noexcept {
    const std::int64_t hastened = (time.tv_sec * kSecond + time.tv_nsec) / kHaste;
    return {hastened / kSecond, hastened % kSecond};
}

int Hasten(int milliseconds) noexcept {
    return milliseconds > 0 ? std::max(milliseconds / kHaste, 1) : milliseconds;
}

mode_t ModeOf(int flags, va_list arguments) noexcept {
    return (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
}

} // namespace

#define FAULTY_CALL(Result, failed, name, parameters, arguments)                                   \
    extern "C" Result name parameters {                                                            \
        static auto* const next = Next<Result parameters>(#name);                                  \
        constexpr int kCall = IndexOfFaultyCall(#name);                                            \
        static_assert(kCall >= 0);                                                                 \
        return Fails(kCall) ? failed : next arguments;                                             \
    }

FAULTY_CALL(int, -1, connect, (int socket, const sockaddr* address, socklen_t length),
            (socket, address, length))
FAULTY_CALL(int, -1, epoll_create1, (int flags), (flags))
FAULTY_CALL(int, -1, eventfd, (unsigned initial, int flags), (initial, flags))
FAULTY_CALL(FILE*, nullptr, fopen, (const char* path, const char* mode), (path, mode))
FAULTY_CALL(DIR*, nullptr, fdopendir, (int descriptor), (descriptor))
FAULTY_CALL(int, -1, fstat, (int descriptor, struct stat* status), (descriptor, status))
FAULTY_CALL(int, -1, fstatat, (int folder, const char* path, struct stat* status, int flags),
            (folder, path, status, flags))
FAULTY_CALL(int, -1, lstat, (const char* path, struct stat* status), (path, status))
FAULTY_CALL(DIR*, nullptr, opendir, (const char* path), (path))
FAULTY_CALL(int, EAGAIN, pthread_create,
            (pthread_t * thread, const pthread_attr_t* attributes, void* (*body)(void*),
             void* argument),
            (thread, attributes, body, argument))
FAULTY_CALL(ssize_t, -1, read, (int descriptor, void* bytes, std::size_t count),
            (descriptor, bytes, count))
FAULTY_CALL(dirent*, nullptr, readdir, (DIR * folder), (folder))
FAULTY_CALL(ssize_t, -1, recv, (int socket, void* bytes, std::size_t count, int flags),
            (socket, bytes, count, flags))
FAULTY_CALL(ssize_t, -1, send, (int socket, const void* bytes, std::size_t count, int flags),
            (socket, bytes, count, flags))
FAULTY_CALL(int, -1, socket, (int domain, int type, int protocol), (domain, type, protocol))
FAULTY_CALL(int, -1, statfs, (const char* path, struct statfs* status), (path, status))
FAULTY_CALL(int, -1, timerfd_create, (int clock, int flags), (clock, flags))

extern "C" {

int __open_2(const char* path, int flags);
int __openat_2(int folder, const char* path, int flags);
int __ppoll_chk(pollfd* descriptors, nfds_t count, const timespec* timeout, const sigset_t* signals,
                std::size_t size);
ssize_t __read_chk(int descriptor, void* bytes, std::size_t count, std::size_t size);

int open(const char* path, int flags, ...) {
    static auto* const next = Next<int(const char*, int, ...)>("open");
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = ModeOf(flags, arguments);
    va_end(arguments);
    return Fails(IndexOfFaultyCall("open")) ? -1 : next(path, flags, mode);
}

int openat(int folder, const char* path, int flags, ...) {
    static auto* const next = Next<int(int, const char*, int, ...)>("openat");
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = ModeOf(flags, arguments);
    va_end(arguments);
    return Fails(IndexOfFaultyCall("openat")) ? -1 : next(folder, path, flags, mode);
}

// Only adding takes memory.
int epoll_ctl(int epoll, int operation, int descriptor, epoll_event* event) {
    static auto* const next = Next<int(int, int, int, epoll_event*)>("epoll_ctl");
    const bool fails = operation == EPOLL_CTL_ADD && Fails(IndexOfFaultyCall("epoll_ctl"));
    return fails ? -1 : next(epoll, operation, descriptor, event);
}

// ---- waiting, and the time ----

int poll(pollfd* descriptors, nfds_t count, int timeout) {
    static auto* const next = Next<int(pollfd*, nfds_t, int)>("poll");
    ++Plan().waits;
    return Fails(IndexOfFaultyCall("poll")) ? -1 : next(descriptors, count, Hasten(timeout));
}

int ppoll(pollfd* descriptors, nfds_t count, const timespec* timeout, const sigset_t* signals) {
    static auto* const next = Next<int(pollfd*, nfds_t, const timespec*, const sigset_t*)>("ppoll");
    ++Plan().waits;
    if (Fails(IndexOfFaultyCall("poll"))) // GLib calls either, depending on its version
        return -1;
    const timespec hastened = timeout != nullptr ? Hasten(*timeout) : timespec{};
    return next(descriptors, count, timeout != nullptr ? &hastened : nullptr, signals);
}

int epoll_wait(int epoll, epoll_event* events, int room, int timeout) {
    static auto* const next = Next<int(int, epoll_event*, int, int)>("epoll_wait");
    ++Plan().waits;
    return Fails(IndexOfFaultyCall("epoll_wait")) ? -1 : next(epoll, events, room, Hasten(timeout));
}

int clock_gettime(clockid_t clock, timespec* time) {
    static auto* const next = Next<int(clockid_t, timespec*)>("clock_gettime");
    const int result = next(clock, time);
    if (result == 0 && clock == CLOCK_MONOTONIC) {
        const std::int64_t nanoseconds = (time->tv_sec * kSecond + time->tv_nsec) * kHaste;
        *time = {nanoseconds / kSecond, nanoseconds % kSecond};
    }
    return result;
}

// A date is one of the wall clock, which goes as ever.
int timerfd_settime(int timer, int flags, const itimerspec* setting, itimerspec* before) {
    static auto* const next =
        Next<int(int, int, const itimerspec*, itimerspec*)>("timerfd_settime");
    if ((flags & TFD_TIMER_ABSTIME) != 0)
        return next(timer, flags, setting, before);
    const itimerspec hastened = {Hasten(setting->it_interval), Hasten(setting->it_value)};
    return next(timer, flags, &hastened, before);
}

// ---- what a hardened build may call instead, depending on the compiler ----

int __open_2(const char* path, int flags) {
    return open(path, flags);
}

int __openat_2(int folder, const char* path, int flags) {
    return openat(folder, path, flags);
}

int __ppoll_chk(pollfd* descriptors, nfds_t count, const timespec* timeout, const sigset_t* signals,
                std::size_t) {
    return ppoll(descriptors, count, timeout, signals);
}

ssize_t __read_chk(int descriptor, void* bytes, std::size_t count, std::size_t) {
    return read(descriptor, bytes, count);
}
}
