#ifndef SIMULATOR_MESSAGESERVER_H
#define SIMULATOR_MESSAGESERVER_H

/* The message socket. One thread accepts; each connection has its own thread, so a slow client does
   not delay others. The requests of a connection are answered in order. */

#include "simulator/Events.h"
#include "simulator/Faults.h"
#include "simulator/Frame.h"
#include "simulator/LocalSocket.h"
#include "simulator/Values.h"

#include <atomic>
#include <chrono>
#include <functional>
#include <list>
#include <mutex>
#include <optional>
#include <stop_token>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace simulator {

class MessageServer {
public:
    // Used by the threads of all connections; must outlive the server.
    struct Services {
        Events& events;
        Faults& faults;
        // Executes a request and returns the reply, a dictionary. May block until `stop`.
        std::function<Value(const Value& request, std::stop_token stop)> handle;
        // Blocks until the reply may be sent, or until `stop`.
        std::function<void(std::stop_token stop)> beforeReply;
        // Called after the reply was sent, or was suppressed.
        std::function<void(const Value& request)> afterReply;
    };

    // Opens the socket and starts the accepting thread. Throws std::system_error.
    MessageServer(const std::string& path, Services services);
    // Closes all connections and joins their threads.
    ~MessageServer();

private:
    struct Connection {
        std::mutex lock;
        int idleClient = -1; // guarded by lock: the socket until the first request; -1 afterwards
        std::atomic<bool> ended = false;
        std::jthread thread;

        void SetIdle(int client);
    };

    void Accept();
    void DropIdleConnection();
    void Serve(Connection& connection, const Descriptor& client, unsigned long long number);
    bool ReceiveRequests(Connection& connection, int client, Fields& description,
                         FrameReader& reader);
    bool Answer(int client, const Fields& description, const std::string& payload);
    bool SendReply(int client, Fields description, const Value& request,
                   const std::optional<Fault>& fault);
    std::optional<Fault> TakeFault(const std::vector<std::string_view>& targets,
                                   const Fields& description);
    void AwaitRequest(int client) const;
    void Pause(std::chrono::milliseconds duration) const;
    void AwaitEnd(int client) const;

    const Services services_;
    ListeningSocket socket_;
    WakeEvent wakeEvent_;               // signalled at the end, for threads in poll()
    std::stop_source stop_;             // the same for threads that wait for a condition
    std::list<Connection> connections_; // used by the accepting thread only, until it ends
    std::jthread acceptor_;
};

} // namespace simulator

#endif
