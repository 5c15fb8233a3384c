#include "simulator/NotificationServer.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <iterator>
#include <utility>

namespace simulator {

namespace {

constexpr int kPollInterval = 1; // milliseconds; poll() does not report that a peer has read

bool HasHungUp(int socket) {
    char byte;
    const ssize_t count = recv(socket, &byte, 1, MSG_DONTWAIT);
    return count == 0 || (count < 0 && errno != EAGAIN && errno != EINTR);
}

} // namespace

NotificationServer::NotificationServer(const std::string& path, Events& events,
                                       std::function<void(SubscriberId)> onSubscribe)
    : events_(events), onSubscribe_(std::move(onSubscribe)), socket_(path),
      thread_([this] { Serve(); }) {}

NotificationServer::~NotificationServer() {
    {
        const std::lock_guard guard(lock_);
        ending_ = true;
    }
    work_.Signal();
    thread_.join();
    while (!subscribers_.empty())
        Drop(subscribers_.begin());
}

void NotificationServer::Send(SubscriberId subscriber, const std::vector<Piece>& pieces,
                              const std::string& keys) {
    const std::lock_guard guard(lock_);
    if (const auto found = subscribers_.find(subscriber); found != subscribers_.end())
        Queue(found, pieces, keys);
    work_.Signal();
}

void NotificationServer::SendToAll(const std::vector<Piece>& pieces, const std::string& keys) {
    const std::lock_guard guard(lock_);
    for (auto subscriber = subscribers_.begin(); subscriber != subscribers_.end(); ++subscriber)
        Queue(subscriber, pieces, keys);
    work_.Signal();
}

void NotificationServer::Queue(Subscribers::iterator subscriber, const std::vector<Piece>& pieces,
                               const std::string& keys) {
    std::size_t size = 0;
    for (const Piece& piece : pieces) {
        subscriber->second.queue.push_back(piece);
        size += piece.bytes.size();
        WriteAll(copy_.Get(), piece.bytes);
    }
    subscriber->second.queuedBytes += size;
    events_.Report("notification",
                   Fields().Add("client", subscriber->first).Add("keys", keys).Add("bytes", size));
}

void NotificationServer::CopyTo(const std::string& path) {
    Descriptor copy(open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0666));
    if (copy.Get() < 0)
        throw CommandError("cannot write " + path);
    const std::lock_guard guard(lock_);
    copy_ = std::move(copy);
}

void NotificationServer::AwaitRead(std::stop_token stop) {
    std::unique_lock guard(lock_);
    const auto hasRead = [](const auto& entry) {
        return entry.second.queue.empty() && HasPeerReadAll(entry.second.socket.Get());
    };
    while (!ending_ && !stop.stop_requested() && !std::ranges::all_of(subscribers_, hasRead)) {
        progress_.wait_for(guard, stop, std::chrono::milliseconds(kPollInterval),
                           [] { return false; });
    }
}

void NotificationServer::Serve() {
    for (;;) {
        WaitForWork();
        work_.Reset();
        AcceptSubscriber();
        const std::lock_guard guard(lock_);
        if (ending_)
            return;
        SendQueued();
    }
}

void NotificationServer::WaitForWork() {
    std::vector<pollfd> sources = {{socket_.Get(), POLLIN, 0}, {work_.Get(), POLLIN, 0}};
    int milliseconds = -1;
    {
        const std::lock_guard guard(lock_);
        for (const auto& [id, subscriber] : subscribers_) {
            const bool isQueued = !subscriber.queue.empty();
            const bool mustWait = isQueued && subscriber.queue.front().alone &&
                                  !HasPeerReadAll(subscriber.socket.Get());
            if (mustWait)
                milliseconds = kPollInterval;
            const short wanted = isQueued && !mustWait ? POLLIN | POLLOUT : POLLIN;
            sources.push_back({subscriber.socket.Get(), wanted, 0});
        }
    }
    poll(sources.data(), sources.size(), milliseconds);
}

void NotificationServer::AcceptSubscriber() {
    Descriptor client = socket_.Accept();
    if (client.Get() < 0)
        return;
    const SubscriberId id = ++lastId_;
    {
        const std::lock_guard guard(lock_);
        subscribers_[id].socket = std::move(client);
        events_.Report("subscriber", Fields().Add("client", id).Add("connected", true));
    }
    onSubscribe_(id);
}

void NotificationServer::SendQueued() {
    for (auto subscriber = subscribers_.begin(); subscriber != subscribers_.end();) {
        const bool isLost = HasHungUp(subscriber->second.socket.Get()) ||
                            subscriber->second.queuedBytes > kMaximumQueued ||
                            !SendQueuedTo(subscriber->second);
        subscriber = isLost ? Drop(subscriber) : std::next(subscriber);
    }
    progress_.notify_all();
}

// Sends until the socket would block or the peer must read first. False if the connection is lost.
bool NotificationServer::SendQueuedTo(Subscriber& subscriber) {
    const int socket = subscriber.socket.Get();
    while (!subscriber.queue.empty()) {
        Piece& piece = subscriber.queue.front();
        if (piece.alone && !HasPeerReadAll(socket))
            return true;
        const std::size_t before = piece.bytes.size();
        const SendResult result = SendSome(socket, piece);
        subscriber.queuedBytes -= before - piece.bytes.size();
        if (result != SendResult::Done)
            return result == SendResult::Again;
        subscriber.queue.pop_front();
    }
    return true;
}

NotificationServer::Subscribers::iterator
NotificationServer::Drop(Subscribers::iterator subscriber) {
    events_.Report("subscriber", Fields().Add("client", subscriber->first).Add("connected", false));
    return subscribers_.erase(subscriber);
}

} // namespace simulator
