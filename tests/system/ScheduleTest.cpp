#include "SystemTest.h"
#include "tests/unit/support/Matchers.h"

#include <array>
#include <cstdio>
#include <ctime>
#include <string>

namespace {

constexpr long kMinute = 60;
constexpr long kHour = 60 * kMinute;
constexpr long kDay = 24 * kHour;

// Returns a time zone in which it is this time of day now: the daemon then waits for seconds only.
std::string ZoneWhereItIs(long secondsOfTheDay) {
    const long west = ((std::time(nullptr) - secondsOfTheDay) % kDay + kDay) % kDay;
    std::array<char, 32> zone{};
    std::snprintf(zone.data(), zone.size(), "TZ=XYZ%ld:%02ld:%02ld", west / kHour,
                  west / kMinute % 60, west % 60);
    return zone.data();
}

// A test begins kLeadTime before the build is due, in which the daemon starts. Each notification
// "changer info" sets the daemon's timer again, and to the next day if the time has come; the
// server therefore repeats none.
class ScheduleTest : public SystemTest {
protected:
    static constexpr long kLeadTime = 12; // in seconds

    void BeginAt(long secondsOfTheDay, const std::string& schedule) {
        StartServer();
        Do("preferences changer=5000C500ABCD00A1 build-on-schedule=yes " + schedule);
        PutDisc(0, "identified=yes");
        StartDaemon({{"trayprobed"}, {ZoneWhereItIs(secondsOfTheDay)}});
        AwaitServedRequest(0);
        Do("pulse every=0");
        AwaitIdle();
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
