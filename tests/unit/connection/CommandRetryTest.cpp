/* Eject and mount requests to a busy server, and the reply to a mount. */

#include "ChangerServerConnectionLib/ChangerServerCommands/ChangerServerEjectDisc.h"
#include "ChangerServerConnectionLib/ChangerServerCommands/ChangerServerMountDisc.h"
#include "FakeExchange.h"
#include "support/Chain.h"
#include "support/LogCapture.h"
#include "support/Matchers.h"
#include "support/WithoutMemory.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

constexpr VErrCode kTimedOut = 0x4000000000000400;

const char kEjectFile[] = "ChangerServerConnectionLib/ChangerServerCommands/ChangerServerEjectDisc";
const char kMountFile[] = "ChangerServerConnectionLib/ChangerServerCommands/ChangerServerMountDisc";

struct Command {
    VErrLink* (*run)(double timeout);
    const char* function;
    const char* file;
    const char* timedOut; // the message of a time-out
};

const Command kEject = {[](double timeout) { return ChangerServerEjectDisc(timeout, 7, 3, 0, 0); },
                        "ChangerServerEjectDisc", kEjectFile, "eject disc timed out"};

const Command kMount = {[](double timeout) {
                            return ChangerServerMountDiscInDrive(timeout, 7, 3, "", 0, "client", 0,
                                                                 0, nullptr, 0, nullptr, 0);
                        },
                        "ChangerServerMountDiscInDrive", kMountFile, "mount disc timed out"};

class CommandRetry : public testing::Test {
protected:
    LogCapture log;
};

// ---- repeated requests ----

// Earlier replies leak: the slot is overwritten without a release.
TEST_F(CommandRetry, RequestIsRepeatedEachSecondUntilSuccessOrTimeOut) {
    const struct {
        const char* name;
        const Command& command;
        double timeout;
        std::vector<ServerAnswer> answers;
        std::vector<long> times; // of the requests
        bool timesOut;
    } cases[] = {
        {"eject, free", kEject, 0, {{}}, {0}, false},
        {"eject, busy", kEject, 300, {Fails(1021), Fails(1021), {}}, {0, 1, 2}, false},
        {"eject, always busy", kEject, 2, {Fails(1021)}, {0, 1, 2, 3}, true},
        {"eject, time-out 0", kEject, 0, {Fails(1021)}, {0, 1}, true},
        {"eject, fractional time-out", kEject, 1.5, {Fails(1021)}, {0, 1, 2}, true},
        {"eject, clock set back",
         kEject,
         2,
         {Fails(1021), Fails(1021, -3600), Fails(1021)},
         {0, -3599, -3598, -3597, -3596},
         true},
        {"mount, busy", kMount, 300, {Fails(1021), Fails(1021), {}}, {0, 1, 2}, false},
        {"mount, under way", kMount, 300, {Fails(1020), Fails(1021), {}}, {0, 1, 2}, false},
        {"mount, always under way", kMount, 2, {Fails(1020)}, {0, 1, 2}, true},
        {"mount, always busy", kMount, 2, {Fails(1021)}, {0, 1, 2}, true},
        {"mount, time-out 0", kMount, 0, {Fails(1021)}, {0}, true},
        {"mount, clock set back",
         kMount,
         2,
         {Fails(1020), Fails(1020, -3600), Fails(1020)},
         {0, -3599, -3598, -3597},
         true},
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(each.name);
        const FakeExchange server(each.answers);
        const RaisedLink timedOut = {each.command.timedOut, each.command.function,
                                     each.command.file, kTimedOut};
        EXPECT_EQ(TakeChain(each.command.run(each.timeout)),
                  each.timesOut ? Chain{timedOut} : Chain());
        EXPECT_EQ(server.Times(), each.times);
        EXPECT_THAT(server.Released(), ElementsAre(each.times.size() - 1));
    }
}

TEST_F(CommandRetry, AnyOtherErrorFailsAtOnce) {
    const struct {
        const Command& command;
        std::vector<int> codes;
    } cases[] = {{kEject, {1020, 1004, 1005, 1, 7}}, {kMount, {1004, 1005, 1, 7}}};
    for (const auto& [command, codes] : cases) {
        for (const int number : codes) {
            const FakeExchange server({Fails(1021), Fails(number)});
            const VErrCode code = kVErrFacilityBase + number;
            EXPECT_EQ(TakeChain(command.run(300)),
                      (Chain{{"sent by the server", "Receive", "tests/unit/FakeExchange", code},
                             {"fail send message to changer server", command.function, command.file,
                              code}}));
            EXPECT_THAT(server.Times(), ElementsAre(0, 1)) << command.function << number;
        }
    }
}

TEST_F(CommandRetry, EachEjectRequestIsTheSame) {
    const FakeExchange server({Fails(1021), Fails(1021), {}});
    EXPECT_EQ(kEject.run(300), nullptr);
    EXPECT_THAT(server.Requests(), AllOf(SizeIs(3), Each(server.Requests()[0])));
}

constexpr char kClearErrors[] = "<key>mount disc clear errors</key>\n\t<true/>";
constexpr char kStartMount[] = "<key>mount disc start mount</key>\n\t<true/>";

TEST_F(CommandRetry, OnlyTheFirstMountRequestClearsErrors) {
    const FakeExchange server({Fails(1021), Fails(1021), {}});
    EXPECT_EQ(kMount.run(300), nullptr);
    const auto startsOnly = AllOf(Not(HasSubstr(kClearErrors)), HasSubstr(kStartMount));
    EXPECT_THAT(server.Requests(),
                ElementsAre(AllOf(HasSubstr(kClearErrors), HasSubstr(kStartMount)), startsOnly,
                            startsOnly));
}

TEST_F(CommandRetry, MountRequestsAfterUnderWayDoNotStartTheMountAgain) {
    const FakeExchange server({Fails(1020), Fails(1021), Fails(1020), {}});
    EXPECT_EQ(kMount.run(300), nullptr);
    const auto neither = AllOf(Not(HasSubstr("clear errors")), Not(HasSubstr("start mount")));
    EXPECT_THAT(server.Requests(),
                ElementsAre(AllOf(HasSubstr(kClearErrors), HasSubstr(kStartMount)), neither,
                            neither, neither));
}

TEST_F(CommandRetry, NothingIsSentWithoutMemory) {
    const FakeExchange server;
    EXPECT_EQ(ChainWithoutMemory([] { return kEject.run(300); }),
              (Chain{{"fail alloc messageDict", "InitEjectDiscMessage", kEjectFile},
                     {"fail InitEjectDiscMessage", "ChangerServerEjectDisc", kEjectFile}}));
    EXPECT_EQ(
        ChainWithoutMemory([] { return kMount.run(300); }),
        (Chain{{"fail alloc messageDict", "InitMountDiscMessage", kMountFile},
               {"fail init mount disc message", "ChangerServerMountDiscInDrive", kMountFile}}));
    EXPECT_THAT(server.Requests(), IsEmpty());
}

// ---- the reply to a mount ----

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

TEST_F(MountReply, MissingOrTooLongValueFails) {
    const struct {
        Value reply;
        const char* cause;
        const char* message;
        const char* path; // after the failure
    } cases[] = {
        {Dictionary({{"device id", "sr0"}}), "fail get value from dict",
         "fail get mount path from reply dictionary", ""},
        {Dictionary({{"mount path", "/mnt/a"}}), "fail get value from dict",
         "fail get device Id from reply dictionary", "/mnt/a"},
        {Dictionary({{"mount path", "/mnt/a-rather-long-name"}, {"device id", "sr0"}}),
         "fail get str as C str", "fail get mount path from reply dictionary", ""},
    };
    for (const auto& each : cases) {
        const FakeExchange server({{0, each.reply}});
        EXPECT_EQ(Mount(), (Chain{{each.cause, "CFHDictionaryGetStringValue", "common/CFHelpers"},
                                  {each.message, "ParseMountDiscReply", kMountFile},
                                  {"fail parse mount disc reply", "ChangerServerMountDiscInDrive",
                                   kMountFile},
                                  {"fail mount disc to drive index kNoDataTransferElem",
                                   "ChangerServerMountDisc", kMountFile}}));
        EXPECT_STREQ(path, each.path);
        EXPECT_STREQ(deviceId, "");
        EXPECT_THAT(server.Times(), ElementsAre(0));
        EXPECT_THAT(server.Released(), ElementsAre(0));
    }
}

TEST_F(MountReply, FailureLeavesEmptyTexts) {
    const FakeExchange server({Fails(7)});
    EXPECT_EQ(Mount().back().message, "fail mount disc to drive index kNoDataTransferElem");
    EXPECT_STREQ(path, "");
    EXPECT_STREQ(deviceId, "");
}

TEST_F(MountReply, BuffersOfNoSizeAreNotWritten) {
    const FakeExchange server({Fails(7)});
    pathSize = 0;
    deviceIdSize = 0;
    Mount();
    EXPECT_STREQ(path, "before");
    EXPECT_STREQ(deviceId, "before");
}

} // namespace
