#include "PuppetTest.h"

#include "testbed/ProcessState.h"
#include "tests/unit/support/Matchers.h"

#include <cinttypes>
#include <cstdio>

namespace {

std::string Hex(std::uint64_t number) {
    char text[17];
    std::snprintf(text, sizeof text, "%" PRIX64, number);
    return text;
}

std::string Abbreviate(const std::string& request) {
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

} // namespace

void PuppetTest::StartServer() {
    server_.emplace(run_.OutputLog());
    server_->Listen();
}

void PuppetTest::RestartServer() {
    Server().Kill();
    StartServer();
    AwaitSubscriber();
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

void PuppetTest::Reply(int connection) {
    EXPECT_TRUE(Server().Write(connection, wire::EmptyReply()));
    Server().Do("end " + std::to_string(connection));
}

std::string PuppetTest::ReadRequest(int connection) {
    return Abbreviate(Server().ReadRequest(connection));
}

int PuppetTest::AcceptRequest(const std::string& request) {
    const int connection = Server().AcceptClient();
    EXPECT_EQ(ReadRequest(connection), request);
    return connection;
}

std::string PuppetTest::Serve() {
    const int connection = Server().AcceptClient();
    const std::string request = ReadRequest(connection);
    Reply(connection);
    return request;
}

std::vector<std::string> PuppetTest::Serve(std::size_t count) {
    std::vector<std::string> requests(count);
    for (std::string& request : requests)
        request = Serve();
    return requests;
}

void PuppetTest::ExpectRequests(const std::vector<std::string>& requests) {
    EXPECT_EQ(Serve(requests.size()), requests);
}

void PuppetTest::ExpectIdentificationsOf(const Changers& changers) {
    NotifyAbout(changers);
    ServeIdentificationsOf(changers);
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
