#include "SystemTest.h"

#include <gmock/gmock.h>

#include <array>
#include <cstdio>
#include <ctime>
#include <string>

using testing::Contains;

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
// Every "changer info" makes the daemon set its timer anew, to the next day when the hour has come:
// one that it deals with just then would cost the build of the day, so none is repeated meanwhile.
class ScheduleTest : public SystemTest {
protected:
    static constexpr long kLeadTime = 12;

    // The daemon learns of the schedule as soon as it knows the changer.
    void BeginAt(long secondsOfTheDay, const std::string& schedule) {
        StartServer();
        Tell("preferences changer=5000C500ABCD00A1 build-on-schedule=yes " + schedule);
        Tell("put changer=5000C500ABCD00A1 slot=0 identified=yes");
        StartDaemon({{"trayprobed"}, {ZoneWhereItIs(secondsOfTheDay)}});
        AwaitServedRequest(0);
        Tell("pulse every=0");
        run_.TakeBaseline(); // with the timer
    }
    void ExpectBuild() {
        AwaitEndOfBuild();
        EXPECT_THAT(RequestsSoFar(), Contains("status 1/1"));
    }
};

TEST_F(ScheduleTest, DailyBuildStartsAtOneByDefault) {
    BeginAt(kHour - kLeadTime, "");
    ExpectBuild();
}

TEST_F(ScheduleTest, DailyBuildStartsAtTheConfiguredTime) {
    BeginAt(17 * kHour + 31 * kMinute - kLeadTime, "hours=17 minutes=31");
    ExpectBuild();
}

} // namespace
