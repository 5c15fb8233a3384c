/* Eject and mount while the server is busy: which request is repeated, how often, and how long. */

#include "AllocationFaults.h"
#include "ChangerServerConnectionLib/ChangerServerCommands/ChangerServerEjectDisc.h"
#include "ChangerServerConnectionLib/ChangerServerCommands/ChangerServerMountDisc.h"
#include "FakeExchange.h"
#include "support/Chain.h"
#include "support/LogCapture.h"
#include "support/Matchers.h"
#include "support/WithoutMemory.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <initializer_list>

namespace {

constexpr VErrCode kTimedOut = 0x4000000000000400;

const char kEjectFile[] = "ChangerServerConnectionLib/ChangerServerCommands/ChangerServerEjectDisc";
const char kMountFile[] = "ChangerServerConnectionLib/ChangerServerCommands/ChangerServerMountDisc";
const char kServerFile[] = "tests/unit/FakeExchange";

RaisedLink ByServer(int number) {
    return {"sent by the server", "Receive", kServerFile, kVErrFacilityBase + number};
}

Chain Eject(double timeout) {
    return TakeChain(ChangerServerEjectDisc(timeout, 7, 3, 0, 0));
}

Chain Mount(double timeout) {
    return TakeChain(ChangerServerMountDiscInDrive(timeout, 7, 3, "", 0, "client", 0, 0, nullptr, 0,
                                                   nullptr, 0));
}

class CommandRetry : public testing::Test {
protected:
    // A server that is busy and then fails: the command fails with each such code at once.
    static void ExpectFailureAtOnce(Chain (*command)(double timeout),
                                    std::initializer_list<int> codes, const char* function,
                                    const char* file) {
        for (const int number : codes) {
            const FakeExchange server({Fails(1021), Fails(number)});
            EXPECT_EQ(command(300), (Chain{ByServer(number),
                                           {"fail send message to changer server", function, file,
                                            kVErrFacilityBase + number}}));
            EXPECT_THAT(server.Times(), ElementsAre(0, 1)) << number;
        }
    }

    LogCapture log;
};

// ---- eject ----

TEST_F(CommandRetry, EjectSendsOneRequestWhenTheServerIsFree) {
    const FakeExchange server;
    EXPECT_THAT(Eject(0), IsEmpty());
    EXPECT_THAT(server.Times(), ElementsAre(0));
    EXPECT_THAT(server.Released(), ElementsAre(0));
}

TEST_F(CommandRetry, EjectRepeatsItsRequestEachSecondWhileTheServerIsBusy) {
    const FakeExchange server({Fails(1021), Fails(1021), {}});
    EXPECT_THAT(Eject(300), IsEmpty());
    EXPECT_THAT(server.Times(), ElementsAre(0, 1, 2));
    EXPECT_THAT(server.Requests(),
                ElementsAre(server.Requests()[0], server.Requests()[0], server.Requests()[0]));
}

TEST_F(CommandRetry, EjectFailsOnceMoreThanItsTimeOutHasPassed) {
    const FakeExchange server({Fails(1021)});
    EXPECT_EQ(Eject(2),
              (Chain{{"eject disc timed out", "ChangerServerEjectDisc", kEjectFile, kTimedOut}}));
    EXPECT_THAT(server.Times(), ElementsAre(0, 1, 2, 3));
}

TEST_F(CommandRetry, EjectWithATimeOutOfZeroSendsTwoRequests) {
    const FakeExchange server({Fails(1021)});
    EXPECT_EQ(Eject(0).size(), 1u);
    EXPECT_THAT(server.Times(), ElementsAre(0, 1));
}

TEST_F(CommandRetry, EjectComparesWholeSecondsWithAFractionalTimeOut) {
    const FakeExchange server({Fails(1021)});
    Eject(1.5);
    EXPECT_THAT(server.Times(), ElementsAre(0, 1, 2));
}

TEST_F(CommandRetry, EjectRestartsItsTimeOutWhenTheClockIsSetBack) {
    const FakeExchange server({Fails(1021), Fails(1021, -3600), Fails(1021)});
    EXPECT_EQ(Eject(2).size(), 1u);
    EXPECT_THAT(server.Times(), ElementsAre(0, -3599, -3598, -3597, -3596));
}

TEST_F(CommandRetry, EjectFailsAtOnceWithAnyOtherError) {
    ExpectFailureAtOnce(Eject, {1020, 1004, 1005, 1, 7}, "ChangerServerEjectDisc", kEjectFile);
}

// Earlier replies leak: the slot is overwritten without a release.
TEST_F(CommandRetry, EjectReleasesTheLastReplyOnly) {
    const FakeExchange server({Fails(1021), Fails(1021), {}});
    Eject(300);
    EXPECT_THAT(server.Released(), ElementsAre(2));
}

TEST_F(CommandRetry, EjectWithoutMemorySendsNothing) {
    const FakeExchange server;
    EXPECT_EQ(ChainWithoutMemory([&] { return ChangerServerEjectDisc(300, 7, 3, 0, 0); }),
              (Chain{{"fail alloc messageDict", "InitEjectDiscMessage", kEjectFile},
                     {"fail InitEjectDiscMessage", "ChangerServerEjectDisc", kEjectFile}}));
    EXPECT_THAT(server.Requests(), IsEmpty());
}

// ---- mount ----

constexpr char kClearErrors[] = "<key>mount disc clear errors</key>\n\t<true/>";
constexpr char kStartMount[] = "<key>mount disc start mount</key>\n\t<true/>";

TEST_F(CommandRetry, OnlyTheFirstMountRequestClearsErrors) {
    const FakeExchange server({Fails(1021), Fails(1021), {}});
    EXPECT_THAT(Mount(300), IsEmpty());
    EXPECT_THAT(server.Times(), ElementsAre(0, 1, 2));
    const auto startsAlone = AllOf(Not(HasSubstr(kClearErrors)), HasSubstr(kStartMount));
    EXPECT_THAT(server.Requests(),
                ElementsAre(AllOf(HasSubstr(kClearErrors), HasSubstr(kStartMount)), startsAlone,
                            startsAlone));
}

TEST_F(CommandRetry, MountRequestsAfterUnderWayDoNotStartTheMountAgain) {
    const FakeExchange server({Fails(1020), Fails(1021), Fails(1020), {}});
    EXPECT_THAT(Mount(300), IsEmpty());
    EXPECT_THAT(server.Times(), ElementsAre(0, 1, 2, 3));
    EXPECT_THAT(server.Requests()[0], AllOf(HasSubstr(kClearErrors), HasSubstr(kStartMount)));
    for (const std::size_t later : {1u, 2u, 3u})
        EXPECT_THAT(server.Requests()[later],
                    AllOf(Not(HasSubstr("clear errors")), Not(HasSubstr("start mount"))));
}

TEST_F(CommandRetry, MountFailsOnceItsTimeOutHasPassed) {
    for (const int number : {1020, 1021}) {
        const FakeExchange server({Fails(number)});
        EXPECT_EQ(Mount(2), (Chain{{"mount disc timed out", "ChangerServerMountDiscInDrive",
                                    kMountFile, kTimedOut}}));
        EXPECT_THAT(server.Times(), ElementsAre(0, 1, 2));
    }
}

TEST_F(CommandRetry, MountRestartsItsTimeOutWhenTheClockIsSetBack) {
    const FakeExchange server({Fails(1020), Fails(1020, -3600), Fails(1020)});
    EXPECT_EQ(Mount(2).size(), 1u);
    EXPECT_THAT(server.Times(), ElementsAre(0, -3599, -3598, -3597));
}

TEST_F(CommandRetry, MountWithATimeOutOfZeroSendsOneRequest) {
    const FakeExchange server({Fails(1021)});
    EXPECT_EQ(Mount(0).size(), 1u);
    EXPECT_THAT(server.Times(), ElementsAre(0));
}

TEST_F(CommandRetry, MountFailsAtOnceWithAnyOtherError) {
    ExpectFailureAtOnce(Mount, {1004, 1005, 1, 7}, "ChangerServerMountDiscInDrive", kMountFile);
}

TEST_F(CommandRetry, MountReleasesTheLastReplyOnly) {
    const FakeExchange server({Fails(1020), Fails(1021), {}});
    Mount(300);
    EXPECT_THAT(server.Released(), ElementsAre(2));
}

TEST_F(CommandRetry, MountWithoutMemorySendsNothing) {
    const FakeExchange server;
    EXPECT_EQ(ChainWithoutMemory([&] {
                  return ChangerServerMountDisc(300, 7, 3, "", "client", 0, 0, nullptr, 0, nullptr,
                                                0);
              }),
              (Chain{{"fail alloc messageDict", "InitMountDiscMessage", kMountFile},
                     {"fail init mount disc message", "ChangerServerMountDiscInDrive", kMountFile},
                     {"fail mount disc to drive index kNoDataTransferElem",
                      "ChangerServerMountDisc", kMountFile}}));
    EXPECT_THAT(server.Requests(), IsEmpty());
}

// ---- what a mount reads from its reply ----

class MountReply : public CommandRetry {
protected:
    Chain Mount() {
        return TakeChain(ChangerServerMountDisc(300, 7, 3, "", "client", 0, 0, path, pathSize,
                                                deviceId, deviceIdSize));
    }

    char pathBuffer[16] = "before";
    char deviceIdBuffer[16] = "before";
    char* path = pathBuffer;
    char* deviceId = deviceIdBuffer;
    CFIndex pathSize = sizeof pathBuffer;
    CFIndex deviceIdSize = sizeof deviceIdBuffer;
};

TEST_F(MountReply, PathAndDeviceAreCopied) {
    const FakeExchange server({{0, Dictionary({{"mount path", "/mnt/a"}, {"device id", "sr0"}})}});
    EXPECT_THAT(Mount(), IsEmpty());
    EXPECT_STREQ(path, "/mnt/a");
    EXPECT_STREQ(deviceId, "sr0");
}

TEST_F(MountReply, IsNotReadWithoutBuffers) {
    const FakeExchange server;
    path = nullptr;
    deviceId = nullptr;
    EXPECT_THAT(Mount(), IsEmpty());
}

TEST_F(MountReply, WithoutPathFails) {
    const FakeExchange server({{0, Dictionary({{"device id", "sr0"}})}});
    EXPECT_EQ(
        Mount(),
        (Chain{{"fail get value from dict", "CFHDictionaryGetStringValue", "common/CFHelpers"},
               {"fail get mount path from reply dictionary", "ParseMountDiscReply", kMountFile},
               {"fail parse mount disc reply", "ChangerServerMountDiscInDrive", kMountFile},
               {"fail mount disc to drive index kNoDataTransferElem", "ChangerServerMountDisc",
                kMountFile}}));
    EXPECT_STREQ(path, "");
    EXPECT_STREQ(deviceId, "");
    EXPECT_THAT(server.Times(), ElementsAre(0));
    EXPECT_THAT(server.Released(), ElementsAre(0));
}

TEST_F(MountReply, WithoutDeviceFails) {
    const FakeExchange server({{0, Dictionary({{"mount path", "/mnt/a"}})}});
    const Chain chain = Mount();
    ASSERT_EQ(chain.size(), 4u);
    EXPECT_EQ(chain[1].message, "fail get device Id from reply dictionary");
}

TEST_F(MountReply, WithAPathThatDoesNotFitFails) {
    const FakeExchange server(
        {{0, Dictionary({{"mount path", "/mnt/a-rather-long-name"}, {"device id", "sr0"}})}});
    const Chain chain = Mount();
    ASSERT_EQ(chain.size(), 4u);
    EXPECT_EQ(chain[0].message, "fail get str as C str");
}

TEST_F(MountReply, FailureLeavesEmptyTexts) {
    const FakeExchange server({Fails(7)});
    EXPECT_EQ(Mount().back().message, "fail mount disc to drive index kNoDataTransferElem");
    EXPECT_STREQ(path, "");
    EXPECT_STREQ(deviceId, "");
}

TEST_F(MountReply, BuffersOfNoSizeAreNotTouched) {
    const FakeExchange server({Fails(7)});
    pathSize = 0;
    deviceIdSize = 0;
    Mount();
    EXPECT_STREQ(path, "before");
    EXPECT_STREQ(deviceId, "before");
}

} // namespace
