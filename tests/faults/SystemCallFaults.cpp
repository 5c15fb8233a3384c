#include "SystemCallFaults.h"

#include "Calls.h"

#include <gtest/gtest.h>

#include <atomic>
#include <system_error>

namespace {

std::atomic<const SystemCallFailure*> g_failure = nullptr;
std::atomic<std::size_t> g_untilFault = 0;
std::atomic<bool> g_happened = false;
thread_local bool t_isExempt = false;

// True if this call is the one that fails; errno is set then.
bool Fails(std::string_view function) noexcept {
    const SystemCallFailure* failure = g_failure;
    if (failure == nullptr || t_isExempt || function != failure->function || --g_untilFault != 0)
        return false;
    g_happened = true;
    errno = failure->error;
    return true;
}

// No descriptor may get into another program. Of all the calls only open() and openat() have these
// parameters.
void ExpectCloseOnExec(const char*, int flags, mode_t) {
    EXPECT_NE(flags & O_CLOEXEC, 0);
}

void ExpectCloseOnExec(int, const char* path, int flags, mode_t mode) {
    ExpectCloseOnExec(path, flags, mode);
}

void ExpectCloseOnExec(const auto&...) {}

// Time-outs are those of the real calls.
template<typename Timeout>
Timeout Hastened(Timeout timeout) noexcept {
    return timeout;
}

std::vector<SystemCallFailure> ListFailures() {
    std::vector<SystemCallFailure> failures;
    for (const FaultyCall& call : kFaultyCalls)
        for (const int error : call.errors)
            if (error != 0)
                failures.push_back({call.name, error});
    return failures;
}

} // namespace

const std::vector<SystemCallFailure>& SystemCallFailures() {
    static const std::vector<SystemCallFailure> failures = ListFailures();
    return failures;
}

std::string Describe(const SystemCallFailure& failure, std::size_t nth) {
    return "call " + std::to_string(nth) + " of " + std::string(failure.function) + ", " +
           NameOfError(failure.error);
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

// ---- the wrappers ----

#define VARIANT(name, row, Result, failed, condition, parameters, arguments)                       \
    extern "C" Result Real_##name parameters __asm__("__real_" #name);                             \
    extern "C" __attribute__((weak)) Result Wrapped_##name parameters __asm__("__wrap_" #name);    \
    Result Wrapped_##name parameters {                                                             \
        ExpectCloseOnExec arguments;                                                               \
        return (condition) && Fails(#row) ? failed : Real_##name arguments;                        \
    }
#define CALL(name, Result, failed, condition, parameters, arguments, ...)                          \
    VARIANT(name, name, Result, failed, condition, parameters, arguments)
#define UNIT_CALL CALL
#define HARDENED(...) // the linker's: see tests/CMakeLists.txt
#include "Calls.def"
