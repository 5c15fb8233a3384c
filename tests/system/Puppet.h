#ifndef TESTS_SYSTEM_PUPPET_H
#define TESTS_SYSTEM_PUPPET_H

#include "testbed/Process.h"

#include <sys/types.h>

#include <string>
#include <string_view>

/* A changer server that does what the test says, step by step (puppets/PuppetServer.cpp), and that
   can be stopped or killed between any two of them. */
class Puppet {
public:
    explicit Puppet(testbed::OutputLog& outputLog);

    pid_t Pid() const {
        return process_.Pid();
    }

    // Opens both sockets.
    void Listen();

    // Carries out a step; returns its answer. Throws when it failed.
    std::string Do(const std::string& step);
    // The same in two halves, of which the first does not wait.
    void Begin(const std::string& step);
    std::string AwaitAnswer();

    // Waits for a client; returns the connection's number.
    int AcceptClient();
    int AcceptSubscriber();

    void Read(int connection, std::size_t count);
    std::string ReadRequest(int connection);
    // False when the client has gone.
    bool Write(int connection, std::string_view bytes);

    // By signals. After Stop it has stopped; after Die it is dead, but still in the process table;
    // after Kill it has gone from there, too.
    void Stop() {
        process_.Stop();
    }
    void Continue() {
        process_.Continue();
    }
    void Die();
    void Kill();

private:
    testbed::OutputLog& outputLog_;
    testbed::Process process_;
};

#endif
