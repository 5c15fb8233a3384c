#include "Server.h"

#include "EventCounts.h"
#include "InfoLists.h"
#include "RandomValues.h"
#include "common/VErr.h"
#include "connection/Frames.h"
#include "testbed/Failure.h"

#include <linux/un.h> // the kernel's own address, where <sys/un.h> is that of BSD
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstddef>
#include <filesystem>
#include <string>
#include <string_view>

using random_values::Below;
using random_values::OneIn;

namespace {

constexpr int kMessageServers = 6;

// The kernel names a process after its executable file.
pid_t StartNamedProcess() {
    static const std::string path = [] {
        const std::string name = "/tmp/carouseld";
        std::filesystem::create_symlink("/bin/sleep", name);
        return name;
    }();
    char name[] = "carouseld";
    char time[] = "infinity";
    char* arguments[] = {name, time, nullptr};
    char* environment[] = {nullptr};
    pid_t process = -1;
    errno = posix_spawn(&process, path.c_str(), nullptr, nullptr, arguments, environment);
    testbed::Require(errno == 0, "cannot start " + path);
    return process;
}

std::string PathOf(const char* prefix, pid_t process) {
    return prefix + std::to_string(process);
}

// Sleeps first: the process exists for a while without its sockets.
int Listen(const std::string& path) {
    random_values::Sleep(1000);
    const int listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    testbed::Require(bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof address) ==
                             0 &&
                         listen(listener, 128) == 0,
                     "cannot listen on " + path);
    return listener;
}

bool Send(int connection, std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t sent = send(connection, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (sent < 0)
            return false;
        bytes.remove_prefix(static_cast<std::size_t>(sent));
    }
    return true;
}

std::size_t RandomPosition(std::string_view bytes) {
    return static_cast<std::size_t>(Below(static_cast<int>(bytes.size())));
}

bool SendInPieces(int connection, std::string_view bytes) {
    const std::size_t cut = RandomPosition(bytes);
    if (!Send(connection, bytes.substr(0, cut)))
        return false;
    random_values::Sleep(500);
    return Send(connection, bytes.substr(cut));
}

// Returns an empty string when the client has closed the connection.
std::string ReadRequest(int connection) {
    std::string bytes;
    char buffer[4096];
    while (bytes.find("</plist>\n") == std::string::npos) {
        const ssize_t length = recv(connection, buffer, sizeof buffer, 0);
        if (length <= 0)
            return {};
        bytes.append(buffer, static_cast<std::size_t>(length));
    }
    return bytes;
}

void AwaitEnd(int connection) {
    char buffer[64];
    while (recv(connection, buffer, sizeof buffer, 0) > 0) {
    }
}

std::string ErrorReply(VErrCode code) {
    return FrameOfList(Dictionary({{"error code", code}, {"error string", "on purpose"}}));
}

bool Contains(const std::string& text, const char* part) {
    return text.find(part) != std::string::npos;
}

EventKind KindOf(const std::string& request) {
    if (Contains(request, "mount disc<"))
        return "mounts requested";
    if (Contains(request, "eject disc<"))
        return "ejects requested";
    if (Contains(request, "request identification<"))
        return "requests withdrawn";
    if (Contains(request, "Building changer directory cache"))
        return "statuses set";
    return "statuses cleared";
}

void FailRequest(int connection) {
    constexpr EventKind kWays[] = {"replies with an error", "requests without reply",
                                   "connections closed without reply"};
    const EventKind way = kWays[Below(3)];
    event_counts::Count(way);
    if (way == "replies with an error")
        Send(connection, ErrorReply(kVErrFacilityBase + 1234));
    else if (way == "requests without reply")
        AwaitEnd(connection);
}

void ReplyBusy(int connection, bool isMount) {
    event_counts::Count("replies that the server is busy");
    const bool isMounting = isMount && OneIn(2);
    Send(connection, ErrorReply(isMounting ? kVErrCodeMountUnderWay : kVErrCodeServerBusy));
}

void ReplySuccess(int connection) {
    const std::string reply = FrameOfList(Dictionary());
    if (OneIn(4)) {
        event_counts::Count("late replies");
        random_values::Sleep(1000);
    }
    if (OneIn(4)) {
        event_counts::Count("replies in pieces");
        SendInPieces(connection, reply);
    } else {
        Send(connection, reply);
    }
}

} // namespace

Server::Server(Changers& changers)
    : changers_(changers), process_(StartNamedProcess()),
      notifications_(Listen(PathOf("/tmp/carouseldn-", process_))),
      messages_(Listen(PathOf("/tmp/carouseld-", process_))) {
    threads_.emplace_back([this] { ServeSubscribers(); });
    for (int i = 0; i < kMessageServers; ++i)
        threads_.emplace_back([this] { ServeMessages(); });
}

Server::~Server() {
    const bool endsProcessFirst = OneIn(2);
    const auto endProcess = [&] {
        kill(process_, SIGKILL);
        waitpid(process_, nullptr, 0);
    };
    if (endsProcessFirst)
        endProcess();
    isEnding_ = true;
    info_lists::NotifyWaiters();
    shutdown(notifications_, SHUT_RDWR); // ends accept4() on the other threads
    shutdown(messages_, SHUT_RDWR);
    ShutDownConnections();
    for (std::thread& thread : threads_)
        thread.join();
    close(notifications_);
    close(messages_);
    unlink(PathOf("/tmp/carouseldn-", process_).c_str());
    unlink(PathOf("/tmp/carouseld-", process_).c_str());
    if (!endsProcessFirst)
        endProcess();
}

// ---- connections ----

int Server::Accept(int listener) {
    const int connection = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
    if (connection < 0)
        return -1;
    const std::lock_guard lock(mutex_);
    if (isEnding_) {
        close(connection);
        return -1;
    }
    connections_.insert(connection);
    return connection;
}

void Server::Close(int connection) {
    const std::lock_guard lock(mutex_);
    connections_.erase(connection);
    close(connection);
}

void Server::ShutDownConnections() {
    const std::lock_guard lock(mutex_);
    for (const int connection : connections_)
        shutdown(connection, SHUT_RDWR);
}

// ---- notifications ----

void Server::ServeSubscribers() {
    int connection = -1;
    while ((connection = Accept(notifications_)) >= 0) {
        PushNotifications(connection);
        Close(connection);
    }
}

void Server::PushNotifications(int connection) {
    while (info_lists::AwaitPendingAtMost(Below(6), isEnding_)) {
        const auto [frame, hasInfo] = changers_.Compose();
        if (InjectsFaults() && OneIn(20)) {
            event_counts::Count("notifications truncated");
            Send(connection, std::string_view(frame).substr(0, RandomPosition(frame)));
            return;
        }
        if (!(OneIn(3) ? SendInPieces(connection, frame) : Send(connection, frame)))
            return;
        if (hasInfo) {
            info_lists::CountSentList();
            event_counts::Count("changer infos");
        }
        if (changers_.CurrentPhase() == Phase::kIdle)
            random_values::Sleep(2000);
        if (InjectsFaults() && OneIn(20)) {
            event_counts::Count("notification connections closed");
            return;
        }
    }
}

// ---- requests ----

void Server::ServeMessages() {
    int connection = -1;
    while ((connection = Accept(messages_)) >= 0) {
        Reply(connection);
        Close(connection);
    }
}

void Server::Reply(int connection) {
    const std::string request = ReadRequest(connection);
    if (request.empty())
        return;
    const EventKind kind = KindOf(request);
    event_counts::Count(kind);
    // Rare for withdrawals of discs: the daemon never picks such a disc again.
    const bool isWithdrawalOfDisc =
        kind == "requests withdrawn" && Contains(request, "Storage Element Index");
    const bool isMount = kind == "mounts requested";
    if (InjectsFaults() && OneIn(isWithdrawalOfDisc ? 100 : 10))
        FailRequest(connection);
    else if ((isMount || kind == "ejects requested") && OneIn(8))
        ReplyBusy(connection, isMount);
    else
        ReplySuccess(connection);
}
