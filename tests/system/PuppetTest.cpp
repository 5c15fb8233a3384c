#include "PuppetTest.h"

#include "testbed/Pattern.h"
#include "testbed/ProcessState.h"

#include <gmock/gmock.h>

#include <cinttypes>
#include <cstdio>

using testing::UnorderedElementsAreArray;

namespace {

std::string Hex(std::uint64_t number) {
    char text[17];
    std::snprintf(text, sizeof text, "%" PRIX64, number);
    return text;
}

} // namespace

void PuppetTest::StartServer() {
    server_.emplace(run_.OutputLog());
    server_->Listen();
}

void PuppetTest::Begin(const Changers& changers) {
    StartServer();
    run_.StartDaemon();
    AwaitSubscriber();
    AddChangers(changers);
    run_.TakeBaseline();
    lastingThreads_ = testbed::ListThreads(run_.Daemon().Pid());
}

void PuppetTest::AddChangers(const Changers& changers) {
    NotifyAbout(changers);
    for (const wire::Changer& changer : changers)
        EXPECT_EQ(Serve(), "clear status " + Hex(changer.guid));
}

std::string PuppetTest::Abbreviate(const std::string& request) {
    const std::size_t key = request.find("<key>Changer GUID</key>");
    const std::size_t number = request.find("<integer>", key) + 9;
    const std::string guid = Hex(std::stoull(request.substr(number)) - wire::kGuidBase);
    const auto names = [&](const char* command) {
        return request.find("<string>" + std::string(command) + "</string>") != std::string::npos;
    };
    if (names("mount disc"))
        return "mount " + guid;
    if (names("eject disc"))
        return "eject " + guid;
    return (names("request identification") ? "withdraw " : "clear status ") + guid;
}

void PuppetTest::Reply(int connection) {
    EXPECT_TRUE(Server().Write(connection, wire::EmptyReply()));
    Server().Do("end " + std::to_string(connection));
}

std::string PuppetTest::Serve() {
    const int connection = Server().AcceptClient();
    const std::string request = Abbreviate(Server().ReadRequest(connection));
    Reply(connection);
    return request;
}

std::vector<std::string> PuppetTest::Serve(std::size_t count) {
    std::vector<std::string> requests(count);
    for (std::string& request : requests)
        request = Serve();
    return requests;
}

void PuppetTest::ServeIdentificationsOf(const Changers& changers) {
    std::vector<std::string> expected;
    for (const wire::Changer& changer : changers)
        for (const char* request : {"withdraw ", "mount ", "eject ", "withdraw "})
            expected.push_back(request + Hex(changer.guid));
    EXPECT_THAT(Serve(expected.size()), UnorderedElementsAreArray(expected));
}

void PuppetTest::AwaitEndOfWorkers() {
    testbed::AwaitEndOfOtherThreads(lastingThreads_, run_.Daemon().Pid());
}

void PuppetTest::AwaitLogLine(const std::string& pattern) {
    run_.OutputLog().Await(testbed::Stream::SystemLog, "trayprobed: " + pattern);
}

std::string PuppetTest::WorkerLine(std::uint64_t guid, const std::string& message) {
    return "MediaIdThread:[0-9]+, RunMediaIdThread: " +
           testbed::Pattern::Escape(message + "(" + Hex(wire::kGuidBase + guid) + ", 0)") + ".*";
}

void PuppetTest::TearDown() {
    for (const std::string& complaint : run_.End())
        ADD_FAILURE() << complaint;
    if (HasFailure())
        for (const testbed::Line& line : run_.OutputLog().LinesFrom(0))
            std::printf("%s: %.400s\n", NameOf(line.stream), line.text.c_str());
}
