#ifndef TESTS_FAULTS_SWEEPS_OBEDIENTSERVER_H
#define TESTS_FAULTS_SWEEPS_OBEDIENTSERVER_H

/*
 * A changer server behind this process's own number, on real sockets: it does at once whatever it
 * is asked, and closes each connection after its reply. Whoever cannot read the reply then finds
 * the connection lost instead of waiting for one that never comes.
 */

#include "connection/ScriptedServer.h"

#include <mutex>
#include <string>
#include <vector>

class ObedientServer {
public:
    ObedientServer();
    ObedientServer(const ObedientServer&) = delete;
    ObedientServer& operator=(const ObedientServer&) = delete;

    // The requests that have arrived since the last call, those of given up connections included:
    // "5000C500ABCD1000: mount disc 3", "5000C500ABCD1000: set client status".
    std::vector<std::string> TakeRequests();

private:
    void Serve(Connection& connection);

    std::mutex mutex_;
    std::vector<std::string> requests_;
    ScriptedServer server_;
};

#endif
