#ifndef SIMULATOR_NOTIFICATIONSERVER_H
#define SIMULATOR_NOTIFICATIONSERVER_H

/* The notification socket. One thread serves all subscribers and has a queue for each, so a slow
   subscriber delays neither the others nor the model. */

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

/* Any thread may call. */
class NotificationServer {
public:
    // A subscriber with more bytes in its queue is disconnected.
    static constexpr std::size_t kMaximumQueued = std::size_t{256} * 1024 * 1024;

    // Opens the socket and starts the thread, which calls `onSubscribe` for each new subscriber.
    // Throws std::system_error.
    NotificationServer(const std::string& path, Events& events,
                       std::function<void(SubscriberId)> onSubscribe);
    // Joins the thread and disconnects all subscribers; queued bytes are lost.
    ~NotificationServer();

    // Enqueue the pieces for one subscriber, or for all. `keys` is reported in the event.
    void Send(SubscriberId subscriber, const std::vector<Piece>& pieces, const std::string& keys);
    void SendToAll(const std::vector<Piece>& pieces, const std::string& keys);

    // Also appends all bytes that are enqueued from now on to this file or pipe. Throws
    // CommandError if it cannot be opened.
    void CopyTo(const std::string& path);

    // Blocks until the subscribers have read everything, or until `stop` or the end of the server.
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
