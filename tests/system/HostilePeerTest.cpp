#include "SystemTest.h"

#include <cctype>
#include <string>

namespace {

constexpr const char* kNotifications = "ChangerServerNotifications";

// A server that sends unusual or malformed frames.
class HostilePeerTest : public SystemTest {
protected:
    void SetUp() override {
        Begin();
        Do("pulse every=0");
    }
    void AwaitLogOfLostNotification(const std::string& message) {
        AwaitLog({Link(kNotifications, "HandleNotificationSocketData", message),
                  Link(kNotifications, "ServerNotificationSocketCallBack",
                       "fail handle notification socket data")});
    }
};

class UnusualFrameTest : public HostilePeerTest, public testing::WithParamInterface<const char*> {};

INSTANTIATE_TEST_SUITE_P(Faults, UnusualFrameTest,
                         testing::Values("do=split size=1", "do=split size=11", "do=split size=13",
                                         "do=header-size size=12", "do=header-size size=300",
                                         "do=huge size=3000000"),
                         [](const auto& fault) {
                             std::string name = fault.param;
                             std::erase_if(name, [](char letter) { return !std::isalnum(letter); });
                             return name;
                         });

TEST_P(UnusualFrameTest, ReplyIsAccepted) {
    Do(std::string("fault on=\"mount disc\" ") + GetParam());
    ExpectIdentification(0);
}

TEST_P(UnusualFrameTest, NotificationIsHandled) {
    Do(std::string("fault on=notification ") + GetParam());
    ExpectIdentification(0);
}

TEST_F(HostilePeerTest, SeveralNotificationsInOneReadAreAllHandled) {
    Do("fault on=notification do=glued count=all");
    IdentifyNewDisc(0);
    IdentifyNewDisc(1);
    Do("clear-faults");
    ExpectIdentification(7);
}

TEST_F(HostilePeerTest, BytesWithoutAHeaderAreLoggedAndLaterNotificationsHandled) {
    Do("notify hex=0102030405");
    AwaitLogOfLostNotification("invalid notification header on data received");
    ExpectIdentification(7);
}

TEST_F(HostilePeerTest, MalformedNotificationIsLoggedAndLaterNotificationsHandled) {
    Do("fault on=notification do=malformed");
    Do("push together=yes");
    AwaitLog({Link(kNotifications, "HandleNotificationSocketData",
                   "fail make property list from XML data (") +
                  ".+\\)", // the parser's message depends on where the XML is truncated
              Link(kNotifications, "ServerNotificationSocketCallBack",
                   "fail handle notification socket data")});
    ExpectIdentification(7);
}

TEST_F(HostilePeerTest, ExtraBytesBehindAFrameAreLoggedAndLaterNotificationsHandled) {
    Do("fault on=notification do=extra");
    Do("push together=yes");
    AwaitLogOfLostNotification("inconsitent data length");
    ExpectIdentification(7);
}

TEST_F(HostilePeerTest, IncompleteFrameIsDiscardedWithItsConnection) {
    Do("notify hex=6769536800000c00ffffffff3c");
    Do("push");
    Do("stop");
    Do("start");
    ExpectIdentification(7);
}

TEST_F(HostilePeerTest, NotificationThatIsNotADictionaryIsIgnored) {
    Do("fault on=notification do=wrong-root");
    Do("push together=yes");
    ExpectIdentification(7);
}

TEST_F(HostilePeerTest, NotificationWithValuesOfWrongTypesIsLoggedAndIgnored) {
    Do("fault on=notification do=wrong-types");
    Do("push together=yes");
    AwaitLog({Link("MediaIdManager", "ChangerListNotificationCallBack",
                   "fail get changer list as array"),
              Link("MediaIdManager", "RootPrefsNotificationCallBack",
                   "fail get root preferences as dictionary"),
              Link("MediaIdManager", "ChangerInfoNotificationCallBack",
                   "fail get changer info as array")});
    ExpectIdentification(7);
}

TEST_F(HostilePeerTest, ReplyThatIsNotADictionaryMeansSuccess) {
    Do("fault on=\"mount disc\" do=wrong-root");
    ExpectIdentification(0);
}

TEST_F(HostilePeerTest, SingleThreadedServerCausesNoDeadlock) {
    Do("serial value=yes");
    IdentifyNewDisc(0);
    ExpectIdentification(7);
}

} // namespace
