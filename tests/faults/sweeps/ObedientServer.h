#ifndef TESTS_FAULTS_SWEEPS_OBEDIENTSERVER_H
#define TESTS_FAULTS_SWEEPS_OBEDIENTSERVER_H

/*
 * A changer server on real sockets, with this process's PID. It replies to each request at once and
 * closes the connection. A client that could not read the reply then notices the lost connection
 * instead of waiting.
 */

#include "connection/ScriptedServer.h"
#include "support/NotCopyable.h"

#include <mutex>
#include <string>
#include <vector>

class ObedientServer : NotCopyable {
public:
    ObedientServer();

    // The requests since the last call, also those on connections that the client closed early:
    // "5000C500ABCD1000: mount disc 3", "5000C500ABCD1000: set client status". Makes one exchange.
    std::vector<std::string> TakeRequests();

private:
    void Serve(Connection& connection);

    std::mutex mutex_;
    std::vector<std::string> requests_;
    ScriptedServer server_;
};

#endif
