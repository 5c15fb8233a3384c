#include "changerctl/Notifications.h"

#include "changerctl/Failure.h"
#include "changerctl/Interruption.h"
#include "changerctl/Reachability.h"
#include "common/CFHelpers.h"

#include <new>
#include <string>
#include <utility>

namespace changerctl {

Notifications::Notifications() {
    RequireReachable(ServerSocket::Notifications);
    CFRunLoopTimerContext context = {0, this, nullptr, nullptr, nullptr};
    tick_ = CFRunLoopTimerCreate(kCFAllocatorDefault, CFAbsoluteTimeGetCurrent(), kTickSeconds, 0,
                                 0, ReceiveTick, &context);
    VErrLink* failure =
        SubscribeToChangerNotifications(nullptr, nullptr, ReceiveChangerInfo, this, &subscription_);
    const bool isReady = failure == nullptr && tick_ != nullptr;
    VErrCatch(&failure);
    if (!isReady) {
        CFHReleaseIfSet(tick_);
        if (subscription_ != nullptr)
            UnsubscribeFromChangerNotifications(subscription_);
        throw std::bad_alloc();
    }
    CFRunLoopAddTimer(CFRunLoopGetCurrent(), tick_, kCFRunLoopDefaultMode);
}

Notifications::~Notifications() {
    CFRunLoopTimerInvalidate(tick_);
    CFRelease(tick_);
    UnsubscribeFromChangerNotifications(subscription_);
}

void Notifications::AwaitFirst(std::chrono::seconds limit) {
    const auto hasArrived = [&] {
        if (!IsConnected())
            RequireReachable(ServerSocket::Notifications);
        return hasChangers_;
    };
    if (WaitUntil(hasArrived, limit))
        return;
    if (!IsConnected())
        throw Failure(ExitStatus::NoServer,
                      "cannot connect to " + SocketPath(ServerSocket::Notifications));
    throw Failure(ExitStatus::TimedOut, "the changer server sent no notification within " +
                                            std::to_string(limit.count()) + " s");
}

bool Notifications::WaitUntil(const std::function<bool()>& condition, TimeLimit limit) {
    using Clock = std::chrono::steady_clock;
    const Clock::time_point start = Clock::now();
    while (!condition()) {
        if (limit && Clock::now() - start >= *limit)
            return false;
        isWaiting_ = true;
        CFRunLoopRun();
        isWaiting_ = false;
        if (failure_)
            std::rethrow_exception(std::exchange(failure_, nullptr));
        Interruption::Check();
    }
    return true;
}

// Ends the run of WaitUntil(), which then tests its condition. The run of a request must go on: its
// end would be taken for a missing reply.
void Notifications::EndRun() {
    if (isWaiting_)
        CFRunLoopStop(CFRunLoopGetCurrent());
}

// No exception may leave a callback: it would pass through the run loop.
void Notifications::ReceiveChangerInfo(CFTypeRef value, ChangerNotificationSubscription*,
                                       void* refCon) {
    auto* notifications = static_cast<Notifications*>(refCon);
    try {
        notifications->changers_ = ReadChangers(value);
        notifications->hasChangers_ = true;
        if (notifications->observer_)
            notifications->observer_();
    } catch (...) {
        notifications->failure_ = std::current_exception();
    }
    notifications->EndRun();
}

void Notifications::ReceiveTick(CFRunLoopTimerRef, void* info) {
    static_cast<Notifications*>(info)->EndRun();
}

} // namespace changerctl
