#include "disks/RetryTimer.h"

#include <gtest/gtest.h>

#include <sys/timerfd.h>

namespace {

itimerspec SettingOf(const disks::RetryTimer& timer) {
    itimerspec setting = {};
    timerfd_gettime(timer.Descriptor(), &setting);
    return setting;
}

bool IsZero(const timespec& time) {
    return time.tv_sec == 0 && time.tv_nsec == 0;
}

TEST(RetryTimer, ExpiresOnceWithinASecond) {
    disks::RetryTimer timer;
    timer.Set();
    const itimerspec setting = SettingOf(timer);
    EXPECT_FALSE(IsZero(setting.it_value));
    EXPECT_TRUE(setting.it_value.tv_sec == 0 || setting.it_value.tv_nsec == 0);
    EXPECT_LE(setting.it_value.tv_sec, 1);
    EXPECT_TRUE(IsZero(setting.it_interval));
}

TEST(RetryTimer, DoesNotExpireOnceItIsCleared) {
    disks::RetryTimer timer;
    timer.Set();
    timer.Clear();
    EXPECT_TRUE(IsZero(SettingOf(timer).it_value));
}

} // namespace
