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
#include "support/WithoutMemory.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <ostream>
#include <string>
#include <vector>

namespace {

constexpr UInt64 kGUID = 0x9EDCBA9876543210;
constexpr std::int64_t kStoredGUID = -6999514556857568752;

class CommandMessage : public testing::Test {
protected:
    // Checks the only message sent: the command, the changer, and these entries.
    void ExpectSent(const char* command, std::int64_t guid, std::initializer_list<Entry> entries) {
        const auto message = Dictionary(entries);
        CFDictionarySetValue(message, CFSTR("command"), Text(command));
        CFDictionarySetValue(message, CFSTR("Changer GUID"), Integer(guid));
        EXPECT_THAT(server.Requests(), ElementsAre(XmlOf(message)));
        EXPECT_THAT(server.Released(), ElementsAre(0));
    }

    FakeExchange server;
    LogCapture log;
};

// ---- eject ----

TEST_F(CommandMessage, EjectHasChangerAndSlot) {
    EXPECT_THAT(TakeChain(ChangerServerEjectDisc(300, kGUID, 40000, 0, 5)), IsEmpty());
    ExpectSent("eject disc", kStoredGUID, {{"Storage Element Index", 40000 - 65536}});
}

TEST_F(CommandMessage, PrivateEjectHasProcessAndFamily) {
    TakeChain(ChangerServerEjectDisc(300, 7, 3, kEjectDiscPrivate, -5));
    ExpectSent("eject disc", 7,
               {{"Storage Element Index", 3},
                {"private", true},
                {"private PID", kOwnProcessId},
                {"private family", -5}});
}

TEST_F(CommandMessage, EjectThatOverridesAPrivateMountHasTheFlag) {
    EXPECT_EQ(kEjectDiscOverridePrivate, 2u);
    TakeChain(ChangerServerEjectDisc(300, 7, 3, kEjectDiscOverridePrivate, 5));
    ExpectSent("eject disc", 7, {{"Storage Element Index", 3}, {"overridePrivate", true}});
}

// ---- mount ----

TEST_F(CommandMessage, MountInAnyDriveHasNoDrive) {
    EXPECT_EQ(kNoDataTransferElem, 0xFFFF);
    TakeChain(ChangerServerMountDisc(300, kGUID, 3, "", "Media Identification", 0, 5, nullptr, 0,
                                     nullptr, 0));
    ExpectSent("mount disc", kStoredGUID,
               {{"Storage Element Index", 3},
                {"Partition ID", ""},
                {"client name", "Media Identification"},
                {"mount disc clear errors", true},
                {"mount disc start mount", true}});
}

TEST_F(CommandMessage, MountInTheFirstDriveHasItsIndex) {
    TakeChain(ChangerServerMountDiscInDrive(300, 7, 3, "partition", 0, "client", 0, 0, nullptr, 0,
                                            nullptr, 0));
    ExpectSent("mount disc", 7,
               {{"Storage Element Index", 3},
                {"Partition ID", "partition"},
                {"Data Transfer Element Index", 0},
                {"client name", "client"},
                {"mount disc clear errors", true},
                {"mount disc start mount", true}});
}

TEST_F(CommandMessage, PrivateMountHasProcessAndFamily) {
    TakeChain(ChangerServerMountDisc(300, 7, 3, "", "client",
                                     kMountDiscPrivate | kMountDiscDisallowMount, 0x80000001,
                                     nullptr, 0, nullptr, 0));
    ExpectSent("mount disc", 7,
               {{"Storage Element Index", 3},
                {"Partition ID", ""},
                {"client name", "client"},
                {"private", true},
                {"private PID", kOwnProcessId},
                {"private family", static_cast<std::int32_t>(0x80000001)},
                {"mount disc disallow mount", true},
                {"mount disc clear errors", true},
                {"mount disc start mount", true}});
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

TEST_F(CommandMessage, IdentificationOfAMediumHasItsSlot) {
    TakeChain(ChangerServerRequestMediaIdentification(kGUID, 3, true));
    ExpectSent("request identification", kStoredGUID,
               {{"Storage Element Index", 3}, {"request", true}});
}

TEST_F(CommandMessage, IdentificationOfTheElementBeforeTheLastHasItsSlot) {
    TakeChain(ChangerServerRequestMediaIdentification(7, 0xFFFE, false));
    ExpectSent("request identification", 7,
               {{"Storage Element Index", static_cast<std::int16_t>(0xFFFE)}, {"request", false}});
}

TEST_F(CommandMessage, IdentificationOfTheLastElementHasNoSlot) {
    TakeChain(ChangerServerRequestMediaIdentification(7, 0xFFFF, false));
    ExpectSent("request identification", 7, {{"request", false}});
}

TEST_F(CommandMessage, IdentificationOfAChangerHasNoSlot) {
    TakeChain(ChangerServerRequestChangerIdentification(7, false));
    ExpectSent("request identification", 7, {{"request", false}});
}

// ---- client status ----

TEST_F(CommandMessage, ClientStatusHasTextAndSteps) {
    TakeChain(ChangerServerSetClientStatus(kGUID, "trayprobed", "zwölf", 3, 40000, true));
    ExpectSent("set client status", kStoredGUID,
               {{"client name", "trayprobed"},
                {"message", "zwölf"},
                {"current step", 3},
                {"maximum step", 40000 - 65536},
                {"abort requested", true}});
}

TEST_F(CommandMessage, ClearedClientStatusIsEmpty) {
    TakeChain(ChangerServerClearClientStatus(7, "trayprobed"));
    ExpectSent("set client status", 7,
               {{"client name", "trayprobed"},
                {"message", ""},
                {"current step", 0},
                {"maximum step", 0},
                {"abort requested", false}});
}

// ---- failures of the commands that send one request ----

const char kEjectFile[] = "ChangerServerConnectionLib/ChangerServerCommands/ChangerServerEjectDisc";
const char kMountFile[] = "ChangerServerConnectionLib/ChangerServerCommands/ChangerServerMountDisc";
const char kIdentificationFile[] =
    "ChangerServerConnectionLib/ChangerServerCommands/ChangerServerRequestIdentification";
const char kStatusFile[] =
    "ChangerServerConnectionLib/ChangerServerCommands/ChangerServerSetClientStatus";

TEST(CommandFailure, ErrorOfTheServerIsWrappedAndKeepsItsCode) {
    LogCapture log;
    const VErrCode code = kVErrFacilityBase + 1021; // a code that these commands do not retry
    const FakeExchange server({Fails(1021)});
    const RaisedLink cause = {"sent by the server", "Receive", "tests/unit/FakeExchange", code};
    const RaisedLink identification = {"fail SendMessageToChangerServer",
                                       "ChangerServerRequestMediaIdentification",
                                       kIdentificationFile, code};
    const RaisedLink status = {"fail SendMessageToChangerServer", "ChangerServerSetClientStatus",
                               kStatusFile, code};
    const RaisedLink cleared = {"fail ChangerServerSetClientStatus",
                                "ChangerServerClearClientStatus", kStatusFile, code};
    EXPECT_EQ(TakeChain(ChangerServerRequestMediaIdentification(7, 3, true)),
              (Chain{cause, identification}));
    EXPECT_EQ(TakeChain(ChangerServerRequestChangerIdentification(7, true)),
              (Chain{cause, identification}));
    EXPECT_EQ(TakeChain(ChangerServerSetClientStatus(7, "client", "text", 1, 2, false)),
              (Chain{cause, status}));
    EXPECT_EQ(TakeChain(ChangerServerClearClientStatus(7, "client")),
              (Chain{cause, status, cleared}));
    EXPECT_EQ(server.Requests().size(), 4u);
    EXPECT_THAT(server.Released(), ElementsAre(0, 1, 2, 3));
}

TEST(CommandFailure, NothingIsSentWithoutMemory) {
    LogCapture log;
    const FakeExchange server;
    EXPECT_EQ(
        ChainWithoutMemory([] { return ChangerServerRequestMediaIdentification(7, 3, true); }),
        (Chain{{"fail alloc messageDict", "InitRequestIdentificationMessage", kIdentificationFile},
               {"fail InitRequestIdentificationMessage", "ChangerServerRequestMediaIdentification",
                kIdentificationFile}}));
    EXPECT_EQ(
        ChainWithoutMemory(
            [] { return ChangerServerSetClientStatus(7, "client", "text", 1, 2, false); }),
        (Chain{{"fail create message dict", "InitSetClientStatusMessage", kStatusFile},
               {"fail InitSetClientStatusMessage", "ChangerServerSetClientStatus", kStatusFile}}));
    EXPECT_THAT(server.Requests(), IsEmpty());
}

// ---- failures of the builders ----

// One value of a message, and the error if it cannot be stored.
struct Step {
    const char* key;
    const char* error;
    const char* helper = nullptr; // "UInt64", "String"; a flag has none and needs no memory
    bool grows = false;           // the dictionary has to grow for a flag
};

struct Builder {
    const char* function;
    const char* file;
    const char* firstError; // of the dictionary and the command
    VErrLink* (*build)(CFMutableDictionaryRef*);
    std::vector<Step> steps;
};

void PrintTo(const Builder& builder, std::ostream* out) {
    *out << builder.function;
}

// Numbers must be above 255 to need memory: smaller ones are shared objects.
const Builder kBuilders[] = {
    {"InitEjectDiscMessage",
     kEjectFile,
     "fail alloc messageDict",
     [](CFMutableDictionaryRef* message) {
         return InitEjectDiscMessage(kGUID, 1000, kEjectDiscPrivate | kEjectDiscOverridePrivate,
                                     -1000, message);
     },
     {{"Changer GUID", "fail set GUID argument", "UInt64"},
      {"Storage Element Index", "fail set storage element index", "UInt16"},
      {"private", "fail set eject private flag"},
      {"private PID", "fail set eject private PID", "SInt32"},
      {"private family", "fail set eject private family to -1000", "SInt32"},
      {"overridePrivate", "fail set override private flag", nullptr, true}}},
    {"InitMountDiscMessage",
     kMountFile,
     "fail alloc messageDict",
     [](CFMutableDictionaryRef* message) {
         return InitMountDiscMessage(kGUID, 1000, "partition", 1000, "client", 15, 1000, message);
     },
     {{"Changer GUID", "fail set GUID argument", "UInt64"},
      {"Storage Element Index", "fail set storage element index", "UInt16"},
      {"Partition ID", "fail set partition id string", "String"},
      {"Data Transfer Element Index", "fail set data transfer element index", "UInt16"},
      {"client name", "fail set client name string", "String"},
      {"private", "fail set mount private flag", nullptr, true},
      {"private PID", "fail set mount private PID", "SInt32"},
      {"private family", "fail set private mount family to 1000", "UInt32"},
      {"mount disc disallow mount", "fail set disallow mount flag"},
      {"mount disc clear errors", "fail set clear errors flag"},
      {"mount disc start mount", "fail set start mount flag"}}},
    {"InitRequestIdentificationMessage",
     kIdentificationFile,
     "fail alloc messageDict",
     [](CFMutableDictionaryRef* message) {
         return InitRequestIdentificationMessage(kGUID, 1000, true, message);
     },
     {{"Changer GUID", "fail set changer GUID", "UInt64"},
      {"Storage Element Index", "fail set storage element index", "UInt16"},
      {"request", "fail save request identification"}}},
    {"InitSetClientStatusMessage",
     kStatusFile,
     "fail create message dict",
     [](CFMutableDictionaryRef* message) {
         return InitSetClientStatusMessage(kGUID, "client", "text", 1000, 2000, true, message);
     },
     {{"Changer GUID", "fail set changer GUID", "UInt64"},
      {"client name", "fail set client name", "String"},
      {"message", "fail set message", "String"},
      {"current step", "fail set cur step", "UInt16"},
      {"maximum step", "fail set max step", "UInt16"}}},
};

class MessageBuilder : public testing::TestWithParam<Builder> {
protected:
    // The chain if this step has no memory; empty if the step needs none.
    static Chain ChainOf(const Step& step) {
        const RaisedLink link = {step.error, GetParam().function, GetParam().file};
        if (step.helper == nullptr)
            return step.grows ? Chain{link} : Chain();
        const std::string helper = step.helper;
        return {{helper == "String" ? "fail alloc str" : "fail alloc num",
                 "CFHDictionarySet" + helper + "Value", "common/CFHelpers"},
                link};
    }

    LogCapture log;
};
INSTANTIATE_TEST_SUITE_P(OfEachCommand, MessageBuilder, testing::ValuesIn(kBuilders),
                         [](const auto& each) { return std::string(each.param.function); });

TEST_P(MessageBuilder, EachFailingAllocationHasTheErrorOfItsStep) {
    std::vector<Chain> expected = {{{GetParam().firstError, GetParam().function, GetParam().file}}};
    for (const Step& step : GetParam().steps)
        if (const Chain chain = ChainOf(step); !chain.empty())
            expected.push_back(chain);

    std::vector<Chain> chains; // different ones, in order
    const auto earlier = Dictionary();
    CFMutableDictionaryRef message = nullptr;
    VErrLink* err = nullptr;
    const auto build = [&](std::size_t) {
        message = earlier;
        err = GetParam().build(&message);
    };
    SweepAllocationFaults(build, [&](std::size_t nth, bool) {
        EXPECT_NE(message, earlier.Get()) << nth;
        EXPECT_EQ(message == nullptr, err != nullptr) << nth;
        const CFOwned<CFMutableDictionaryRef> owned(message);
        const Chain chain = TakeChain(err);
        if (!chain.empty() && (chains.empty() || chains.back() != chain))
            chains.push_back(chain);
    });
    EXPECT_EQ(chains, expected);
}

TEST_P(MessageBuilder, EachRefusedKeyHasTheErrorOfItsStep) {
    std::vector<Step> steps = GetParam().steps;
    steps.push_back({"command", GetParam().firstError});
    for (const Step& step : steps) {
        const RefusedKey refused(step.key);
        CFMutableDictionaryRef message = nullptr;
        const std::vector<std::string> messages = TakeMessages(GetParam().build(&message));
        ASSERT_FALSE(messages.empty()) << step.key;
        EXPECT_EQ(messages.back(), step.error) << step.key;
        EXPECT_EQ(message, nullptr) << step.key;
    }
}

TEST(InitMountDiscMessage, TextThatIsNotUtf8Fails) {
    LogCapture log;
    CFMutableDictionaryRef message = nullptr;
    EXPECT_THAT(TakeMessages(InitMountDiscMessage(7, 3, "\xFF", 0, "client", 0, 0, &message)),
                ElementsAre("fail alloc str", "fail set partition id string"));
    EXPECT_EQ(message, nullptr);
}

} // namespace
