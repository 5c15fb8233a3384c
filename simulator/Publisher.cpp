#include "simulator/Publisher.h"

#include <array>
#include <utility>

namespace simulator {

namespace {

// In the order in which they are sent.
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
    const std::scoped_lock guard(publishing_, lock_);
    server_ = &server;
    attached_ = true;
    changed_.notify_all();
}

void Publisher::Detach() {
    const std::scoped_lock guard(publishing_, lock_);
    server_ = nullptr;
    attached_ = false;
    changed_.notify_all();
}

void Publisher::Mark(unsigned notifications) {
    const std::lock_guard guard(lock_);
    work_.notifications |= notifications;
    ++marked_;
    changed_.notify_all();
}

void Publisher::Greet(SubscriberId subscriber) {
    const std::lock_guard guard(lock_);
    work_.newcomers.insert(subscriber);
    ++marked_;
    changed_.notify_all();
}

void Publisher::MarkTogether() {
    const std::lock_guard guard(lock_);
    work_.together = true;
    ++marked_;
    changed_.notify_all();
}

void Publisher::Flush() {
    std::unique_lock guard(lock_);
    const auto wanted = marked_;
    changed_.wait(guard, [&] { return !MaySend() || published_ >= wanted; });
}

void Publisher::Hold() {
    std::unique_lock guard(lock_);
    held_ = true;
    changed_.notify_all();
    changed_.wait(guard, [&] { return !inTurn_; });
}

void Publisher::Release() {
    const std::lock_guard guard(lock_);
    held_ = false;
    work_.notifications = kAllNotifications;
    ++marked_;
    changed_.notify_all();
}

void Publisher::ReleaseOnce() {
    const std::lock_guard guard(lock_);
    heldButOnce_ = held_;
    work_.notifications = kAllNotifications;
    ++marked_;
    changed_.notify_all();
}

void Publisher::SetPulse(std::chrono::milliseconds pulse) {
    const std::lock_guard guard(lock_);
    pulse_ = pulse;
    changed_.notify_all();
}

bool Publisher::MaySend() const {
    return attached_ && (!held_ || heldButOnce_);
}

bool Publisher::HasWork() const {
    return MaySend() && published_ != marked_;
}

void Publisher::Run(std::stop_token stop) {
    std::unique_lock guard(lock_);
    while (!stop.stop_requested()) {
        AwaitWork(guard, stop);
        if (!HasWork())
            continue;
        const Work work = std::exchange(work_, {});
        const auto turn = marked_;
        inTurn_ = true;
        guard.unlock();
        Publish(work);
        guard.lock();
        inTurn_ = false;
        heldButOnce_ = false;
        published_ = turn;
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
        ++marked_;
    }
}

void Publisher::Publish(const Work& work) {
    const std::lock_guard guard(publishing_);
    if (!server_)
        return;
    if (work.together) {
        Value all = Value::MakeDictionary();
        for (const auto& [notification, key] : kNotificationKeys)
            all.Set(key, describe_(notification));
        SendFrame(all, "all", true, work.newcomers);
        return;
    }
    for (const auto& [notification, key] : kNotificationKeys) {
        const bool isMarked = (work.notifications & notification) != 0;
        if (isMarked || !work.newcomers.empty()) {
            Value one = Value::MakeDictionary();
            one.Set(key, describe_(notification));
            SendFrame(one, key, isMarked, work.newcomers);
        }
    }
}

void Publisher::SendFrame(const Value& notification, const std::string& keys, bool toAll,
                          const std::set<SubscriberId>& newcomers) {
    const std::vector<Piece> pieces = Encode(notification);
    if (toAll) {
        server_->SendToAll(pieces, keys);
        return;
    }
    for (const SubscriberId subscriber : newcomers)
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
