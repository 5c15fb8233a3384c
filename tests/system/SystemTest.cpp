#include "SystemTest.h"

#include "testbed/Pattern.h"
#include "testbed/ProcessState.h"
#include "testbed/ReadWatch.h"

#include <gmock/gmock.h>

#include <cstdio>

using testbed::Event;
using testing::Contains;

namespace {

std::string Abbreviate(const Event& request) {
    const std::string command = request["command"];
    const std::string slot = request["storage-element-index"];
    if (command == "mount disc")
        return "mount " + slot;
    if (command == "eject disc")
        return "eject " + slot;
    if (command == "request identification") {
        const std::string verb = request["request"] == "no" ? "withdraw " : "request ";
        return verb + (slot.empty() ? "changer" : slot);
    }
    if (command == "set client status" && request["message"].empty())
        return "clear status";
    return "status " + request["current-step"] + "/" + request["maximum-step"];
}

} // namespace

std::string DaemonTest::Link(const std::string& module, const std::string& function,
                             const std::string& message) {
    return module + ":[0-9]+, " + function + ": " + testbed::Pattern::Escape(message);
}

std::vector<std::string> DaemonTest::LinksOfChain(int code, const std::vector<LoggedLink>& links) {
    const std::string suffix = " (VErrCode = " + std::to_string(code) + ")";
    std::vector<std::string> patterns;
    for (const LoggedLink& link : links)
        patterns.push_back(Link(link.module, link.function, link.message + suffix));
    return patterns;
}

std::vector<std::string> DaemonTest::LinksOfFailedMount(const std::string& text, int code,
                                                        const std::string& changer) {
    return LinksOfChain(code, {{"ChangerServerMessages", "GetMessageReplyErr", text},
                               {"ChangerServerMountDisc", "ChangerServerMountDiscInDrive",
                                "fail send message to changer server"},
                               {"ChangerServerMountDisc", "ChangerServerMountDisc",
                                "fail mount disc to drive index kNoDataTransferElem"},
                               {"MediaIdThread", "RunMediaIdThread",
                                "Fail ChangerServerMountDisc(" + changer + ", 0)"}});
}

// A puppet's lines may be very long.
void DaemonTest::TearDown() {
    for (const std::string& problem : run_.End())
        ADD_FAILURE() << problem;
    if (HasFailure())
        for (const testbed::Line& line : run_.OutputLog().LinesFrom(0))
            std::printf("%s: %.1000s\n", NameOf(line.stream), line.text.c_str());
}

void SystemTest::Begin(const std::string& changer) {
    StartServer(changer);
    StartDaemon();
}

void SystemTest::StartServer(const std::string& changer) {
    run_.StartServer();
    Do("add-changer changer=5000C500ABCD00A1 mount=/tmp/carousel " + changer);
    Do("start");
}

void SystemTest::StartDaemon(const testbed::DaemonStart& start) {
    testbed::ReadWatch infoFile("/tmp/carousel/.changer_info.plist");
    run_.StartDaemon(start);
    infoFile.AwaitReads(2);
    AwaitChangerAdded();
    run_.TakeBaseline();
}

void SystemTest::PutDisc(int slot, const std::string& properties) {
    Do("put changer=5000C500ABCD00A1 slot=" + std::to_string(slot) + " " + properties);
}

void SystemTest::IdentifyNewDisc(int slot, const std::string& properties) {
    PutDisc(slot, properties);
    AwaitIdentification(slot);
}

void SystemTest::ExpectIdentification(int slot) {
    IdentifyNewDisc(slot);
    EXPECT_THAT(RequestsSoFar(), Contains("eject " + std::to_string(slot)));
}

void SystemTest::RequestBuild() {
    Do("identify changer=5000C500ABCD00A1");
}

void SystemTest::RunBuild() {
    RequestBuild();
    AwaitEndOfBuild();
}

void SystemTest::AwaitChangerAdded(const std::string& guid) {
    const Event clearing = Server().Await(
        "request", {{"command", "set client status"}, {"changer", guid}, {"message", ""}});
    Server().Await("disconnect", {{"connection", clearing["connection"]}});
}

void SystemTest::AwaitIdentification(int slot) {
    Event last;
    for (int withdrawal = 0; withdrawal < 2; ++withdrawal) {
        last = Server().Await("request", {{"command", "request identification"},
                                          {"storage-element-index", std::to_string(slot)}});
    }
    Server().Await("disconnect", {{"connection", last["connection"]}});
}

void SystemTest::AwaitServedRequest(int slot) {
    Do("identify changer=5000C500ABCD00A1 slot=" + std::to_string(slot));
    AwaitIdentification(slot);
}

void SystemTest::AwaitIdle() {
    testbed::AwaitThreadsInSystemCall(run_.Daemon().Pid(), testbed::SystemCall::Poll, 1);
    testbed::AwaitThreadsInSystemCall(run_.Daemon().Pid(), testbed::SystemCall::EpollWait, 1);
}

Event SystemTest::AwaitWithdrawalForChanger(int after) {
    const Event withdrawal = Server().Await("request", [after](const Event& request) {
        return request.number > after && Abbreviate(request) == "withdraw changer";
    });
    Server().Await("disconnect", {{"connection", withdrawal["connection"]}});
    return withdrawal;
}

// A build clears its status just before its closing request.
void SystemTest::AwaitEndOfBuild() {
    const Event clearing =
        Server().Await("request", {{"command", "set client status"}, {"message", ""}});
    AwaitWithdrawalForChanger(clearing.number);
}

void SystemTest::AwaitLogOfFailedEject(const std::string& text, int code) {
    AwaitLog(LinksOfChain(
        code, {{"ChangerServerMessages", "GetMessageReplyErr", text},
               {"ChangerServerEjectDisc", "ChangerServerEjectDisc",
                "fail send message to changer server"},
               {"MediaIdThread", "RunMediaIdThread",
                "fail ChangerServerEjectDisc for changer 5000C500ABCD00A1/storage elem 0"}}));
}

std::vector<std::string> SystemTest::RequestsSoFar() {
    std::vector<std::string> requests;
    for (const Event& request : Server().AllSoFar("request"))
        requests.push_back(Abbreviate(request));
    return requests;
}
