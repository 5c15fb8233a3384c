#ifndef TESTS_SYSTEM_PUPPET_H
#define TESTS_SYSTEM_PUPPET_H

#include "testbed/Process.h"

#include <sys/types.h>

#include <string>
#include <string_view>

/* A changer server that a test controls step by step, in a process of its own
   (puppets/PuppetServer.cpp). The test can stop or kill it between two steps. Functions that wait
   throw testbed::Failure after testbed::kTimeOut. */
class Puppet {
public:
    // Starts the process. The output log must outlive this object.
    explicit Puppet(testbed::OutputLog& outputLog);

    pid_t Pid() const {
        return process_.Pid();
    }

    // Opens both sockets.
    void Listen();

    // Performs a step and returns its answer. Throws testbed::Failure if the step failed.
    std::string Do(const std::string& step);

    // Waits for a client; returns the connection's number.
    int AcceptClient();
    int AcceptSubscriber();

    // Reads `count` bytes of a request.
    void Read(int connection, std::size_t count);
    // Reads the rest of a request; returns its property list on one line.
    std::string ReadRequest(int connection);
    // Writes all bytes. False if the client has closed the connection.
    bool Write(int connection, std::string_view bytes);

    // Stop() sends SIGSTOP and waits until the process has stopped; Continue() sends SIGCONT.
    void Stop() {
        process_.Stop();
    }
    void Continue() {
        process_.Continue();
    }
    // Kills the process and leaves it in the process table, as a zombie.
    void Die();
    // Kills and reaps the process.
    void Kill();

private:
    testbed::OutputLog& outputLog_;
    testbed::Process process_;
};

#endif
