#include "SystemCallFaults.h"

#include <dirent.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/timerfd.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string_view>
#include <system_error>
#include <thread>

namespace {

constexpr SystemCallFailure kFailures[] = {
    {"connect", EAGAIN},
    {"connect", ECONNREFUSED},
    {"connect", EINTR},
    {"epoll_create1", EMFILE},
    {"epoll_create1", ENFILE},
    {"epoll_ctl", ENOMEM},
    {"epoll_ctl", ENOSPC},
    {"eventfd", EMFILE},
    {"eventfd", ENFILE},
    {"fdopendir", ENOMEM},
    {"fopen", EMFILE},
    {"fopen", ENFILE},
    {"fstat", EIO},
    {"fstatat", EIO},
    {"lstat", EIO},
    {"open", EINTR},
    {"open", EMFILE},
    {"open", ENFILE},
    {"openat", EMFILE},
    {"openat", ENFILE},
    {"opendir", EMFILE},
    {"opendir", ENFILE},
    {"pthread_setspecific", ENOMEM},
    {"read", EINTR},
    {"read", EIO},
    {"readdir", EIO},
    {"recv", EAGAIN},
    {"recv", ECONNRESET},
    {"recv", EINTR},
    {"send", EAGAIN},
    {"send", ECONNRESET},
    {"send", EINTR},
    {"send", EPIPE},
    {"send", SystemCallFailure::kShort},
    {"socket", EMFILE},
    {"socket", ENFILE},
    {"stat", EIO},
    {"statfs", EIO},
    {"std::thread", EAGAIN},
    {"timerfd_create", EMFILE},
    {"timerfd_create", ENFILE},
};

std::atomic<const SystemCallFailure*> g_failure = nullptr;
std::atomic<std::size_t> g_untilFault = 0;
std::atomic<bool> g_happened = false;
thread_local bool t_isExempt = false;

// Whether this call is the one. Sets errno then.
bool Fails(std::string_view function) noexcept {
    const SystemCallFailure* failure = g_failure;
    if (failure == nullptr || t_isExempt || function != failure->function || --g_untilFault != 0)
        return false;
    g_happened = true;
    errno = failure->error;
    return true;
}

// No descriptor may get into another program.
void ExpectCloseOnExec(int flags) {
    EXPECT_NE(flags & O_CLOEXEC, 0);
}

} // namespace

std::span<const SystemCallFailure> SystemCallFailures() {
    return kFailures;
}

std::string Describe(const SystemCallFailure& failure, std::size_t nth) {
    const char* const error =
        failure.error == SystemCallFailure::kShort ? "short" : strerrorname_np(failure.error);
    return "call " + std::to_string(nth) + " of " + failure.function + ", " + error;
}

SystemCallFault::SystemCallFault(const SystemCallFailure& failure, std::size_t nth) noexcept {
    g_happened = false;
    g_untilFault = nth;
    g_failure = &failure;
}

SystemCallFault::~SystemCallFault() {
    g_failure = nullptr;
}

bool SystemCallFault::Happened() noexcept {
    return g_happened;
}

NoSystemCallFaultsHere::NoSystemCallFaultsHere() noexcept {
    t_isExempt = true;
}

NoSystemCallFaultsHere::~NoSystemCallFaultsHere() {
    t_isExempt = false;
}

// What --wrap makes of the calls, and of the functions themselves.
#define FAILING_CALL(Result, failed, name, parameters, arguments)                                  \
    extern "C" Result __real_##name parameters;                                                    \
    extern "C" Result __wrap_##name parameters;                                                    \
    extern "C" Result __wrap_##name parameters {                                                   \
        return Fails(#name) ? failed : __real_##name arguments;                                    \
    }

FAILING_CALL(int, -1, connect, (int socket, const sockaddr* address, socklen_t length),
             (socket, address, length))
FAILING_CALL(int, -1, epoll_create1, (int flags), (flags))
FAILING_CALL(int, -1, eventfd, (unsigned initial, int flags), (initial, flags))
FAILING_CALL(FILE*, nullptr, fopen, (const char* path, const char* mode), (path, mode))
FAILING_CALL(DIR*, nullptr, fdopendir, (int descriptor), (descriptor))
FAILING_CALL(int, -1, fstat, (int descriptor, struct stat* status), (descriptor, status))
FAILING_CALL(int, -1, fstatat, (int directory, const char* path, struct stat* status, int flags),
             (directory, path, status, flags))
FAILING_CALL(int, -1, lstat, (const char* path, struct stat* status), (path, status))
FAILING_CALL(DIR*, nullptr, opendir, (const char* path), (path))
FAILING_CALL(int, ENOMEM, pthread_setspecific, (pthread_key_t key, const void* value), (key, value))
FAILING_CALL(ssize_t, -1, read, (int descriptor, void* bytes, std::size_t count),
             (descriptor, bytes, count))
FAILING_CALL(dirent*, nullptr, readdir, (DIR * directory), (directory))
FAILING_CALL(ssize_t, -1, recv, (int socket, void* bytes, std::size_t count, int flags),
             (socket, bytes, count, flags))
FAILING_CALL(int, -1, socket, (int domain, int type, int protocol), (domain, type, protocol))
FAILING_CALL(int, -1, stat, (const char* path, struct stat* status), (path, status))
FAILING_CALL(int, -1, statfs, (const char* path, struct statfs* status), (path, status))
FAILING_CALL(int, -1, timerfd_create, (int clock, int flags), (clock, flags))

extern "C" {
int __real_epoll_ctl(int epoll, int operation, int descriptor, epoll_event* event);
int __wrap_epoll_ctl(int epoll, int operation, int descriptor, epoll_event* event);
int __real_open(const char* path, int flags, ...);
int __wrap_open(const char* path, int flags, ...);
int __real_openat(int directory, const char* path, int flags, ...);
int __wrap_openat(int directory, const char* path, int flags, ...);
ssize_t __real_send(int socket, const void* bytes, std::size_t count, int flags);
ssize_t __wrap_send(int socket, const void* bytes, std::size_t count, int flags);

// Only adding takes memory.
int __wrap_epoll_ctl(int epoll, int operation, int descriptor, epoll_event* event) {
    const bool fails = operation == EPOLL_CTL_ADD && Fails("epoll_ctl");
    return fails ? -1 : __real_epoll_ctl(epoll, operation, descriptor, event);
}

int __wrap_open(const char* path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const auto mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    ExpectCloseOnExec(flags);
    return Fails("open") ? -1 : __real_open(path, flags, mode);
}

int __wrap_openat(int directory, const char* path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const auto mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    ExpectCloseOnExec(flags);
    return Fails("openat") ? -1 : __real_openat(directory, path, flags, mode);
}

ssize_t __wrap_send(int socket, const void* bytes, std::size_t count, int flags) {
    if (!Fails("send"))
        return __real_send(socket, bytes, count, flags);
    return errno == SystemCallFailure::kShort ? __real_send(socket, bytes, 1, flags) : -1;
}

// std::thread's start, behind which pthread_create is the library's own; what it is handed is
// passed on as it came.
void __real__ZNSt6thread15_M_start_threadESt10unique_ptrINS_6_StateESt14default_deleteIS1_EEPFvvE(
    void* thread, void* state, void (*depend)());
void __wrap__ZNSt6thread15_M_start_threadESt10unique_ptrINS_6_StateESt14default_deleteIS1_EEPFvvE(
    void* thread, void* state, void (*depend)());

void __wrap__ZNSt6thread15_M_start_threadESt10unique_ptrINS_6_StateESt14default_deleteIS1_EEPFvvE(
    void* thread, void* state, void (*depend)()) {
    if (Fails("std::thread"))
        throw std::system_error(errno, std::generic_category());
    __real__ZNSt6thread15_M_start_threadESt10unique_ptrINS_6_StateESt14default_deleteIS1_EEPFvvE(
        thread, state, depend);
}
}
