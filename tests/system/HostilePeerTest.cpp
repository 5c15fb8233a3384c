#include "SystemTest.h"

#include <gmock/gmock.h>

#include <string>

using testing::Contains;

namespace {

constexpr const char* kNotifications = "ChangerServerNotifications";

// A server whose frames are odd or broken: what can be understood is, what cannot is logged, and
// what comes afterwards is understood again.
class HostilePeerTest : public SystemTest {
protected:
    void Begin() {
        SystemTest::Begin();
        Tell("pulse every=0");
    }
    void ExpectNotificationsWork() {
        Tell("put changer=5000C500ABCD00A1 slot=7");
        AwaitIdentification(7);
        EXPECT_THAT(RequestsSoFar(), Contains("eject 7"));
    }
    void AwaitLogOfLostNotification(const std::string& message) {
        AwaitLog({Link(kNotifications, "HandleNotificationSocketData", message),
                  Link(kNotifications, "ServerNotificationSocketCallBack",
                       "fail handle notification socket data")});
    }
};

// Replies and notifications that are odd, but good.
class OddFrameTest : public HostilePeerTest, public testing::WithParamInterface<const char*> {};

INSTANTIATE_TEST_SUITE_P(Oddities, OddFrameTest,
                         testing::Values("do=split size=1", "do=split size=11", "do=split size=13",
                                         "do=header-size size=12", "do=header-size size=300",
                                         "do=huge size=3000000"));

TEST_P(OddFrameTest, UnusualReplyIsAccepted) {
    Begin();
    Tell(std::string("fault on=\"mount disc\" ") + GetParam());
    Tell("put changer=5000C500ABCD00A1 slot=0");
    AwaitIdentification(0);
    EXPECT_THAT(RequestsSoFar(), Contains("eject 0"));
}

TEST_P(OddFrameTest, UnusualNotificationIsHandled) {
    Begin();
    Tell(std::string("fault on=notification ") + GetParam());
    Tell("put changer=5000C500ABCD00A1 slot=0");
    AwaitIdentification(0);
    EXPECT_THAT(RequestsSoFar(), Contains("eject 0"));
}

TEST_F(HostilePeerTest, SeveralNotificationsInOneReadAreAllHandled) {
    Begin();
    Tell("fault on=notification do=glued count=all");
    Tell("put changer=5000C500ABCD00A1 slot=0");
    AwaitIdentification(0);
    Tell("put changer=5000C500ABCD00A1 slot=1");
    AwaitIdentification(1);
    Tell("clear-faults");
    ExpectNotificationsWork();
}

TEST_F(HostilePeerTest, BytesWithoutAHeaderAreLoggedAndLaterNotificationsHandled) {
    Begin();
    Tell("notify hex=0102030405");
    AwaitLogOfLostNotification("invalid notification header on data received");
    ExpectNotificationsWork();
}

TEST_F(HostilePeerTest, MalformedNotificationIsLoggedAndLaterNotificationsHandled) {
    Begin();
    Tell("fault on=notification do=malformed");
    Tell("push together=yes");
    AwaitLog({Link(kNotifications, "HandleNotificationSocketData",
                   "fail make property list from XML data (") +
                  ".+\\)", // where the cut falls decides what the parser says
              Link(kNotifications, "ServerNotificationSocketCallBack",
                   "fail handle notification socket data")});
    ExpectNotificationsWork();
}

TEST_F(HostilePeerTest, ExtraBytesBehindAFrameAreLoggedAndLaterNotificationsHandled) {
    Begin();
    Tell("fault on=notification do=extra");
    Tell("push together=yes");
    AwaitLogOfLostNotification("inconsitent data length");
    ExpectNotificationsWork();
}

TEST_F(HostilePeerTest, IncompleteFrameIsDiscardedWithItsConnection) {
    Begin();
    Tell("notify hex=6769536800000c00ffffffff3c");
    Tell("push");
    Tell("stop");
    Tell("start");
    ExpectNotificationsWork();
}

TEST_F(HostilePeerTest, NotificationThatIsNotADictionaryIsIgnored) {
    Begin();
    Tell("fault on=notification do=wrong-root");
    Tell("push together=yes");
    ExpectNotificationsWork();
}

TEST_F(HostilePeerTest, NotificationWithValuesOfWrongTypesIsLoggedAndIgnored) {
    Begin();
    Tell("fault on=notification do=wrong-types");
    Tell("push together=yes");
    AwaitLog({Link("MediaIdManager", "ChangerListNotificationCallBack",
                   "fail get changer list as array"),
              Link("MediaIdManager", "RootPrefsNotificationCallBack",
                   "fail get root preferences as dictionary"),
              Link("MediaIdManager", "ChangerInfoNotificationCallBack",
                   "fail get changer info as array")});
    ExpectNotificationsWork();
}

TEST_F(HostilePeerTest, ReplyThatIsNotADictionaryMeansSuccess) {
    Begin();
    Tell("fault on=\"mount disc\" do=wrong-root");
    Tell("put changer=5000C500ABCD00A1 slot=0");
    AwaitIdentification(0);
    EXPECT_THAT(RequestsSoFar(), Contains("eject 0"));
}

TEST_F(HostilePeerTest, SingleThreadedServerCausesNoDeadlock) {
    Begin();
    Tell("serial value=yes");
    Tell("put changer=5000C500ABCD00A1 slot=0");
    AwaitIdentification(0);
    ExpectNotificationsWork();
}

} // namespace
