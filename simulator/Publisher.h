#ifndef SIMULATOR_PUBLISHER_H
#define SIMULATOR_PUBLISHER_H

/*
 * Sends the state to the subscribers: on every change, to each newcomer, and at each pulse.
 *
 * Changes only mark what has to be sent; a thread of its own puts the notifications together and
 * queues them, so that they leave in one order. Marks that are made meanwhile share the next turn.
 */

#include "simulator/Faults.h"
#include "simulator/NotificationServer.h"
#include "simulator/Values.h"

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <set>
#include <stop_token>
#include <string>
#include <thread>
#include <vector>

namespace simulator {

/* A set of the three notifications. */
enum Notifications : unsigned {
    kNoNotification = 0,
    kChangerList = 1,
    kRootPreferences = 2,
    kChangerInfo = 4,
    kAllNotifications = 7,
};

class Publisher {
public:
    // Describe gives the present value of one notification; it is called on the thread.
    Publisher(Events& events, Faults& faults, std::function<Value(Notifications)> describe);
    ~Publisher();

    // From now on, until Detach returns, the notifications go through this server.
    void Attach(NotificationServer& server);
    void Detach();

    void Mark(unsigned notifications);
    void MarkForSubscriber(SubscriberId subscriber);
    // Sends all in one frame with the next turn.
    void MarkTogether();
    // Returns when what was marked before has been queued, or cannot be at present.
    void Flush();

    // Nothing is queued any more once it returns.
    void Pause();
    void Resume();
    // Sends everything once, and goes on holding.
    void ResumeOnce();
    void SetPulse(std::chrono::milliseconds pulse); // 0: none

private:
    struct Work {
        unsigned notifications = kNoNotification;
        bool together = false;
        std::set<SubscriberId> newSubscribers;
    };

    void Run(std::stop_token stop);
    void AwaitWork(std::unique_lock<std::mutex>& guard, std::stop_token stop);
    void Request(unsigned notifications);
    bool MaySend() const;
    bool HasWork() const;
    void Publish(const Work& work);
    void SendFrame(const Value& notification, const std::string& keys, bool toAll,
                   const std::set<SubscriberId>& newSubscribers);
    std::vector<Piece> Encode(const Value& notification);

    Events& events_;
    Faults& faults_;
    const std::function<Value(Notifications)> describe_;

    std::mutex lock_;
    std::condition_variable_any changed_;
    Work work_;
    unsigned long long requested_ = 0; // turns asked for
    unsigned long long completed_ = 0; // and made
    bool isPublishing_ = false;        // work was taken and is being published
    bool paused_ = false;
    bool resumedOnce_ = false; // until the next turn has been made
    bool attached_ = false;
    std::chrono::milliseconds pulse_{250};

    std::mutex serverLock_; // held for a turn; guards the server
    NotificationServer* server_ = nullptr;

    std::jthread thread_;
};

} // namespace simulator

#endif
