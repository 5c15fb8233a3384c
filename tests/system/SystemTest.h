#ifndef TESTS_SYSTEM_SYSTEMTEST_H
#define TESTS_SYSTEM_SYSTEMTEST_H

/*
 * The fixtures of the system tests. Functions that wait throw testbed::Failure after
 * testbed::kTimeOut. The GUIDs of all changers need more than 63 bits: smaller ones are stored in
 * the reference itself, and references to them are not counted.
 */

#include "testbed/TestRun.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

/* One run of the daemon. Each test fails at its end for every problem that TestRun::End() returns,
   and prints all output if it failed. */
class DaemonTest : public testing::Test {
protected:
    // The last log line of a worker whose closing request failed. Its disc stays in progress as
    // long as its changer is known and its server lives.
    static constexpr const char* kWorkerGaveUp = "MediaIdThread:[0-9]+, RunMediaIdThread: "
                                                 "fail ChangerServerRequestChangerIdentification.*";

    static constexpr const char* kChanger = "5000C500ABCD00A1";

    // Returns the pattern of one logged link: "MediaIdThread:LINE, RunMediaIdThread: fail ...".
    // `module` and `function` are patterns, `message` is a text.
    static std::string Link(const std::string& module, const std::string& function,
                            const std::string& message);

    // See TestRun.
    void AwaitLog(const std::vector<std::string>& patterns) {
        run_.AwaitLog(patterns);
    }
    void SkipLogUntil(const std::string& pattern) {
        run_.SkipLogUntil(pattern);
    }

    struct LoggedLink {
        std::string module;
        std::string function;
        std::string message;
    };
    // Returns the patterns of links that all end in " (VErrCode = code)".
    static std::vector<std::string> LinksOfChain(int code, const std::vector<LoggedLink>& links);
    // Returns the patterns of the links of an identification in slot 0 whose mount failed.
    static std::vector<std::string> LinksOfFailedMount(const std::string& text, int code,
                                                       const std::string& changer = kChanger);

    void TearDown() override;

    testbed::TestRun run_;
};

/* A run with a simulated server, whose changer has the GUID 5000C500ABCD00A1 and is mounted on
   /tmp/carousel. */
class SystemTest : public DaemonTest {
protected:
    // Starts the server with an empty changer, and the daemon.
    void Begin(const std::string& changer = "slots=8 drives=2");
    // Starts the server; `changer` is added to the command "add-changer".
    void StartServer(const std::string& changer = "slots=8 drives=2");
    // Starts the daemon, waits until it has added the changer, and takes the baseline.
    void StartDaemon(const testbed::DaemonStart& start = {});

    testbed::Simulator& Server() {
        return run_.Server();
    }
    // See Simulator::Do().
    std::vector<testbed::Event> Do(const std::string& command) {
        return Server().Do(command);
    }
    // Puts a disc into the slot; `properties` are added to the command "put".
    void PutDisc(int slot, const std::string& properties = "");
    // As PutDisc, and waits for the end of its identification.
    void IdentifyNewDisc(int slot, const std::string& properties = "");
    // As IdentifyNewDisc, and checks that the disc was ejected.
    void ExpectIdentification(int slot);
    // Requests a build of the changer, as a user does.
    void RequestBuild();
    // As RequestBuild, and waits for the end of the build.
    void RunBuild();

    // Waits until the daemon has added a changer and cleared its status.
    void AwaitChangerAdded(const std::string& guid = kChanger);

    // Waits until the worker's last request for a disc has its reply and its connection is closed.
    void AwaitIdentification(int slot);

    // Waits until the closing request of a build that walked has its reply and its connection is
    // closed.
    void AwaitEndOfBuild();

    // Requests the identification of a disc that is there and waits for its end. The daemon has
    // then handled all earlier notifications, as it handles them in order.
    void AwaitServedRequest(int slot);

    // Waits until the daemon is idle: its main loop and its reader wait for events. A timer gets
    // its descriptor only when the main loop begins to wait.
    void AwaitIdle();

    // Waits for the log lines of an identification in slot 0 whose eject failed.
    void AwaitLogOfFailedEject(const std::string& text, int code);

    // Waits for a withdrawal of the changer's request after the event of that number, and for the
    // end of its connection. Returns the withdrawal.
    testbed::Event AwaitWithdrawalForChanger(int after);

    // Returns the daemon's requests so far: "mount 3", "eject 3", "withdraw 3", "withdraw changer",
    // "status 1/3", "clear status".
    std::vector<std::string> RequestsSoFar();
};

#endif
