#include "FaultDirector.h"
#include "PuppetTest.h"
#include "testbed/Descriptor.h"
#include "testbed/ReadWatch.h"

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <filesystem>
#include <fstream>
#include <string>

namespace {

namespace fs = std::filesystem;

// Other processes with the server's name, and other files in place of its sockets.
class ImpostorTest : public PuppetTest {
protected:
    // Each search for the server reads the name of each process once.
    class SearchWatch {
    public:
        explicit SearchWatch(const Puppet& found)
            : names_("/proc/" + std::to_string(found.Pid()) + "/comm") {}
        // Waits for two searches: the attempt to connect after the first one is then over.
        void AwaitAttempt() {
            names_.AwaitReads(names_.CountReadsSoFar() + 2);
        }

    private:
        testbed::ReadWatch names_;
    };

    void ExpectServerWorks() {
        AwaitSubscriber();
        AddChangers({{0xA1}});
        ExpectIdentificationsOf({{0xA1, true}});
    }
};

TEST_F(ImpostorTest, OlderProcessWithTheServersNameIsTriedUntilItEnds) {
    Puppet impostor(run_.OutputLog());
    SearchWatch searches(impostor);
    StartServer();
    run_.StartDaemon();
    searches.AwaitAttempt();
    impostor.Kill();
    ExpectServerWorks();
}

TEST_F(ImpostorTest, YoungerProcessWithTheServersNameIsIgnored) {
    StartServer();
    Puppet impostor(run_.OutputLog());
    impostor.Listen();
    run_.StartDaemon();
    ExpectServerWorks();
}

TEST_F(ImpostorTest, ZombieWithTheServersNameIsTriedUntilItIsReaped) {
    Puppet impostor(run_.OutputLog());
    SearchWatch searches(impostor);
    impostor.Die();
    StartServer();
    run_.StartDaemon();
    searches.AwaitAttempt();
    impostor.Kill();
    ExpectServerWorks();
}

TEST_F(ImpostorTest, ServerIsFoundByAnyNameThatContainsCarouseld) {
    StartServer();
    Server().Do("name ff256e206361726f7573656c640a"); // "\xff%n carouseld\n"
    run_.StartDaemon();
    ExpectServerWorks();
}

// ---- files that are not a listening socket ----

void BindStaleSocket(const std::string& path) {
    const testbed::Descriptor closed(socket(AF_UNIX, SOCK_STREAM, 0));
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    bind(closed.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address);
}

using MakeObstacle = void (*)(const std::string& path);

constexpr MakeObstacle kObstacles[] = {
    [](const std::string& path) { std::ofstream(path) << "text"; },
    [](const std::string& path) { fs::create_directory(path); },
    [](const std::string& path) { mkfifo(path.c_str(), 0666); },
    [](const std::string& path) { fs::create_symlink("/tmp/nowhere", path); },
    [](const std::string& path) { fs::create_symlink(path, path); },
    [](const std::string& path) { fs::create_symlink("/dev/zero", path); },
    BindStaleSocket,
};

TEST_F(ImpostorTest, OtherFileInPlaceOfTheMessageSocketFailsTheRequest) {
    server_.emplace(run_.OutputLog());
    Server().Do("listen notifications 1");
    run_.StartDaemon();
    AwaitSubscriber();
    const std::string path = "/tmp/carouseld-" + std::to_string(Server().Pid());
    for (const MakeObstacle make : kObstacles) {
        make(path);
        NotifyAbout({{0xA1}});
        AwaitLogLine(Link("ChangerServerMessages", "GetChangerServerMessageSocket",
                          "fail create/connect socket to path " + path));
        SkipLogUntil(Link("MediaIdManager", "ChangerInfoNotificationCallBack",
                          "fail handle added changers for changer at index 0") +
                     ".*");
        fs::remove(path);
    }
    Server().Do("listen messages 1");
    AddChangers({{0xA1}});
}

TEST_F(ImpostorTest, OtherFileInPlaceOfTheNotificationSocketIsRetriedWithoutLog) {
    server_.emplace(run_.OutputLog());
    SearchWatch searches(Server());
    const FaultDirector haste; // without a fault: the daemon tries to connect every 0.1 seconds
    run_.StartDaemon(haste.Start());
    const std::string path = "/tmp/carouseldn-" + std::to_string(Server().Pid());
    for (const MakeObstacle make : kObstacles) {
        make(path);
        searches.AwaitAttempt();
        fs::remove(path);
    }
    Server().Listen();
    ExpectServerWorks();
}

} // namespace
