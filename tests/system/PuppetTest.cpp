#include "PuppetTest.h"

#include "stage/Pattern.h"
#include "stage/ProcessState.h"

#include <cinttypes>
#include <cstdio>
#include <gmock/gmock.h>

using testing::UnorderedElementsAreArray;

namespace {

std::string Hex(std::uint64_t number) {
    char text[17];
    std::snprintf(text, sizeof text, "%" PRIX64, number);
    return text;
}

} // namespace

void PuppetTest::StartServer() {
    server_.emplace(scene_.TheRecord());
    server_->Listen();
}

void PuppetTest::Begin(const Changers& changers) {
    StartServer();
    scene_.StartDaemon();
    AwaitSubscriber();
    Introduce(changers);
    scene_.TakeBaseline();
    lastingThreads_ = stage::ListThreads(scene_.TheDaemon().Pid());
}

void PuppetTest::Introduce(const Changers& changers) {
    TellOf(changers);
    for (const wire::Changer& changer : changers)
        EXPECT_EQ(Serve(), "clear status " + Hex(changer.guid));
}

std::string PuppetTest::Shortly(const std::string& request) {
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
    const std::string request = Shortly(Server().ReadRequest(connection));
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
    stage::AwaitEndOfThreadsBut(lastingThreads_, scene_.TheDaemon().Pid());
}

void PuppetTest::AwaitLogLine(const std::string& pattern) {
    scene_.TheRecord().Await(stage::Voice::SystemLog, "trayprobed: " + pattern);
}

std::string PuppetTest::WorkerLine(std::uint64_t guid, const std::string& message) {
    return "MediaIdThread:[0-9]+, RunMediaIdThread: " +
           stage::Pattern::Literally(message + "(" + Hex(wire::kGuidBase + guid) + ", 0)") + ".*";
}

void PuppetTest::TearDown() {
    for (const std::string& complaint : scene_.End())
        ADD_FAILURE() << complaint;
    if (HasFailure())
        for (const stage::Line& line : scene_.TheRecord().Since(0))
            std::printf("%s: %.400s\n", NameOf(line.voice), line.text.c_str());
}
