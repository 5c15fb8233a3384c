// Loaded into the daemon before all other libraries, makes its calls fail as FaultPlan.h says.

#include "Calls.h"
#include "FaultPlan.h"

#include <dlfcn.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>

namespace {

// The function of that name in the libraries behind this one.
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

// True if this call is the one that fails; the notice is written and errno set then.
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

// The time-out of a wait, which is counted.
class Hastened {
public:
    explicit Hastened(int milliseconds) noexcept
        : milliseconds_(milliseconds > 0 ? std::max(milliseconds / kHaste, 1) : milliseconds) {
        ++Plan().waits;
    }
    explicit Hastened(const timespec* time) noexcept
        : isLimited_(time != nullptr), time_(isLimited_ ? Hasten(*time) : timespec{}) {
        ++Plan().waits;
    }

    operator int() const noexcept {
        return milliseconds_;
    }
    operator const timespec*() const noexcept {
        return isLimited_ ? &time_ : nullptr;
    }

private:
    int milliseconds_ = 0;
    bool isLimited_ = false;
    timespec time_ = {};
};

} // namespace

#define VARIANT(name, row, Result, failed, condition, parameters, arguments)                       \
    extern "C" Result Preloaded_##name parameters __asm__(#name);                                  \
    Result Preloaded_##name parameters {                                                           \
        static auto* const Real_##name = Next<Result parameters>(#name);                           \
        constexpr int kCall = IndexOfFaultyCall(#row);                                             \
        static_assert(kCall >= 0);                                                                 \
        return (condition) && Fails(kCall) ? failed : Real_##name arguments;                       \
    }
#define CALL(name, Result, failed, condition, parameters, arguments, ...)                          \
    VARIANT(name, name, Result, failed, condition, parameters, arguments)
#define UNIT_CALL(...)
#define HARDENED(name, row, Result, parameters, arguments)                                         \
    extern "C" Result Preloaded_##name parameters __asm__(#name);                                  \
    Result Preloaded_##name parameters {                                                           \
        return Preloaded_##row arguments;                                                          \
    }
#include "Calls.def"

// ---- the time ----

extern "C" {

int clock_gettime(clockid_t clock, timespec* time) {
    static auto* const next = Next<int(clockid_t, timespec*)>("clock_gettime");
    const int result = next(clock, time);
    if (result == 0 && clock == CLOCK_MONOTONIC) {
        const std::int64_t nanoseconds = (time->tv_sec * kSecond + time->tv_nsec) * kHaste;
        *time = {nanoseconds / kSecond, nanoseconds % kSecond};
    }
    return result;
}

// An absolute time is one of the wall clock, which is not hastened.
int timerfd_settime(int timer, int flags, const itimerspec* setting, itimerspec* before) {
    static auto* const next =
        Next<int(int, int, const itimerspec*, itimerspec*)>("timerfd_settime");
    if ((flags & TFD_TIMER_ABSTIME) != 0)
        return next(timer, flags, setting, before);
    const itimerspec hastened = {Hasten(setting->it_interval), Hasten(setting->it_value)};
    return next(timer, flags, &hastened, before);
}
}
