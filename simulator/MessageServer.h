#ifndef SIMULATOR_MESSAGESERVER_H
#define SIMULATOR_MESSAGESERVER_H

/* The message socket: a thread accepts, and each connection has a thread of its own, so that no
   client, however slow, keeps another waiting. Requests on one connection are answered in order. */

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
    // What the server lends its connections.
    struct Services {
        Events& events;
        Faults& faults;
        // Carries a request out; the reply is a dictionary. May wait, but not beyond the stop.
        std::function<Value(const Value& request, std::stop_token stop)> handle;
        // Returns when a reply may be sent.
        std::function<void(std::stop_token stop)> beforeReply;
        // A request has been answered.
        std::function<void(const Value& request)> afterReply;
    };

    MessageServer(const std::string& path, Services services); // throws std::system_error
    ~MessageServer();

private:
    struct Connection {
        std::mutex lock;
        int idleClient = -1; // guarded: its socket as long as it has asked nothing
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
    WakeEvent wakeEvent_;               // rings when the server ends, for those who poll
    std::stop_source stop_;             // the same for those who wait for a condition
    std::list<Connection> connections_; // of the accepting thread, until it has ended
    std::jthread acceptor_;
};

} // namespace simulator

#endif
