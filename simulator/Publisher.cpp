#include "simulator/Publisher.h"

#include <array>
#include <utility>

namespace simulator {

namespace {

// In the order of sending.
constexpr std::array<std::pair<Notifications, const char*>, 3> kNotificationKeys = {
    {{kChangerList, "changer list"},
     {kRootPreferences, "root preferences"},
     {kChangerInfo, "changer info"}}};

} // namespace

Publisher::Publisher(Events& events, Faults& faults, std::function<Value(Notifications)> describe)
    : events_(events), faults_(faults), describe_(std::move(describe)),
      thread_([this](std::stop_token stop) { Run(stop); }) {}

Publisher::~Publisher() {
    thread_.request_stop();
    thread_.join();
}

void Publisher::Attach(NotificationServer& server) {
    const std::scoped_lock guard(serverLock_, lock_);
    server_ = &server;
    attached_ = true;
    changed_.notify_all();
}

void Publisher::Detach() {
    const std::scoped_lock guard(serverLock_, lock_);
    server_ = nullptr;
    attached_ = false;
    changed_.notify_all();
}

void Publisher::Mark(unsigned notifications) {
    const std::lock_guard guard(lock_);
    Request(notifications);
}

void Publisher::MarkForSubscriber(SubscriberId subscriber) {
    const std::lock_guard guard(lock_);
    work_.newSubscribers.insert(subscriber);
    Request(kNoNotification);
}

void Publisher::MarkTogether() {
    const std::lock_guard guard(lock_);
    work_.together = true;
    Request(kNoNotification);
}

void Publisher::Request(unsigned notifications) {
    work_.notifications |= notifications;
    ++requested_;
    changed_.notify_all();
}

void Publisher::Flush() {
    std::unique_lock guard(lock_);
    const auto target = requested_;
    changed_.wait(guard, [&] { return !MaySend() || completed_ >= target; });
}

void Publisher::Pause() {
    std::unique_lock guard(lock_);
    paused_ = true;
    changed_.notify_all();
    changed_.wait(guard, [&] { return !isPublishing_; });
}

void Publisher::Resume() {
    const std::lock_guard guard(lock_);
    paused_ = false;
    Request(kAllNotifications);
}

void Publisher::ResumeOnce() {
    const std::lock_guard guard(lock_);
    resumedOnce_ = paused_;
    Request(kAllNotifications);
}

void Publisher::SetPulse(std::chrono::milliseconds pulse) {
    const std::lock_guard guard(lock_);
    pulse_ = pulse;
    changed_.notify_all();
}

bool Publisher::MaySend() const {
    return attached_ && (!paused_ || resumedOnce_);
}

bool Publisher::HasWork() const {
    return MaySend() && completed_ != requested_;
}

void Publisher::Run(std::stop_token stop) {
    std::unique_lock guard(lock_);
    while (!stop.stop_requested()) {
        AwaitWork(guard, stop);
        if (!HasWork())
            continue;
        const Work work = std::exchange(work_, {});
        const auto request = requested_;
        isPublishing_ = true;
        guard.unlock();
        Publish(work);
        guard.lock();
        isPublishing_ = false;
        resumedOnce_ = false;
        completed_ = request;
        changed_.notify_all();
    }
}

void Publisher::AwaitWork(std::unique_lock<std::mutex>& guard, std::stop_token stop) {
    const auto pulse = pulse_;
    const auto isDue = [&] { return HasWork() || pulse_ != pulse; };
    if (pulse.count() == 0) {
        changed_.wait(guard, stop, isDue);
    } else if (!changed_.wait_for(guard, stop, pulse, isDue)) {
        work_.notifications |= kChangerInfo;
        ++requested_;
    }
}

void Publisher::Publish(const Work& work) {
    const std::lock_guard guard(serverLock_);
    if (!server_)
        return;
    if (work.together) {
        Value all = Value::MakeDictionary();
        for (const auto& [notification, key] : kNotificationKeys)
            all.Set(key, describe_(notification));
        SendFrame(all, "all", true, work.newSubscribers);
        return;
    }
    for (const auto& [notification, key] : kNotificationKeys) {
        const bool isMarked = (work.notifications & notification) != 0;
        if (isMarked || !work.newSubscribers.empty()) {
            Value one = Value::MakeDictionary();
            one.Set(key, describe_(notification));
            SendFrame(one, key, isMarked, work.newSubscribers);
        }
    }
}

void Publisher::SendFrame(const Value& notification, const std::string& keys, bool toAll,
                          const std::set<SubscriberId>& newSubscribers) {
    const std::vector<Piece> pieces = Encode(notification);
    if (toAll) {
        server_->SendToAll(pieces, keys);
        return;
    }
    for (const SubscriberId subscriber : newSubscribers)
        server_->Send(subscriber, pieces, keys);
}

std::vector<Piece> Publisher::Encode(const Value& notification) {
    const auto fault = faults_.Take({"notification"});
    if (fault) {
        events_.Report("fault",
                       Fields().Add("on", "notification").Add("do", FaultName(fault->kind)));
    }
    if (fault && fault->kind == FaultKind::Silence)
        return {};
    return EncodeWithFault(notification, fault);
}

} // namespace simulator
