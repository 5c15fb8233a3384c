/* The message of each command: keys, types, and failures when memory is short. */

#include "AllocationFaults.h"
#include "ChangerServerConnectionLib/ChangerServerCommands/ChangerServerEjectDisc.h"
#include "ChangerServerConnectionLib/ChangerServerCommands/ChangerServerMountDisc.h"
#include "ChangerServerConnectionLib/ChangerServerCommands/ChangerServerRequestIdentification.h"
#include "ChangerServerConnectionLib/ChangerServerCommands/ChangerServerSetClientStatus.h"
#include "FakeExchange.h"
#include "RefusedKey.h"
#include "support/Chain.h"
#include "support/LogCapture.h"
#include "support/Matchers.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace {

constexpr UInt64 kGUID = 0x9EDCBA9876543210;
constexpr std::int64_t kStoredGUID = -6999514556857568752;

class CommandMessage : public testing::Test {
protected:
    // The content of the only message sent.
    void ExpectSent(const CFOwned<CFMutableDictionaryRef>& expected) {
        EXPECT_THAT(server.Requests(), ElementsAre(XmlOf(expected)));
        EXPECT_THAT(server.Released(), ElementsAre(0));
    }

    FakeExchange server;
    LogCapture log;
};

// ---- eject ----

TEST_F(CommandMessage, EjectNamesChangerAndSlot) {
    EXPECT_THAT(TakeChain(ChangerServerEjectDisc(300, kGUID, 40000, 0, 5)), IsEmpty());
    ExpectSent(Dictionary({{"command", "eject disc"},
                           {"Changer GUID", kStoredGUID},
                           {"Storage Element Index", 40000 - 65536}}));
}

TEST_F(CommandMessage, PrivateEjectNamesProcessAndFamily) {
    TakeChain(ChangerServerEjectDisc(300, 7, 3, kEjectDiscPrivate, -5));
    ExpectSent(Dictionary({{"command", "eject disc"},
                           {"Changer GUID", 7},
                           {"Storage Element Index", 3},
                           {"private", true},
                           {"private PID", kOwnProcessId},
                           {"private family", -5}}));
}

TEST_F(CommandMessage, EjectOverridesAPrivateMount) {
    EXPECT_EQ(kEjectDiscOverridePrivate, 2u);
    TakeChain(ChangerServerEjectDisc(300, 7, 3, kEjectDiscOverridePrivate, 5));
    ExpectSent(Dictionary({{"command", "eject disc"},
                           {"Changer GUID", 7},
                           {"Storage Element Index", 3},
                           {"overridePrivate", true}}));
}

// ---- mount ----

TEST_F(CommandMessage, MountInAnyDriveNamesNone) {
    EXPECT_EQ(kNoDataTransferElem, 0xFFFF);
    TakeChain(ChangerServerMountDisc(300, kGUID, 3, "", "Media Identification", 0, 5, nullptr, 0,
                                     nullptr, 0));
    ExpectSent(Dictionary({{"command", "mount disc"},
                           {"Changer GUID", kStoredGUID},
                           {"Storage Element Index", 3},
                           {"Partition ID", ""},
                           {"client name", "Media Identification"},
                           {"mount disc clear errors", true},
                           {"mount disc start mount", true}}));
}

TEST_F(CommandMessage, MountInTheFirstDriveNamesIt) {
    TakeChain(ChangerServerMountDiscInDrive(300, 7, 3, "partition", 0, "client", 0, 0, nullptr, 0,
                                            nullptr, 0));
    ExpectSent(Dictionary({{"command", "mount disc"},
                           {"Changer GUID", 7},
                           {"Storage Element Index", 3},
                           {"Partition ID", "partition"},
                           {"Data Transfer Element Index", 0},
                           {"client name", "client"},
                           {"mount disc clear errors", true},
                           {"mount disc start mount", true}}));
}

TEST_F(CommandMessage, PrivateMountNamesProcessAndFamily) {
    TakeChain(ChangerServerMountDisc(300, 7, 3, "", "client",
                                     kMountDiscPrivate | kMountDiscDisallowMount, 0x80000001,
                                     nullptr, 0, nullptr, 0));
    ExpectSent(Dictionary({{"command", "mount disc"},
                           {"Changer GUID", 7},
                           {"Storage Element Index", 3},
                           {"Partition ID", ""},
                           {"client name", "client"},
                           {"private", true},
                           {"private PID", kOwnProcessId},
                           {"private family", static_cast<std::int32_t>(0x80000001)},
                           {"mount disc disallow mount", true},
                           {"mount disc clear errors", true},
                           {"mount disc start mount", true}}));
}

TEST_F(CommandMessage, MountMessageHasOnlyTheFlagsGiven) {
    CFOwned<CFMutableDictionaryRef> message;
    EXPECT_THAT(TakeChain(InitMountDiscMessage(7, 3, "p", 300, "client", 0, 0, message.Out())),
                IsEmpty());
    EXPECT_EQ(XmlOf(message), XmlOf(Dictionary({{"command", "mount disc"},
                                                {"Changer GUID", 7},
                                                {"Storage Element Index", 3},
                                                {"Partition ID", "p"},
                                                {"Data Transfer Element Index", 300},
                                                {"client name", "client"}})));
}

// ---- identification ----

TEST_F(CommandMessage, IdentificationOfAMediumNamesItsSlot) {
    TakeChain(ChangerServerRequestMediaIdentification(kGUID, 3, true));
    ExpectSent(Dictionary({{"command", "request identification"},
                           {"Changer GUID", kStoredGUID},
                           {"Storage Element Index", 3},
                           {"request", true}}));
}

TEST_F(CommandMessage, IdentificationOfTheElementBeforeTheLastNamesIt) {
    TakeChain(ChangerServerRequestMediaIdentification(7, 0xFFFE, false));
    ExpectSent(Dictionary({{"command", "request identification"},
                           {"Changer GUID", 7},
                           {"Storage Element Index", static_cast<std::int16_t>(0xFFFE)},
                           {"request", false}}));
}

TEST_F(CommandMessage, IdentificationOfTheLastElementNamesNoSlot) {
    TakeChain(ChangerServerRequestMediaIdentification(7, 0xFFFF, false));
    ExpectSent(Dictionary(
        {{"command", "request identification"}, {"Changer GUID", 7}, {"request", false}}));
}

TEST_F(CommandMessage, IdentificationOfAChangerNamesNoSlot) {
    TakeChain(ChangerServerRequestChangerIdentification(7, false));
    ExpectSent(Dictionary(
        {{"command", "request identification"}, {"Changer GUID", 7}, {"request", false}}));
}

// ---- client status ----

TEST_F(CommandMessage, ClientStatusHasTextAndSteps) {
    TakeChain(ChangerServerSetClientStatus(kGUID, "trayprobed", "zwölf", 3, 40000, true));
    ExpectSent(Dictionary({{"command", "set client status"},
                           {"Changer GUID", kStoredGUID},
                           {"client name", "trayprobed"},
                           {"message", "zwölf"},
                           {"current step", 3},
                           {"maximum step", 40000 - 65536},
                           {"abort requested", true}}));
}

TEST_F(CommandMessage, ClearedClientStatusIsEmpty) {
    TakeChain(ChangerServerClearClientStatus(7, "trayprobed"));
    ExpectSent(Dictionary({{"command", "set client status"},
                           {"Changer GUID", 7},
                           {"client name", "trayprobed"},
                           {"message", ""},
                           {"current step", 0},
                           {"maximum step", 0},
                           {"abort requested", false}}));
}

// ---- failures of the commands that ask once ----

const char kIdentificationFile[] =
    "ChangerServerConnectionLib/ChangerServerCommands/ChangerServerRequestIdentification";
const char kStatusFile[] =
    "ChangerServerConnectionLib/ChangerServerCommands/ChangerServerSetClientStatus";

TEST(CommandFailure, TheServersErrorIsWrappedAndItsCodeKept) {
    LogCapture log;
    const VErrCode code = kVErrFacilityBase + 1021; // a code that this command does not retry
    const FakeExchange server({Fails(1021)});
    const RaisedLink told = {"sent by the server", "Receive", "tests/unit/FakeExchange", code};
    const RaisedLink identification = {"fail SendMessageToChangerServer",
                                       "ChangerServerRequestMediaIdentification",
                                       kIdentificationFile, code};
    const RaisedLink status = {"fail SendMessageToChangerServer", "ChangerServerSetClientStatus",
                               kStatusFile, code};
    EXPECT_EQ(TakeChain(ChangerServerRequestMediaIdentification(7, 3, true)),
              (Chain{told, identification}));
    EXPECT_EQ(TakeChain(ChangerServerRequestChangerIdentification(7, true)),
              (Chain{told, identification}));
    EXPECT_EQ(TakeChain(ChangerServerSetClientStatus(7, "client", "text", 1, 2, false)),
              (Chain{told, status}));
    EXPECT_EQ(TakeChain(ChangerServerClearClientStatus(7, "client")),
              (Chain{told,
                     status,
                     {"fail ChangerServerSetClientStatus", "ChangerServerClearClientStatus",
                      kStatusFile, code}}));
    EXPECT_EQ(server.Requests().size(), 4u);
    EXPECT_THAT(server.Released(), ElementsAre(0, 1, 2, 3));
}

TEST(CommandFailure, WithoutMemoryNothingIsSent) {
    LogCapture log;
    const FakeExchange server;
    VErrLink* identificationErr = nullptr;
    VErrLink* statusErr = nullptr;
    {
        const AllocationFault fault(1);
        identificationErr = ChangerServerRequestMediaIdentification(7, 3, true);
    }
    {
        const AllocationFault fault(1);
        statusErr = ChangerServerSetClientStatus(7, "client", "text", 1, 2, false);
    }
    EXPECT_EQ(
        TakeChain(identificationErr),
        (Chain{{"fail alloc messageDict", "InitRequestIdentificationMessage", kIdentificationFile},
               {"fail InitRequestIdentificationMessage", "ChangerServerRequestMediaIdentification",
                kIdentificationFile}}));
    EXPECT_EQ(
        TakeChain(statusErr),
        (Chain{{"fail create message dict", "InitSetClientStatusMessage", kStatusFile},
               {"fail InitSetClientStatusMessage", "ChangerServerSetClientStatus", kStatusFile}}));
    EXPECT_THAT(server.Requests(), IsEmpty());
}

// ---- failures of the builders ----

using Build = std::function<VErrLink*(CFMutableDictionaryRef*)>;

// Builds with each allocation failing in turn. Returns the distinct chains in order.
std::vector<Chain> BuildWithoutMemory(const Build& build) {
    std::vector<Chain> chains;
    const auto earlier = Dictionary();
    CFMutableDictionaryRef message = nullptr;
    VErrLink* err = nullptr;
    SweepAllocationFaults(
        [&](std::size_t) {
            message = earlier;
            err = build(&message);
        },
        [&](std::size_t nth, bool) {
            EXPECT_NE(message, earlier.Get()) << nth;
            EXPECT_EQ(message == nullptr, err != nullptr) << nth;
            const CFOwned<CFMutableDictionaryRef> held(message);
            const Chain chain = TakeChain(err);
            if (!chain.empty() && (chains.empty() || chains.back() != chain))
                chains.push_back(chain);
        });
    return chains;
}

// A step of a builder that stores a value through a helper, or a flag without one.
struct Step {
    const char* helper;
    const char* message;
};

// The chains of a builder whose dictionary, and then each step, fails to allocate. Values of
// numbers must be above 255 for that: the smaller ones exist already. A flag needs memory only
// where the dictionary has to grow for it.
std::vector<Chain> ChainsOf(const char* file, const char* builder, const char* firstMessage,
                            std::vector<Step> steps) {
    std::vector<Chain> chains = {{{firstMessage, builder, file}}};
    for (const Step& step : steps) {
        if (step.helper == nullptr) {
            chains.push_back({{step.message, builder, file}});
            continue;
        }
        const bool isText = std::string(step.helper) == "String";
        const std::string helper = std::string("CFHDictionarySet") + step.helper + "Value";
        chains.push_back(
            {{isText ? "fail alloc str" : "fail alloc num", helper, "common/CFHelpers"},
             {step.message, builder, file}});
    }
    return chains;
}

TEST(BuilderFailure, EachFailingStepOfAnEjectMessageHasItsErrorText) {
    LogCapture log;
    const auto build = [](CFMutableDictionaryRef* message) {
        return InitEjectDiscMessage(kGUID, 1000, kEjectDiscPrivate | kEjectDiscOverridePrivate,
                                    -1000, message);
    };
    EXPECT_EQ(BuildWithoutMemory(build),
              ChainsOf("ChangerServerConnectionLib/ChangerServerCommands/ChangerServerEjectDisc",
                       "InitEjectDiscMessage", "fail alloc messageDict",
                       {{"UInt64", "fail set GUID argument"},
                        {"UInt16", "fail set storage element index"},
                        {"SInt32", "fail set eject private PID"},
                        {"SInt32", "fail set eject private family to -1000"},
                        {nullptr, "fail set override private flag"}}));
}

TEST(BuilderFailure, EachFailingStepOfAMountMessageHasItsErrorText) {
    LogCapture log;
    const auto build = [](CFMutableDictionaryRef* message) {
        return InitMountDiscMessage(kGUID, 1000, "partition", 1000, "client", 15, 1000, message);
    };
    EXPECT_EQ(BuildWithoutMemory(build),
              ChainsOf("ChangerServerConnectionLib/ChangerServerCommands/ChangerServerMountDisc",
                       "InitMountDiscMessage", "fail alloc messageDict",
                       {{"UInt64", "fail set GUID argument"},
                        {"UInt16", "fail set storage element index"},
                        {"String", "fail set partition id string"},
                        {"UInt16", "fail set data transfer element index"},
                        {"String", "fail set client name string"},
                        {nullptr, "fail set mount private flag"},
                        {"SInt32", "fail set mount private PID"},
                        {"UInt32", "fail set private mount family to 1000"}}));
}

TEST(BuilderFailure, EachFailingStepOfAnIdentificationMessageHasItsErrorText) {
    LogCapture log;
    const auto build = [](CFMutableDictionaryRef* message) {
        return InitRequestIdentificationMessage(kGUID, 1000, true, message);
    };
    EXPECT_EQ(BuildWithoutMemory(build),
              ChainsOf(kIdentificationFile, "InitRequestIdentificationMessage",
                       "fail alloc messageDict",
                       {{"UInt64", "fail set changer GUID"},
                        {"UInt16", "fail set storage element index"}}));
}

TEST(BuilderFailure, EachFailingStepOfAStatusMessageHasItsErrorText) {
    LogCapture log;
    const auto build = [](CFMutableDictionaryRef* message) {
        return InitSetClientStatusMessage(kGUID, "client", "text", 1000, 2000, true, message);
    };
    EXPECT_EQ(BuildWithoutMemory(build),
              ChainsOf(kStatusFile, "InitSetClientStatusMessage", "fail create message dict",
                       {{"UInt64", "fail set changer GUID"},
                        {"String", "fail set client name"},
                        {"String", "fail set message"},
                        {"UInt16", "fail set cur step"},
                        {"UInt16", "fail set max step"}}));
}

// If a value cannot be added, the error names the step that sets the value.
TEST(BuilderFailure, EachValueThatCannotBeAddedHasItsErrorText) {
    LogCapture log;
    const Build eject = [](CFMutableDictionaryRef* message) {
        return InitEjectDiscMessage(kGUID, 1, 3, 1, message);
    };
    const Build mount = [](CFMutableDictionaryRef* message) {
        return InitMountDiscMessage(kGUID, 1, "", 0, "client", 15, 1, message);
    };
    const Build identification = [](CFMutableDictionaryRef* message) {
        return InitRequestIdentificationMessage(kGUID, 1, true, message);
    };
    const Build status = [](CFMutableDictionaryRef* message) {
        return InitSetClientStatusMessage(kGUID, "client", "text", 1, 2, false, message);
    };
    const struct {
        const Build& build;
        const char* key;
        const char* message;
    } cases[] = {
        {eject, "command", "fail alloc messageDict"},
        {eject, "Changer GUID", "fail set GUID argument"},
        {eject, "Storage Element Index", "fail set storage element index"},
        {eject, "private", "fail set eject private flag"},
        {eject, "private PID", "fail set eject private PID"},
        {eject, "private family", "fail set eject private family to 1"},
        {eject, "overridePrivate", "fail set override private flag"},
        {mount, "command", "fail alloc messageDict"},
        {mount, "Changer GUID", "fail set GUID argument"},
        {mount, "Storage Element Index", "fail set storage element index"},
        {mount, "Partition ID", "fail set partition id string"},
        {mount, "Data Transfer Element Index", "fail set data transfer element index"},
        {mount, "client name", "fail set client name string"},
        {mount, "private", "fail set mount private flag"},
        {mount, "private PID", "fail set mount private PID"},
        {mount, "private family", "fail set private mount family to 1"},
        {mount, "mount disc disallow mount", "fail set disallow mount flag"},
        {mount, "mount disc clear errors", "fail set clear errors flag"},
        {mount, "mount disc start mount", "fail set start mount flag"},
        {identification, "command", "fail alloc messageDict"},
        {identification, "Changer GUID", "fail set changer GUID"},
        {identification, "Storage Element Index", "fail set storage element index"},
        {identification, "request", "fail save request identification"},
        {status, "command", "fail create message dict"},
        {status, "Changer GUID", "fail set changer GUID"},
        {status, "client name", "fail set client name"},
        {status, "message", "fail set message"},
        {status, "current step", "fail set cur step"},
        {status, "maximum step", "fail set max step"},
    };
    for (const auto& each : cases) {
        const RefusedKey refused(each.key);
        CFMutableDictionaryRef message = nullptr;
        const std::vector<std::string> messages = TakeMessages(each.build(&message));
        ASSERT_FALSE(messages.empty()) << each.message;
        EXPECT_EQ(messages.back(), each.message) << each.key;
        EXPECT_EQ(message, nullptr) << each.message;
    }
}

TEST(BuilderFailure, TextsThatAreNotUTF8AreNotSent) {
    LogCapture log;
    CFMutableDictionaryRef message = nullptr;
    EXPECT_THAT(TakeMessages(InitMountDiscMessage(7, 3, "\xFF", 0, "client", 0, 0, &message)),
                ElementsAre("fail alloc str", "fail set partition id string"));
    EXPECT_EQ(message, nullptr);
}

} // namespace
