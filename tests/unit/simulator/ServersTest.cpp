// Tests of the server in this process, with its sockets in a temporary folder.

#include "Peer.h"
#include "simulator/Control.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <optional>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

namespace simulator {
namespace {

// The keys that a new subscriber receives, one notification each.
const std::vector<std::string> kAllKeys = {"changer list", "root preferences", "changer info"};

class ServersTest : public testing::Test {
protected:
    ServersTest() {
        Do("pulse every=0");
        Do("add-changer changer=A1 slots=4 drives=1");
        Do("put changer=A1 slot=0");
        Do("start");
    }
    ~ServersTest() override {
        simulator_.reset();
        std::filesystem::remove_all(folder_);
    }

    void Do(const std::string& command) {
        EXPECT_TRUE(control_.Execute(command));
    }
    Peer Connect() const {
        return Peer(folder_ + "/carouseld-" + std::to_string(getpid()));
    }
    Peer Subscribe() const {
        return Peer(folder_ + "/carouseldn-" + std::to_string(getpid()));
    }
    // Subscribes and receives the first notifications.
    Peer SubscribeAndReceive() const {
        Peer peer = Subscribe();
        EXPECT_EQ(ReceiveKeys(peer, 3), kAllKeys);
        return peer;
    }
    // Sends a request on a new connection. Returns the reply, or none at the end of the stream.
    std::optional<Value> Request(const Value& request) const {
        Peer peer = Connect();
        peer.SendRequest(request);
        return peer.ReceiveValue();
    }
    std::int64_t Exchange(const Value& request) const {
        return Connect().Exchange(request);
    }
    static std::vector<std::string> ReceiveKeys(Peer& peer, int count) {
        std::vector<std::string> keys;
        for (int index = 0; index < count; ++index) {
            const auto more = peer.ReceiveValue().value().Keys();
            keys.insert(keys.end(), more.begin(), more.end());
        }
        return keys;
    }
    // Receives until a notification meets the condition.
    template<typename Condition>
    static void AwaitNotification(Peer& peer, const Condition& holds) {
        while (!holds(peer.ReceiveValue().value().ToXml())) {
        }
    }

    static std::string MakeFolder() {
        std::string pattern = "/tmp/simulator-test-XXXXXX";
        return mkdtemp(pattern.data());
    }
    static bool Contains(const std::string& text, const std::string& part) {
        return text.find(part) != text.npos;
    }

    const std::string folder_ = MakeFolder();
    Events events_{-1};
    std::unique_ptr<Simulator> simulator_ = std::make_unique<Simulator>(events_, folder_);
    Control control_{*simulator_};
};

// ---- Requests ----

TEST_F(ServersTest, MountRepliesWithPathAndDevice) {
    const Value reply = Request(MakePrivateMount(0)).value();
    EXPECT_EQ(reply.FindInteger("error code"), std::nullopt);
    EXPECT_EQ(reply.FindString("mount path"), "") << "there is no file system";
    EXPECT_EQ(reply.FindString("device id"), "drive-0");
}

TEST_F(ServersTest, ErrorReplyHasTheHighWordAndAText) {
    const Value reply = Request(MakePrivateMount(2)).value();
    EXPECT_EQ(reply.FindInteger("error code"), 0x4000000000000000 + 1032);
    EXPECT_EQ(reply.FindString("error string"), "no disc in that slot");
}

TEST_F(ServersTest, MountAndEjectOfABusyRobotGetTheirCodes) {
    Do("put changer=A1 slot=1");
    Do("timing changer=A1 moving=3600000 timeout=0");
    EXPECT_EQ(Exchange(MakePrivateMount(0)), 1020);
    EXPECT_EQ(Exchange(MakePrivateMount(0)), 1020);
    EXPECT_EQ(Exchange(MakePrivateMount(1)), 1021);
    EXPECT_EQ(Exchange(MakePrivateEject(0)), 1021);
}

TEST_F(ServersTest, RequestsWaitForTheRobotWithinTheTimeout) {
    Do("timing changer=A1 moving=1 spin-up=1 timeout=60000");
    EXPECT_EQ(Exchange(MakePrivateMount(0)), 0);
    EXPECT_EQ(Exchange(MakePrivateEject(0)), 0);
}

TEST_F(ServersTest, InvalidRequestsGetTheirErrorCodes) {
    EXPECT_EQ(Exchange(MakeRequest("brew coffee")), 1034);
    EXPECT_EQ(Exchange(MakeRequest("mount disc")), 1033);
    EXPECT_EQ(Exchange(Value::MakeArray()), 1033);
    Value request = MakePrivateEject(0);
    request.Set("Changer GUID", 0xB2);
    EXPECT_EQ(Exchange(request), 1032);
}

TEST_F(ServersTest, OneConnectionCarriesManyRequests) {
    Peer peer = Connect();
    const std::string frame = EncodeFrame(MakePrivateEject(0).ToXml());
    peer.Send(frame + frame);
    EXPECT_TRUE(peer.ReceiveValue());
    EXPECT_TRUE(peer.ReceiveValue());
}

TEST_F(ServersTest, RequestWithTheNoReplyKeyGetsNoReply) {
    Peer peer = Connect();
    Value silent = MakeRequest("request identification");
    silent.Set("request", true).Set("no reply", true);
    peer.SendRequest(silent);
    EXPECT_EQ(peer.Exchange(MakePrivateMount(2)), 1032)
        << "the first reply is the second request's";
}

TEST_F(ServersTest, InvalidBytesCloseTheConnection) {
    for (const std::string& bytes :
         {std::string("this is no frame at all"), EncodeFrame("this is no property list")}) {
        Peer peer = Connect();
        peer.Send(bytes);
        EXPECT_FALSE(peer.ReceiveValue()) << bytes;
    }
    EXPECT_EQ(Exchange(MakePrivateMount(0)), 0) << "other connections are served";
}

TEST_F(ServersTest, IdleClientsDoNotBlockOthers) {
    std::vector<Peer> idle;
    for (int count = 0; count < 20; ++count) {
        idle.push_back(Connect());
        idle.back().Send("giSh");
    }
    EXPECT_EQ(Exchange(MakePrivateMount(0)), 0);
}

// More clients than connections: the oldest idle ones are disconnected.
TEST_F(ServersTest, OldestIdleClientsAreDisconnectedAtTheLimit) {
    rlimit limit = {};
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = std::min<rlim_t>(limit.rlim_max, 4096);
    setrlimit(RLIMIT_NOFILE, &limit);
    std::vector<Peer> idle;
    for (int count = 0; count < 600; ++count)
        idle.push_back(Connect());
    EXPECT_EQ(Exchange(MakePrivateMount(0)), 0);
    EXPECT_EQ(idle.front().Receive(), "");
    EXPECT_EQ(idle.back().Exchange(MakePrivateEject(0)), 0);
}

TEST_F(ServersTest, StopClosesConnectionsAndRemovesSockets) {
    Peer waiting = Connect();
    Peer subscriber = Subscribe();
    Do("stop");
    EXPECT_FALSE(waiting.ReceiveValue());
    while (subscriber.ReceiveValue()) {
    }
    EXPECT_THROW(Connect(), std::system_error);
    EXPECT_TRUE(std::filesystem::is_empty(folder_));
    Do("start");
    EXPECT_EQ(Exchange(MakePrivateMount(0)), 0);
}

// ---- Faults ----

TEST_F(ServersTest, ReplyFaultsReplaceOrCloseTheReply) {
    Do("fault on=\"mount disc\" do=error code=1050 text=\"100%\"");
    EXPECT_EQ(Request(MakePrivateMount(0)).value().FindString("error string"), "100%");

    Do("fault on=request do=close");
    EXPECT_FALSE(Request(MakePrivateMount(0)));

    Do("fault on=request do=raw hex=010203");
    Peer raw = Connect();
    raw.SendRequest(MakePrivateEject(0));
    EXPECT_EQ(raw.Receive(), "\x01\x02\x03");

    EXPECT_EQ(Exchange(MakePrivateMount(0)), 0) << "all faults are used up";
}

TEST_F(ServersTest, ErrorFaultExecutesTheRequestOnlyWithAct) {
    Do("timing changer=A1 moving=3600000 timeout=0");
    Do("fault on=\"mount disc\" do=error code=1");
    EXPECT_EQ(Exchange(MakePrivateMount(0)), 1);
    EXPECT_EQ(Exchange(MakePrivateEject(0)), 0) << "the disc is in its slot";
    Do("fault on=\"mount disc\" do=error code=1 act=yes");
    EXPECT_EQ(Exchange(MakePrivateMount(0)), 1);
    EXPECT_EQ(Exchange(MakePrivateEject(0)), 1021) << "the disc is in transit";
}

TEST_F(ServersTest, ConnectionFaultResetsTheConnection) {
    Do("fault on=connection do=close");
    Peer peer = Connect();
    SubscribeAndReceive(); // gives the server time for a wrong early close
    EXPECT_NO_THROW(peer.SendRequest(MakePrivateMount(0)));
    EXPECT_EQ(peer.Receive(), "");
    EXPECT_EQ(errno, ECONNRESET);
    EXPECT_EQ(Exchange(MakePrivateEject(0)), 0);
}

TEST_F(ServersTest, SplitReplyArrivesInPieces) {
    Do("fault on=request do=split size=5");
    Peer peer = Connect();
    peer.SendRequest(MakePrivateEject(0));
    for (int count = 0; count < 10; ++count)
        EXPECT_EQ(peer.Receive().size(), 5u);
}

// ---- Notifications ----

TEST_F(ServersTest, NewSubscriberGetsAllNotifications) {
    Peer first = SubscribeAndReceive();
    SubscribeAndReceive();
    Do("ready changer=A1 value=no");
    EXPECT_EQ(ReceiveKeys(first, 1), std::vector<std::string>{"changer info"})
        << "the first notifications of another subscriber are not sent to this one";
}

TEST_F(ServersTest, ChangesGoToAllSubscribers) {
    Peer first = Subscribe();
    Peer second = Subscribe();
    Do("root-preferences identify-on-insert=yes");
    for (Peer* peer : {&first, &second}) {
        AwaitNotification(*peer, [](const std::string& xml) {
            return Contains(xml, "<key>IdentifyMediaOnInsert</key>");
        });
    }
    Do("remove-changer changer=A1");
    for (Peer* peer : {&first, &second}) {
        AwaitNotification(*peer, [](const std::string& xml) {
            return Contains(xml, "changer list") && !Contains(xml, "161");
        });
    }
}

TEST_F(ServersTest, PushTogetherSendsOneFrame) {
    Peer peer = SubscribeAndReceive();
    Do("push together=yes");
    auto keys = ReceiveKeys(peer, 1);
    std::ranges::sort(keys);
    EXPECT_EQ(keys, (std::vector<std::string>{"changer info", "changer list", "root preferences"}));
}

TEST_F(ServersTest, PausedNotificationsAreSentOnResume) {
    Peer peer = SubscribeAndReceive();
    Do("pause");
    Do("put changer=A1 slot=3");
    Do("put changer=A1 slot=2");
    Do("resume");
    EXPECT_EQ(ReceiveKeys(peer, 3), kAllKeys);
    Do("push together=yes");
    EXPECT_EQ(ReceiveKeys(peer, 1).size(), 3u) << "no other notification was pending";
}

TEST_F(ServersTest, ResumeOnceSendsOneStateAndStaysPaused) {
    Peer peer = SubscribeAndReceive();
    Do("pause");
    Do("put changer=A1 slot=3");
    Do("resume once=yes");
    EXPECT_EQ(ReceiveKeys(peer, 3), kAllKeys);
    Do("push");
    Do("push");
    Do("resume once=yes");
    EXPECT_EQ(ReceiveKeys(peer, 3), kAllKeys);
    Do("resume");
    EXPECT_EQ(ReceiveKeys(peer, 3), kAllKeys);
    Do("push together=yes");
    EXPECT_EQ(ReceiveKeys(peer, 1).size(), 3u)
        << "the notifications pushed during the pause were sent once";
}

TEST_F(ServersTest, PushSendsTheRequestedNumberOfTimes) {
    Peer peer = SubscribeAndReceive();
    Do("push together=yes times=3");
    for (int count = 0; count < 3; ++count)
        EXPECT_EQ(ReceiveKeys(peer, 1).size(), 3u);
}

TEST_F(ServersTest, CopiedNotificationsAreFramesInOrder) {
    const std::string path = folder_ + "/copy";
    Do("copy-notifications file=" + path);
    Peer peer = SubscribeAndReceive();
    std::ifstream file(path, std::ios::binary);
    FrameReader reader;
    reader.Append(std::string(std::istreambuf_iterator<char>(file), {}));
    for (const std::string& key : kAllKeys)
        EXPECT_EQ(Value::ParseXml(reader.TakePayload().value()).Keys().front(), key);
}

TEST_F(ServersTest, WithdrawalIsNotifiedWithoutAChange) {
    Peer peer = SubscribeAndReceive();
    Value withdrawal = MakeRequest("request identification");
    withdrawal.Set("request", false);
    EXPECT_EQ(Exchange(withdrawal), 0);
    EXPECT_EQ(ReceiveKeys(peer, 1), std::vector<std::string>{"changer info"});
}

TEST_F(ServersTest, PulseSendsTheInfoAgain) {
    Peer peer = SubscribeAndReceive();
    Do("pulse every=1");
    EXPECT_EQ(ReceiveKeys(peer, 2), (std::vector<std::string>{"changer info", "changer info"}));
}

TEST_F(ServersTest, RawBytesGoToAllSubscribers) {
    Peer peer = SubscribeAndReceive();
    Do("notify hex=676953680000");
    EXPECT_EQ(peer.Receive(), std::string("giSh\0\0", 6));
}

TEST_F(ServersTest, SubscriberThatNeverReadsDoesNotBlockOthers) {
    const Peer stuck = Subscribe();
    Do("fault on=notification do=huge size=900000 count=2");
    Do("push");
    Do("push");
    SubscribeAndReceive();
    EXPECT_EQ(Exchange(MakePrivateMount(0)), 0);
}

TEST_F(ServersTest, SerialServerRepliesAfterItsNotificationsAreRead) {
    Peer subscriber = SubscribeAndReceive();
    Do("serial value=yes");
    Do("fault on=notification do=huge size=900000");
    Do("push");
    const auto changer = simulator_->FindChanger(0xA1);
    const auto generation = changer->Generation();
    std::atomic<bool> isReplied = false;
    std::jthread requesting([&] {
        EXPECT_EQ(Exchange(MakePrivateMount(0)), 0);
        isReplied = true;
    });
    // The notification is larger than the socket's buffer, so it cannot have been read completely.
    ASSERT_TRUE(changer->WaitForChange(generation, TimePoint::max(), {}));
    EXPECT_TRUE(Subscribe().ReceiveValue()); // gives the server time for a wrong early reply
    EXPECT_FALSE(isReplied);
    const std::jthread reading([&] {
        while (!subscriber.Receive().empty()) {
        }
    });
    requesting.join();
    EXPECT_TRUE(isReplied);
    Do("stop");
}

} // namespace
} // namespace simulator
