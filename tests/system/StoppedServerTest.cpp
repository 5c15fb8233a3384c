#include "PuppetTest.h"

#include <gmock/gmock.h>

using testing::ElementsAre;
using testing::UnorderedElementsAreArray;

namespace {

// How far a server has come with a request when it stops.
enum class Point {
    ReadPart,
    ReadRequest,
    WrotePartOfHeader,
    WroteHeader,
    WrotePartOfPayload,
    Accepted,
    DidNotAccept, // last, as whoever comes later is behind it
};
constexpr Point kPoints[] = {
    Point::ReadPart,           Point::ReadRequest, Point::WrotePartOfHeader, Point::WroteHeader,
    Point::WrotePartOfPayload, Point::Accepted,    Point::DidNotAccept};

std::size_t WrittenAt(Point point) {
    switch (point) {
    case Point::WrotePartOfHeader:
        return 5;
    case Point::WroteHeader:
        return wire::kHeaderSize;
    case Point::WrotePartOfPayload:
        return wire::kHeaderSize + 30;
    default:
        return 0;
    }
}

// A server that hangs, and that goes on after a while. Each point of a request has a changer of
// its own, whose disc is being mounted.
class StoppedServerTest : public PuppetTest {
protected:
    struct Exchange {
        Point point;
        int connection = 0;
    };

    // Has every disc's mount come to its point.
    void BringMountsToTheirPoints() {
        Begin(Without(changers_));
        for (std::size_t i = 0; i < changers_.size(); ++i) {
            changers_[i].hasDisc = true;
            TellOf(changers_);
            Serve(); // the withdrawal
            mounts_.push_back({kPoints[i]});
            Bring(mounts_.back());
        }
    }
    // Goes on with them to their ends; false where the daemon has given up.
    std::vector<bool> FinishMounts() {
        std::vector<bool> isTaken;
        for (Exchange& mount : mounts_) {
            isTaken.push_back(Finish(mount));
        }
        return isTaken;
    }

    static Changers Without(Changers changers) {
        for (wire::Changer& changer : changers) {
            changer.hasDisc = false;
        }
        return changers;
    }
    static std::vector<std::string> ForEach(const char* request) {
        std::vector<std::string> requests;
        for (const char* guid : {"A1", "A2", "A3", "A4", "A5", "A6", "A7"}) {
            requests.push_back(request + std::string(guid));
        }
        return requests;
    }

    Changers changers_ = {{0xA1}, {0xA2}, {0xA3}, {0xA4}, {0xA5}, {0xA6}, {0xA7}};
    std::vector<Exchange> mounts_;

private:
    void Bring(Exchange& mount) {
        if (mount.point == Point::DidNotAccept) {
            return;
        }
        mount.connection = Server().AcceptClient();
        if (mount.point == Point::ReadPart) {
            Server().Read(mount.connection, 5);
        } else if (mount.point != Point::Accepted) {
            Server().ReadRequest(mount.connection);
            Server().Write(mount.connection, wire::EmptyReply().substr(0, WrittenAt(mount.point)));
        }
    }
    bool Finish(Exchange& mount) {
        if (mount.point == Point::DidNotAccept) {
            mount.connection = Server().AcceptClient();
        }
        if (mount.point == Point::ReadPart || mount.point == Point::Accepted ||
            mount.point == Point::DidNotAccept) {
            EXPECT_THAT(Shortly(Server().ReadRequest(mount.connection)),
                        testing::StartsWith("mount "));
        }
        return Server().Write(mount.connection, wire::EmptyReply().substr(WrittenAt(mount.point)));
    }
};

TEST_F(StoppedServerTest, RequestsAreWaitedForAndNothingIsLost) {
    BringMountsToTheirPoints();
    Server().Stop();
    Server().Continue();
    EXPECT_THAT(FinishMounts(), testing::Each(true));
    std::vector<std::string> expected = ForEach("eject ");
    const std::vector<std::string> withdrawals = ForEach("withdraw ");
    expected.insert(expected.end(), withdrawals.begin(), withdrawals.end());
    EXPECT_THAT(Serve(expected.size()), UnorderedElementsAreArray(expected));
}

// Half a minute for all of them, side by side.
class SlowStoppedServerTest : public StoppedServerTest {
protected:
    void AwaitTimedOutMounts() {
        const std::string code = " \\(VErrCode = 1004\\)";
        for (const wire::Changer& changer : changers_) {
            AwaitLogLine("ChangerServerMessages:[0-9]+, GetMessageReplyErr: timeout waiting for "
                         "reply from changer server" +
                         code);
            AwaitLogLine("ChangerServerMountDisc:[0-9]+, ChangerServerMountDiscInDrive: fail send "
                         "message to changer server" +
                         code);
            AwaitLogLine("ChangerServerMountDisc:[0-9]+, ChangerServerMountDisc: fail mount disc "
                         "to drive index kNoDataTransferElem" +
                         code);
            AwaitLogLine(WorkerLine(changer.guid, "Fail ChangerServerMountDisc"));
        }
    }
};

TEST_F(SlowStoppedServerTest, RequestsTimeOutAndTheDiscsAreTriedAgain) {
    BringMountsToTheirPoints();
    Server().Stop();
    AwaitTimedOutMounts();
    Server().Continue();
    EXPECT_THAT(FinishMounts(), testing::Each(false));
    EXPECT_THAT(Serve(mounts_.size()), UnorderedElementsAreArray(ForEach("withdraw ")));
    TellOf(changers_);
    ServeIdentificationsOf(changers_);
}

// Where the notification that is under way is cut off by the stop.
class StoppedNotificationTest : public PuppetTest,
                                public testing::WithParamInterface<std::size_t> {};

INSTANTIATE_TEST_SUITE_P(Points, StoppedNotificationTest,
                         testing::Values(0, 1, 5, wire::kHeaderSize, wire::kHeaderSize + 1, 200));

TEST_P(StoppedNotificationTest, IsActedOnOnceWhenItIsComplete) {
    const Changers changers = {{0xA1, true}};
    Begin({{0xA1}});
    const std::string frame = wire::ChangerInfo(changers);
    Notify(frame.substr(0, GetParam()));
    Server().Stop();
    Server().Continue();
    Notify(frame.substr(GetParam()));
    ServeIdentificationsOf(changers);
}

} // namespace
