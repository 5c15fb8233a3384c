#ifndef TESTS_SYSTEM_PUPPETTEST_H
#define TESTS_SYSTEM_PUPPETTEST_H

/* What the tests with a Puppet for a server share. Every test fails at its end for whatever
   TestRun::End complains of. */

#include "Puppet.h"
#include "WireFrames.h"
#include "testbed/TestRun.h"

#include <gtest/gtest.h>

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

class PuppetTest : public testing::Test {
protected:
    using Changers = std::vector<wire::Changer>;

    // The usual opening: a server with these changers, and a daemon that has taken them up.
    void Begin(const Changers& changers);

    // It listens, and no more.
    void StartServer();
    Puppet& Server() {
        return server_.value();
    }

    // The notification connection, which these use.
    void AwaitSubscriber() {
        subscriber_ = Server().AcceptSubscriber();
    }
    void Notify(std::string_view bytes) {
        EXPECT_TRUE(Server().Write(subscriber_, bytes));
    }
    void NotifyAbout(const Changers& changers) {
        Notify(wire::ChangerList(changers) + wire::ChangerInfo(changers));
    }
    // Tells of changers that the daemon does not know yet, and serves what it asks then.
    void AddChangers(const Changers& changers);

    // Answers the next request with success; returns it in short: "clear status A1",
    // "withdraw A1", "mount A1", "eject A1", for the changer wire::kGuidBase + 0xA1.
    std::string Serve();
    std::vector<std::string> Serve(std::size_t count);
    void Reply(int connection);
    static std::string Abbreviate(const std::string& request);

    // Serves the four requests of each disc's identification, whichever order they come in.
    void ServeIdentificationsOf(const Changers& changers);

    // Waits until no worker runs any more, so that what is told next is acted on.
    void AwaitEndOfWorkers();

    // Takes the next line that matches, whatever was logged before it.
    void AwaitLogLine(const std::string& pattern);
    // The pattern of the line with which a worker gives up.
    static std::string WorkerLine(std::uint64_t guid, const std::string& message);

    void TearDown() override;

    testbed::TestRun run_;
    std::optional<Puppet> server_;
    int subscriber_ = 0;
    std::set<pid_t> lastingThreads_;
};

#endif
