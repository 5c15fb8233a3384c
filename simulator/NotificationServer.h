#ifndef SIMULATOR_NOTIFICATIONSERVER_H
#define SIMULATOR_NOTIFICATIONSERVER_H

/* The notification socket: one thread serves all subscribers, with a queue for each, so that a slow
   one holds up neither the others nor the model. Who lets too much pile up is dropped. */

#include "simulator/Events.h"
#include "simulator/Faults.h"
#include "simulator/LocalSocket.h"

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <stop_token>
#include <string>
#include <thread>
#include <vector>

namespace simulator {

using SubscriberId = unsigned long long;

class NotificationServer {
public:
    static constexpr std::size_t kMaximumQueued = std::size_t{256} * 1024 * 1024;

    // Greet is called on the server's thread for each new subscriber. Throws std::system_error.
    NotificationServer(const std::string& path, Events& events,
                       std::function<void(SubscriberId)> onSubscribe);
    ~NotificationServer();

    // Queues the pieces for one subscriber, or for all. Keys is what the event says of them.
    void Send(SubscriberId subscriber, const std::vector<Piece>& pieces, const std::string& keys);
    void SendToAll(const std::vector<Piece>& pieces, const std::string& keys);

    // Writes what is queued from now on, for whomever, also to this file or pipe. Throws
    // CommandError.
    void CopyTo(const std::string& path);

    // Returns when the subscribers have read all that was queued for them.
    void AwaitRead(std::stop_token stop);

private:
    struct Subscriber {
        Descriptor socket;
        std::deque<Piece> queue;
        std::size_t queuedBytes = 0;
    };
    using Subscribers = std::map<SubscriberId, Subscriber>;

    void Serve();
    void WaitForWork();
    void AcceptSubscriber();
    void SendQueued(); // with the lock held
    bool SendQueuedTo(Subscriber& subscriber);
    void Queue(Subscribers::iterator subscriber, const std::vector<Piece>& pieces,
               const std::string& keys);
    Subscribers::iterator Drop(Subscribers::iterator subscriber);

    Events& events_;
    const std::function<void(SubscriberId)> onSubscribe_;
    ListeningSocket socket_;
    WakeEvent work_;
    std::mutex lock_;
    std::condition_variable_any progress_;
    bool ending_ = false;
    Subscribers subscribers_;
    Descriptor copy_;
    SubscriberId lastId_ = 0;
    std::jthread thread_;
};

} // namespace simulator

#endif
