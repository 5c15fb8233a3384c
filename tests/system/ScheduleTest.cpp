#include "SystemTest.h"

#include <array>
#include <cstdio>
#include <ctime>

namespace {

constexpr long kMinute = 60;
constexpr long kHour = 60 * kMinute;
constexpr long kDay = 24 * kHour;

// A time zone in which it is that time of day now. The daemon knows no other clock, so the hour may
// come to it rather than it having to wait for the hour.
std::string ZoneWhereItIs(long secondsOfTheDay) {
    const long west = ((std::time(nullptr) - secondsOfTheDay) % kDay + kDay) % kDay;
    std::array<char, 32> zone{};
    std::snprintf(zone.data(), zone.size(), "TZ=XYZ%ld:%02ld:%02ld", west / kHour,
                  west / kMinute % 60, west % 60);
    return zone.data();
}

// Each begins shortly before the build is due, which is long enough for the daemon to learn of it.
class ScheduleTest : public SystemTest {
protected:
    static constexpr long kLeadTime = 12;

    void BeginAt(long secondsOfTheDay) {
        StartServer();
        StartDaemon({{"trayprobed"}, {ZoneWhereItIs(secondsOfTheDay)}});
        Tell("put changer=A1 slot=0 identified=yes");
    }
    void ExpectBuild() {
        AwaitEndOfBuild();
        EXPECT_EQ(Server().AllSoFar("request", {{"current-step", "1"}}).size(), 1U);
    }
};

TEST_F(ScheduleTest, BuildStartsAtOneOClock) {
    BeginAt(kHour - kLeadTime);
    Tell("preferences changer=A1 build-on-schedule=yes");
    ExpectBuild();
}

TEST_F(ScheduleTest, BuildStartsAtTheSetTime) {
    BeginAt(17 * kHour + 31 * kMinute - kLeadTime);
    Tell("preferences changer=A1 build-on-schedule=yes hours=17 minutes=31");
    ExpectBuild();
}

} // namespace
