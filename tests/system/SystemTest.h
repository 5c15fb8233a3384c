#ifndef TESTS_SYSTEM_SYSTEMTEST_H
#define TESTS_SYSTEM_SYSTEMTEST_H

/*
 * What the system tests share: a run with one server whose changer has the GUID 5000C500ABCD00A1
 * and is mounted on /tmp/carousel, and a daemon. Every test fails at its end for whatever
 * TestRun::End complains of. The GUIDs of all changers need more than 63 bits: the daemon's numbers
 * of smaller ones are held by the reference itself, and nobody would count references to them.
 */

#include "testbed/TestRun.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

class SystemTest : public testing::Test {
protected:
    // The usual opening: a server with an empty changer, and a daemon that has taken it up.
    void Begin(const std::string& changer = "slots=8 drives=2");

    void StartServer(const std::string& changer = "slots=8 drives=2");
    void StartDaemon(const testbed::DaemonStart& start = {});

    // Waits until the daemon, having seen a changer for the first time, has cleared its status.
    void AwaitChangerAdded(const std::string& guid = "5000C500ABCD00A1");

    // Waits until the worker's last request for a disc has been answered and its connection closed.
    void AwaitIdentification(int slot);

    // Waits until the closing request of a build that walked has been answered and its connection
    // closed.
    void AwaitEndOfBuild();

    // Waits until the daemon has acted on whatever the server told it so far: has a disc that is
    // there identified on request, since requests are served in the order of the notifications.
    void AwaitServedRequest(int slot);

    testbed::Simulator& Server() {
        return run_.Server();
    }
    std::vector<testbed::Event> Tell(const std::string& command) {
        return Server().Do(command);
    }
    void AwaitLog(const std::vector<std::string>& patterns) {
        run_.AwaitLog(patterns);
    }

    void SkipLogUntil(const std::string& pattern) {
        run_.SkipLogUntil(pattern);
    }

    // The pattern of one logged link: "MediaIdThread:LINE, RunMediaIdThread: fail ... (err = 5)".
    static std::string Link(const std::string& module, const std::string& function,
                            const std::string& message);

    // Waits for the log lines of an identification in slot 0 whose mount or eject failed.
    void AwaitLogOfFailedMount(const std::string& text, int code);
    void AwaitLogOfFailedEject(const std::string& text, int code);

    // Waits for a withdrawal of the changer's request after that event, and the end of its
    // connection.
    testbed::Event AwaitWithdrawalForChanger(int after);

    // What the daemon asked for so far, in short: "mount 3", "eject 3", "withdraw 3",
    // "withdraw changer", "status 1/3", "clear status".
    std::vector<std::string> RequestsSoFar();

    void TearDown() override;

    testbed::TestRun run_;
};

#endif
