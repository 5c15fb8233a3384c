#ifndef SIMULATOR_PUBLISHER_H
#define SIMULATOR_PUBLISHER_H

/*
 * Sends the state to the subscribers: after each change, to each new subscriber, and at each pulse.
 * A pulse repeats "changer info" after a time without other notifications.
 *
 * A change only marks the notifications to send. A thread makes the notifications and enqueues
 * them, in one order for all subscribers. Changes during one iteration of the thread share the next
 * one.
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

/* Any thread may call. Only Flush, Pause and Detach block, each for at most one iteration. */
class Publisher {
public:
    // Starts the thread, which calls `describe` for the current value of one notification.
    Publisher(Events& events, Faults& faults, std::function<Value(Notifications)> describe);
    ~Publisher();

    // Sends through `server` until Detach() returns. Without a server nothing is sent.
    void Attach(NotificationServer& server);
    void Detach();

    // Marks a set of Notifications for all subscribers, or all notifications for one.
    void Mark(unsigned notifications);
    void MarkForSubscriber(SubscriberId subscriber);
    // Marks all notifications for all subscribers, to be sent in one frame.
    void MarkTogether();
    // Blocks until everything marked before is enqueued. Returns at once while nothing can be sent.
    void Flush();

    // Nothing is enqueued from the return of Pause() until Resume(). Marks are kept.
    void Pause();
    // Sends all notifications.
    void Resume();
    // Sends all notifications once and stays paused.
    void ResumeOnce();
    // Sets the time after which "changer info" is repeated; 0: never.
    void SetPulse(std::chrono::milliseconds pulse);

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
    unsigned long long requested_ = 0; // iterations requested
    unsigned long long completed_ = 0; // the last request that was completed
    bool isPublishing_ = false;        // an iteration is in progress
    bool paused_ = false;
    bool resumedOnce_ = false; // until the next iteration has ended
    bool attached_ = false;
    std::chrono::milliseconds pulse_{250};

    std::mutex serverLock_; // held during an iteration; guards server_
    NotificationServer* server_ = nullptr;

    std::jthread thread_;
};

} // namespace simulator

#endif
