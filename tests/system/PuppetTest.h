#ifndef TESTS_SYSTEM_PUPPETTEST_H
#define TESTS_SYSTEM_PUPPETTEST_H

#include "Puppet.h"
#include "SystemTest.h"
#include "WireFrames.h"

#include <sys/types.h>

#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

/* A run with a Puppet for a server. */
class PuppetTest : public DaemonTest {
protected:
    using Changers = std::vector<wire::Changer>;

    // Starts a server and the daemon, adds the changers, and takes the baseline.
    void Begin(const Changers& changers);

    // Starts a server that listens.
    void StartServer();
    // Kills the server, starts the next one, and accepts the daemon's subscription.
    void RestartServer();
    Puppet& Server() {
        return server_.value();
    }

    // Accepts the notification connection, on which the functions below write.
    void AwaitSubscriber() {
        subscriber_ = Server().AcceptSubscriber();
    }
    void Notify(std::string_view bytes) {
        EXPECT_TRUE(Server().Write(subscriber_, bytes));
    }
    void NotifyAbout(const Changers& changers) {
        Notify(wire::ChangerList(changers) + wire::ChangerInfo(changers));
    }
    // Notifies about changers that the daemon does not know yet, and serves its requests.
    void AddChangers(const Changers& changers);
    // Notifies about new discs, and serves and checks the four requests of each identification, in
    // any order.
    void ExpectIdentificationsOf(const Changers& changers);
    // The second half of ExpectIdentificationsOf.
    void ServeIdentificationsOf(const Changers& changers);

    // Replies to the next request with success. Returns the request: "clear status A1",
    // "withdraw A1", "mount A1", "eject A1", for the changer wire::kGuidBase + 0xA1.
    std::string Serve();
    std::vector<std::string> Serve(std::size_t count);
    // Serves the next requests, which must be these in this order.
    void ExpectRequests(const std::vector<std::string>& requests);
    // Reads the next request, which must be this one, without a reply. Returns its connection.
    int AcceptRequest(const std::string& request);
    // Reads the rest of the connection's request.
    std::string ReadRequest(int connection);
    // Replies with success and closes the connection.
    void Reply(int connection);

    // Waits until no worker and no build runs. The next notification can then start each again.
    void AwaitEndOfWorkers();

    // Takes the next line of the log that matches, whatever was logged before it.
    void AwaitLogLine(const std::string& pattern);

    std::optional<Puppet> server_;
    int subscriber_ = 0;

private:
    std::set<pid_t> lastingThreads_;
};

#endif
