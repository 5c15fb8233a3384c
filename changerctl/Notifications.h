#ifndef CHANGERCTL_NOTIFICATIONS_H
#define CHANGERCTL_NOTIFICATIONS_H

/*
 * The server's notifications, and waiting for them.
 *
 * All on the main thread, whose run loop receives the notifications: while a WaitUntil() runs, and
 * while a request waits for its reply.
 */

#include "ChangerServerConnectionLib/ChangerServerNotifications.h"
#include "changerctl/Changer.h"

#include <chrono>
#include <exception>
#include <functional>
#include <optional>
#include <utility>
#include <vector>

namespace changerctl {

/* A time limit; nothing: none. */
using TimeLimit = std::optional<std::chrono::seconds>;

/* How often a wait tests its condition without a notification: for what none announces, as a lost
   connection or a signal. */
inline constexpr double kTickSeconds = 0.1;

class Notifications {
public:
    // Subscribes. Throws Failure if the server cannot be reached, or without memory.
    Notifications();
    ~Notifications();
    Notifications(const Notifications&) = delete;
    Notifications& operator=(const Notifications&) = delete;

    // The changers as the last "changer info" showed them; empty before the first one.
    const std::vector<Changer>& Changers() const {
        return changers_;
    }
    // True while the connection to the server exists.
    bool IsConnected() const {
        return subscription_->socket != nullptr;
    }

    // Waits for the first "changer info". Throws Failure if the server cannot be reached or sends
    // none within the limit.
    void AwaitFirst(std::chrono::seconds limit);

    // Calls the observer after each further "changer info", also while a request waits for its
    // reply. What it throws is thrown by the next WaitUntil().
    void SetObserver(std::function<void()> observer) {
        observer_ = std::move(observer);
    }

    // Waits until the condition holds, which is tested now, after one or more "changer info" have
    // arrived and with each tick. Returns false if the limit has passed before. What the condition
    // throws ends the wait; a deferred signal ends it, too.
    bool WaitUntil(const std::function<bool()>& condition, TimeLimit limit);

private:
    static void ReceiveChangerInfo(CFTypeRef value, ChangerNotificationSubscription* subscription,
                                   void* refCon);
    static void ReceiveTick(CFRunLoopTimerRef timer, void* info);
    void EndRun();

    ChangerNotificationSubscription* subscription_ = nullptr;
    CFRunLoopTimerRef tick_ = nullptr;
    std::vector<Changer> changers_;
    std::function<void()> observer_;
    bool hasChangers_ = false;   // a "changer info" has arrived
    bool isWaiting_ = false;     // the innermost run of the run loop is that of WaitUntil()
    std::exception_ptr failure_; // of a callback; thrown by WaitUntil()
};

} // namespace changerctl

#endif
