#include "FakeTime.h"

#include <gtest/gtest.h>

#include <atomic>

namespace {

std::atomic<bool> g_isFake = false;
std::atomic<time_t> g_now = 0;
std::atomic<time_t> g_step = 0;

} // namespace

extern "C" {
time_t __real_time(time_t* now);

time_t __wrap_time(time_t* now) {
    if (!g_isFake)
        return __real_time(now);
    const time_t present = g_now.fetch_add(g_step);
    if (now != nullptr)
        *now = present;
    return present;
}
}

FakeTime::FakeTime(time_t now, time_t step) {
    g_now = now;
    g_step = step;
    g_isFake = true;
}

FakeTime::~FakeTime() {
    g_isFake = false;
}

void FakeTime::Set(time_t now) {
    g_now = now;
}

time_t Utc(const char* dateAndTime) {
    struct tm when = {};
    EXPECT_NE(strptime(dateAndTime, "%Y-%m-%d %H:%M:%S", &when), nullptr) << dateAndTime;
    return timegm(&when);
}
